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



def prose(page):
    """The text of a page without its programs."""
    return re.sub(r"^```.*?^```$", "", page.read_text(), flags=re.MULTILINE | re.DOTALL)


def anchors(page):
    """The names that the headings of a page can be linked by."""
    headings = re.findall(r"^#+ (.*)$", prose(page), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


for page in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
    for link, anchor in re.findall(r"\]\(([^)#]*)(?:#([^)]*))?\)", prose(page)):
        target = page.parent / link if link else page
        if "://" in link:
            continue
        if not target.exists():
            failures.append(f"{page.relative_to(root)} links to {link}, which does not exist")
        elif anchor and anchor not in anchors(target):
            failures.append(f"{page.relative_to(root)} links to {link}#{anchor}, a heading that does not exist")

for failure in failures:
    print(failure, file=sys.stderr)
sys.exit(1 if failures else 0)
