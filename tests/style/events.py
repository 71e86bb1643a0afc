"""Every code of an event that the library reports has a row in docs/events.md, and no row is left over.

Usage: events.py ROOT
"""

import pathlib
import re
import sys

import tree

REPORTED = re.compile(r'"((?:[a-z]+)\.(?:[a-z_]+))"')
CALL = re.compile(r'(?:report_(?:error|warning|note|as|misfit|mistake|finding|doubt)|refuse|mistake|explain|report)\s*\(')
ROW = re.compile(r"^\| `([a-z]+\.[a-z_]+)` \|", re.MULTILINE)


def reported(root):
    """The codes in calls that report, with the place of the first one."""
    found = {}
    for path in tree.sources(root, "quillanest"):
        text = tree.text_of(path)
        for call in CALL.finditer(text):
            arguments = text[call.end():call.end() + 120]
            code = REPORTED.search(arguments)
            if code and path.suffix == ".cpp" or code and path.name in ("Misfits.h", "Neutral.h", "SchemaChecker.h", "SchemaRecords.h", "StoreNames.h"):
                found.setdefault(code.group(1), (path, tree.line_of(text, call.start())))
    return found


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    page = root / "docs" / "events.md"
    text = tree.text_of(page)
    rows = {row.group(1): tree.line_of(text, row.start()) for row in ROW.finditer(text)}
    codes = reported(root)
    for code in sorted(codes.keys() - rows.keys()):
        verdict.complain(*codes[code], f"{code} has no row in docs/events.md")
    for code in sorted(rows.keys() - codes.keys()):
        verdict.complain(page, rows[code], f"no source reports {code}")
    verdict.exit(len(codes), "codes of events")


main()
