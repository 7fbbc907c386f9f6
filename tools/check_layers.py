#!/usr/bin/env python3
"""Checks the direction of dependencies: every #include of the library and its examples, against tools/layers.txt.

    tools/check_layers.py [--root FOLDER] [--rules FILE]

Public headers (include/vidorra/FOLDER/, platform/NAME/include/) and those of platform/NAME/internal/ count as parts of
their folder. Programs (tests, benchmarks, fuzz targets) may include what they need; examples are callers and include
only public headers.
"""
import argparse
import dataclasses
import fnmatch
import pathlib
import re
import sys

EXTENSIONS = {".h", ".cpp"}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
FOREIGN_IN_PUBLIC = re.compile(r"^(lib(av|sw|post)\w+|freetype2?|ft2build\.h|boost)\b")
COMMENTS_AND_TEXTS = re.compile(r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*'""", re.DOTALL)


@dataclasses.dataclass
class Rules:
    level: dict = dataclasses.field(default_factory=dict)
    private: list = dataclasses.field(default_factory=list)
    public: list = dataclasses.field(default_factory=list)
    only: list = dataclasses.field(default_factory=list)


def read_rules(path):
    rules = Rules()
    levels = 0
    for number, line in enumerate(path.read_text().splitlines(), 1):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        kind, _, rest = line.partition(" ")
        try:
            if kind == "layer":
                rules.level.update((folder, levels) for folder in rest.split())
                levels += 1
            elif kind == "private":
                prefix, folders = (part.strip() for part in rest.split("->"))
                rules.private.append((prefix, folders.split()))
            elif kind == "public":
                pattern, headers = (part.strip() for part in rest.split("->"))
                rules.public.append((pattern, headers.split()))
            elif kind == "only":
                pattern, regex, reason = (part.strip() for part in rest.split(" : "))
                rules.only.append((pattern, re.compile(regex), reason))
            else:
                raise ValueError(kind)
        except ValueError as error:
            sys.exit(f"{path}:{number}: cannot be read: {error}")
    return rules


class Project:
    """The files of one checkout, under the names by which they are included."""

    def __init__(self, root, rules):
        self.root = root
        self.rules = rules
        folders = ["include", "examples", *rules.level]
        self.files = sorted(path for folder in folders for path in (root / folder).rglob("*")
                            if path.suffix in EXTENSIONS and path.is_file())
        self.public_roots = [root / "include", *sorted(root.glob("platform/*/include"))]
        # Of closed interfaces that callers do not see.
        self.internal_roots = sorted(root.glob("platform/*/internal"))

    def find(self, name):
        """The file of ours that an #include means, or None."""
        for folder in (*self.public_roots, *self.internal_roots, self.root):
            if (folder / name).is_file():
                return folder / name
        return None

    def folder(self, path):
        """The layer that a file belongs to; "umbrella" for the header of everything."""
        parts = path.relative_to(self.root).parts
        if parts[0] != "include":
            return parts[0]
        return parts[2] if len(parts) > 3 else "umbrella"

    def is_public(self, path):
        return any(folder in path.parents for folder in self.public_roots)

    def name(self, path):
        """How the rules call a file: without include/vidorra/ and its like."""
        text = path.relative_to(self.root).as_posix()
        return re.sub(r"^include/vidorra/", "", text)

    def matches(self, path, pattern):
        return fnmatch.fnmatch(self.name(path), pattern)

    def wrong_include(self, source, name, quoted):
        """Why `source` may not include `name`, or None."""
        target = self.find(name)
        # Examples and the parts of platform/ stand alone, with headers of their own beside their sources.
        if quoted and self.folder(source) in ("examples", "platform") and (source.parent / name).is_file():
            return None
        if target is None:
            if quoted:
                return f'"{name}" is no file of the project; headers of others stand in angle brackets'
            return self.wrong_foreign_include(source, name)
        if not quoted and self.folder(source) != "examples":
            return f"<{name}> is a header of ours, which stands in quotes"
        source_folder, target_folder = self.folder(source), self.folder(target)
        if source_folder == "examples":
            if self.is_public(target):
                return None
            return f"{name} is private, and examples are callers"
        if self.is_public(source) and not self.is_public(target):
            return f"{name} is private and would be missing for callers"
        for prefix, folders in self.rules.private:
            if self.name(target).startswith(prefix) and source_folder not in folders:
                return f"{name} is private to {' '.join(folders)}"
        if source_folder == "umbrella":
            return None
        if target_folder == "umbrella":
            return f"{name} is for callers"
        if source_folder == target_folder:
            return None
        if self.rules.level[target_folder] >= self.rules.level[source_folder]:
            return f"{source_folder} may not include {name} of {target_folder}"
        return None

    def wrong_foreign_include(self, source, name):
        if not self.is_public(source) or not FOREIGN_IN_PUBLIC.match(name):
            return None
        own_name = next(source.relative_to(folder) for folder in self.public_roots if folder in source.parents)
        for pattern, headers in self.rules.public:
            if fnmatch.fnmatch(own_name.as_posix(), pattern) and name in headers:
                return None
        return f"<{name}> may not be included by public headers"

    def findings(self):
        for path in self.files:
            text = path.read_text()
            place = path.relative_to(self.root)
            for match in INCLUDE.finditer(text):
                why = self.wrong_include(path, match[1] or match[2], match[1] is not None)
                if why:
                    line = text.count("\n", 0, match.start()) + 1
                    yield f"{place}:{line}: {why}"
            # Line ends stay, so that lines can be counted.
            code = COMMENTS_AND_TEXTS.sub(lambda m: "\n" * m[0].count("\n"), text)
            for pattern, regex, reason in self.rules.only:
                if self.matches(path, pattern):
                    continue
                for match in regex.finditer(code):
                    line = code.count("\n", 0, match.start()) + 1
                    yield f"{place}:{line}: {match[0]} may stand in {pattern} only: {reason}"


def main():
    here = pathlib.Path(__file__).resolve().parent
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--root", type=pathlib.Path, default=here.parent)
    parser.add_argument("--rules", type=pathlib.Path, default=here / "layers.txt")
    arguments = parser.parse_args()
    project = Project(arguments.root.resolve(), read_rules(arguments.rules))
    if not project.files:
        sys.exit(f"no sources under {arguments.root}")
    findings = list(project.findings())
    for finding in findings:
        print(finding, file=sys.stderr)
    print(f"{len(project.files)} files, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
