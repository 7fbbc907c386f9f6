#!/usr/bin/env python3
"""Compares the program in README.md with examples/read_frames.cpp, and looks for files that README and docs name."""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
failures = []

blocks = re.findall(r"^```cpp\n(.*?)^```$", (root / "README.md").read_text(), re.MULTILINE | re.DOTALL)
example = (root / "examples/read_frames.cpp").read_text()
if example not in blocks:
    failures.append("README.md does not show examples/read_frames.cpp as it is")

for page in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
    for link in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", page.read_text()):
        if "://" not in link and not (page.parent / link).exists():
            failures.append(f"{page.relative_to(root)} links to {link}, which does not exist")

for failure in failures:
    print(failure, file=sys.stderr)
sys.exit(1 if failures else 0)
