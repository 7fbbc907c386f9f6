#!/usr/bin/env python3
"""Compiles every public header alone as C++17, and all of them together as C++20, with pedantic warnings as errors.

The headers are an explicit list, so that adding a public header is a decision. The list must equal what lies in
the include folders, and the umbrella header must bring in all of it.
"""
import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

UMBRELLA = "vidorra/vidorra.h"
WARNINGS = ("-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wnon-virtual-dtor", "-Woverloaded-virtual", "-Werror")


def headers_in(folders):
    return {path.relative_to(folder).as_posix(): path for folder in folders for path in folder.rglob("*.h")}


def reachable(name, files, seen=None):
    """The headers of ours that including `name` brings in."""
    seen = set() if seen is None else seen
    if name in files and name not in seen:
        seen.add(name)
        for included in re.findall(r'^\s*#\s*include\s*["<]([^">]+)[">]', files[name].read_text(), re.MULTILINE):
            reachable(included, files, seen)
    return seen


def compile_alone(name, standard, compiler, flags):
    # Included twice, which shows a missing include guard.
    source = f'#include "{name}"\n#include "{name}"\n'
    command = [compiler, "-x", "c++", "-fsyntax-only", f"-std={standard}", *WARNINGS, *flags, "-"]
    result = subprocess.run(command, input=source, capture_output=True, text=True, check=False)
    return None if result.returncode == 0 else f"{name} as {standard}:\n{result.stderr}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--root", type=pathlib.Path, required=True)
    parser.add_argument("--compiler", default="c++")
    parser.add_argument("--list", type=pathlib.Path, required=True)
    arguments = parser.parse_args()

    root = arguments.root.resolve()
    folders = [root / "include", *sorted(root.glob("platform/*/include"))]
    files = headers_in(folders)
    lines = arguments.list.read_text().splitlines()
    listed = {line.strip() for line in lines if line.strip() and not line.startswith("#")}
    failures = [f"{name} is in {arguments.list.name} but not in an include folder" for name in sorted(listed - set(files))]
    failures += [f"{name} is not in {arguments.list.name}" for name in sorted(set(files) - listed)]
    failures += [f"{name} is not included by {UMBRELLA}" for name in sorted(set(files) - reachable(UMBRELLA, files))]

    flags = [f"-I{folder}" for folder in folders]
    flags += subprocess.run(["pkg-config", "--cflags", "libavcodec", "libavutil", "fmt"], capture_output=True, text=True,
                            check=True).stdout.split()
    jobs = [(UMBRELLA, "c++20"), *((name, "c++17") for name in sorted(files))]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = pool.map(lambda job: compile_alone(*job, arguments.compiler, flags), jobs)
        failures += [failure for failure in results if failure]

    for failure in failures:
        print(failure, file=sys.stderr)
    print(f"{len(files)} headers, {len(jobs)} compilations, {len(failures)} failures")
    return 1 if failures or not files else 0


if __name__ == "__main__":
    sys.exit(main())
