#!/usr/bin/env bash
# Creates and destroys readers at random under the thread sanitizer, for SECONDS seconds:
#   tools/soak.sh SECONDS
#   tools/soak.sh --destroy N    destroys N readers at each of four moments
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

tools/install_packages.sh build test
# Old thread sanitizers cannot place their memory under full address randomisation.
runner=()
if setarch -R true 2>/dev/null; then
    runner=(setarch -R)
fi
cmake --preset tsan >/dev/null
"${runner[@]}" cmake --build --preset tsan --parallel "$(nproc)" --target reader_soak
echo "== soak"
TSAN_OPTIONS=${TSAN_OPTIONS-halt_on_error=1:second_deadlock_stack=1} \
    "${runner[@]}" build/tsan/tests/reader/reader_soak "$@"
