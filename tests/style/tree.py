"""The files of the source tree, and the verdict on them: what every style check shares."""

import os
import pathlib
import sys

SKIPPED_FOLDERS = {".git", ".cache", "__pycache__", "build"}
SOURCE_FOLDERS = ("quillanest", "tests", "examples", "tools", "bench", "fuzz")


class Verdict:
    """Collects complaints and prints each as file:line: message."""

    def __init__(self, root):
        self.root = root
        self.complaints = 0

    def complain(self, path, line, message):
        self.complaints += 1
        print(f"{path.relative_to(self.root)}:{line}: {message}")

    def exit(self, checked, what):
        """Ends the program: status 1 after a complaint, and when there was nothing to check."""
        if checked == 0:
            sys.exit(f"There are no {what} to check below {self.root}.")
        if self.complaints:
            sys.exit(f"{self.complaints} complaints about {checked} {what}.")
        print(f"{checked} {what}, no complaint.")
        sys.exit(0)


def files(folder):
    """Every file below a folder, sorted, without version control and build trees."""
    found = []
    for here, folders, names in os.walk(folder):
        if "CMakeCache.txt" in names:
            folders.clear()
            continue
        folders[:] = [name for name in folders if name not in SKIPPED_FOLDERS]
        found += [pathlib.Path(here, name) for name in names]
    return sorted(path for path in found if path.is_file())


def sources(root, *folders):
    """The C++ files below the given folders of the tree."""
    return [path for folder in folders for path in files(root / folder) if path.suffix in (".cpp", ".h")]


def text_of(path):
    """A file's text; bytes that are not UTF-8 (the GBK comments of some test data) become replacement characters."""
    return path.read_text(encoding="utf-8", errors="replace")


def line_of(text, offset):
    """The 1-based line that an offset into a text lies on."""
    return text.count("\n", 0, offset) + 1
