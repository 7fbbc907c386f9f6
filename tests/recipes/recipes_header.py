#!/usr/bin/env python3
"""Writes the functions of docs/RECIPES.md into a header, so that a test can call them."""
import argparse
import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "headers"))
from snippets_test import FUNCTION, page_snippets  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("page", type=pathlib.Path)
    parser.add_argument("header", type=pathlib.Path)
    arguments = parser.parse_args()

    text = "#pragma once\n"
    for start, lines in page_snippets(arguments.page):
        if FUNCTION.match(lines[0]):
            text += f'#line {start} "docs/{arguments.page.name}"\ninline ' + "\n".join(lines) + "\n"
    arguments.header.write_text(text)


if __name__ == "__main__":
    main()
