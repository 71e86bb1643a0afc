"""Every C++ file is formatted as .clang-format says.

Usage: formatting.py ROOT [CLANG_FORMAT]
"""

import pathlib
import shutil
import subprocess
import sys

import tree


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    program = shutil.which(sys.argv[2] if len(sys.argv) > 2 else "clang-format")
    if program is None:
        sys.exit("clang-format is missing; scripts/setup installs it.")
    paths = tree.sources(root, *tree.SOURCE_FOLDERS)
    if not paths:
        sys.exit(f"There are no C++ files to check below {root}.")
    result = subprocess.run([program, "--dry-run", "-Werror", "--style=file", *map(str, paths)])
    if result.returncode != 0:
        version = subprocess.run([program, "--version"], capture_output=True, text=True).stdout.strip()
        sys.exit(f"Checked with {version}; the layout is that of version 14.")
    print(f"{len(paths)} C++ files, no complaint.")


main()
