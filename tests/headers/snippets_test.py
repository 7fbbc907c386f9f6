#!/usr/bin/env python3
"""Compiles the code that stands in the comments of the public headers and in docs/, as C++17.

A snippet in a header is a run of comment lines that are indented by four blanks more than the text, at least one of
which ends as code does; in a page it is a block marked as cpp. Each becomes the body of a function, unless it defines
one, and "..." is left out of it. What snippets use without declaring it is declared in snippets_prelude.h.
"""
import argparse
import pathlib
import re
import subprocess
import sys

COMMENT_LINE = re.compile(r"^\s*/// {5}(.*)$")
CODE_LINE = re.compile(r"[;{}]\s*(//.*)?$")
FUNCTION = re.compile(r"[\w:]+ \w+\(.*\) (try )?\{$")


def header_snippets(path):
    """The number of its first line, and the lines, of each snippet."""
    block, start = [], 0
    for number, line in enumerate([*path.read_text().splitlines(), ""], 1):
        match = COMMENT_LINE.match(line)
        if match:
            start = start if block else number
            block.append(match.group(1))
            continue
        if any(CODE_LINE.search(text) for text in block):
            yield start, block
        block = []


def page_snippets(path):
    block, start = None, 0
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line == "```cpp":
            block, start = [], number + 1
        elif line == "```" and block is not None:
            yield start, block
            block = None
        elif block is not None:
            block.append(line)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", type=pathlib.Path, required=True)
    parser.add_argument("--compiler", default="c++")
    parser.add_argument("--list", type=pathlib.Path, required=True)
    parser.add_argument("--prelude", type=pathlib.Path, required=True)
    arguments = parser.parse_args()

    root = arguments.root.resolve()
    folders = [root / "include", *sorted(root.glob("platform/*/include"))]
    names = [line for line in arguments.list.read_text().split("\n") if line and not line.startswith("#")]
    headers = [folder / name for name in names for folder in folders if (folder / name).exists()]
    snippets = [(path, *snippet) for path in headers for snippet in header_snippets(path)]
    pages = sorted((root / "docs").glob("*.md"))
    snippets += [(path, *snippet) for path in pages for snippet in page_snippets(path)]

    source = f'#include "{arguments.prelude.resolve()}"\n'
    for number, (path, start, lines) in enumerate(snippets):
        head, tail = ("", "") if FUNCTION.match(lines[0]) else ("void body() {", "}")
        source += f'namespace snippets::snippet{number} {{\n{head}\n#line {start} "{path.relative_to(root)}"\n'
        source += "\n".join(lines).replace("...", "") + f"\n{tail}\n}}\n"

    flags = [f"-I{folder}" for folder in folders]
    pkg_config = ["pkg-config", "--cflags", "libavcodec", "libavformat", "libavutil", "fmt"]
    flags += subprocess.run(pkg_config, capture_output=True, text=True, check=True).stdout.split()
    warnings = ["-Wall", "-Werror", "-Wno-unused"]
    command = [arguments.compiler, "-x", "c++", "-fsyntax-only", "-std=c++17", *warnings, *flags, "-"]
    result = subprocess.run(command, input=source, capture_output=True, text=True, check=False)
    print(result.stderr, file=sys.stderr, end="")
    print(f"{len(snippets)} snippets in {len({snippet[0] for snippet in snippets})} files")
    return 1 if result.returncode != 0 or not snippets else 0


if __name__ == "__main__":
    sys.exit(main())
