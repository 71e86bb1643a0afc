"""The installed library resists attacks on its memory: what its file says, and that of every object in it.

Usage: hardening.py ROOT CMAKE BUILD READELF cet|no-cet OBJECT...
"""

import pathlib
import re
import subprocess
import sys
import tempfile

import tree

# What `readelf -W` has to show of the installed file, and what it must not.
REQUIRED = {
    "full RELRO": r"(?m)^ +GNU_RELRO ",
    "immediate binding": r"\(FLAGS_1\).* NOW\b",
    "the mark of what is never unloaded": r"\(FLAGS_1\).* NODELETE\b",
    "a stack without code": r"(?m)^ +GNU_STACK .* RW +0x",
    "a stack protector": r" UND __stack_chk_fail\b",
    "fortified functions": r" UND __\w+_chk@",
}
REFUSED = {
    "code that is changed when it is loaded": r"TEXTREL",
    "a place of the build where libraries are searched": r"\((RPATH|RUNPATH)\)",
}
MARKS = r"x86 feature: IBT, SHSTK"
# These two lack the mark in some C libraries.
UNMARKED = r"(?m)^ 0x\w+ \((INIT|FINI)\)"


def readelf(program, *arguments):
    return subprocess.run([program, "-W", *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout


def main():
    cmake, build, program, cet, *objects = sys.argv[2:]
    verdict = tree.Verdict(pathlib.Path(sys.argv[1]).resolve())
    place = verdict.root / "CMakeLists.txt"
    required, refused = dict(REQUIRED), dict(REFUSED)
    if cet == "cet":
        required["marks of guarded jumps and returns"] = MARKS
        refused["a function without these marks"] = UNMARKED
        for name in objects:
            if not re.search(MARKS, readelf(program, "-n", name)):
                verdict.complain(place, 1, f"{name} lacks the marks of guarded jumps and returns")
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run([cmake, "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
        library, = pathlib.Path(prefix).glob("**/libQuillanest.so")
        shown = readelf(program, "-l", "-d", "-n", "--dyn-syms", str(library))
    for what, pattern in required.items():
        if not re.search(pattern, shown):
            verdict.complain(place, 1, f"the installed library lacks {what}")
    for what, pattern in refused.items():
        if re.search(pattern, shown):
            verdict.complain(place, 1, f"the installed library has {what}")
    verdict.exit(len(objects), "objects")


main()
