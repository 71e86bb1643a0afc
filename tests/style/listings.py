"""The program that README prints is the one in examples/hello, file by file.

Usage: listings.py ROOT
"""

import pathlib
import sys
import textwrap

import tree

FENCED = ("hello.cpp",)
INDENTED = ("stations.schema", "conf/fix_Rtdb.ini", "CMakeLists.txt")


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    readme = root / "README.md"
    printed = tree.text_of(readme)
    for name in FENCED + INDENTED:
        text = tree.text_of(root / "examples/hello" / name)
        listing = f"```cpp\n{text}```\n" if name in FENCED else textwrap.indent(text, "    ")
        if f"\n\n{listing}\n" not in printed:
            verdict.complain(readme, 1, f"does not print examples/hello/{name} as it is")
    verdict.exit(len(FENCED + INDENTED), "listings")


main()
