"""No file of the tree, by name or by content, speaks of what only its makers could know.

That is: papers outside the tree, tickets, and places on the machines it was built on. The patterns are written so that
they do not match themselves.

Usage: wording.py ROOT
"""

import pathlib
import re
import sys

import tree

FORBIDDEN = (
    ("a paper outside the tree", r"(?i)\b[s]pecification|\b[s]pecs?\b|\b[P]art\s+(\d+|[A-Z])\.\d"),
    ("a ticket", r"(?i)\b([i]ssue|[t]icket|[p]ull request)\s*(number\s*|no\.?\s*)?#?\d"),
    ("how the tree was made", r"(?i)\b(sub)?[a]gents?\b|\b(chat|coding|work(ing)?)\s+[s]essions?\b"),
    ("a place on one machine", r"(?<![\w.})>/-])/([w]ork|[h]ome|[r]oot|[U]sers|[b]uilds)/\w"),
    ("a package registry", r"(?i)\b([p]ypi\.org|[p]ythonhosted\.org|[n]pmjs\.org|[d]eb\.debian\.org|[p]roxy\.golang\.org|"
                           r"[g]hcr\.io|[a]rtifactory)"),
)
PATTERNS = [(what, re.compile(pattern)) for what, pattern in FORBIDDEN]


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    checked = 0
    for path in tree.files(root):
        name = path.relative_to(root).as_posix()
        if b"\0" in path.read_bytes():
            continue
        checked += 1
        lines = tree.text_of(path).split("\n")
        for number, line in [(1, name)] + list(enumerate(lines, 1)):
            for what, pattern in PATTERNS:
                if match := pattern.search(line):
                    verdict.complain(path, number, f'"{match.group()}" speaks of {what}')
    verdict.exit(checked, "text files")


main()
