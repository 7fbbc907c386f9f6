#!/usr/bin/env bash
# Checks the layout of all our C++ files with clang-format, and checks the library's sources for defects with
# clang-tidy, which needs the compile commands of the preset release.
#   tools/check_style.sh          layout and defects
#   tools/check_style.sh format   only the layout
#   tools/check_style.sh deep     also runs clang's analyzer, which takes more than twice the time
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

tools/install_packages.sh style

# The files that git tracks or would add; in a copy without git, the files outside build folders.
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h' | sort -u)
else
    mapfile -t files < <(find . -name build -prune -o \( -name '*.cpp' -o -name '*.h' \) -printf '%P\n' | sort)
fi
existing=()
for file in "${files[@]}"; do
    if [ -f "$file" ]; then
        existing+=("$file")
    fi
done
echo "== clang-format, ${#existing[@]} files"
clang-format-14 --dry-run -Werror "${existing[@]}"
if [ "${1-}" = format ]; then
    exit 0
fi

if [ ! -f build/release/compile_commands.json ]; then
    tools/install_packages.sh build test
    cmake --preset release >/dev/null
fi
# The sources outside these folders are programs: tests, benchmarks, examples.
programs='^(tests|benchmarks|fuzz|examples)/'
pattern=$(printf '%s\n' "${existing[@]}" | grep '\.cpp$' | grep -vE "$programs" | paste -sd '|')
echo "== clang-tidy"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
checks=-clang-analyzer-*
if [ "${1-}" = deep ]; then
    checks=
fi
if ! run-clang-tidy-14 -quiet -checks="$checks" -p build/release -j "$(nproc)" "^$PWD/(${pattern})\$" >"$log" 2>&1; then
    grep -vE '^clang-tidy-14 |warnings generated' "$log"
    exit 1
fi
echo "no findings"
