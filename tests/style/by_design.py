"""Every behaviour that a comment of the library marks as deliberate has the test that pins it, and the other way round.

Usage: by_design.py ROOT
"""

import pathlib
import re
import sys

import tree

# The comment may be wrapped between its words.
COMMENT = re.compile(r"\bBy(?:\s|//)+design\b((?:\s|//)+\[(\w+)\]:)?")
TEST = re.compile(r"\bTEST(?:_F)?\(\s*ByDesign\s*,\s*(\w+)\s*\)")
LINE_COMMENT = re.compile(r"//[^\n]*")


def places(verdict, paths, prepare, pattern, key_of, what):
    """Where each key is; complains about a second place."""
    found = {}
    for path in paths:
        text = prepare(tree.text_of(path))
        for match in pattern.finditer(text):
            key, line = key_of(match), tree.line_of(text, match.start())
            if key is None:
                verdict.complain(path, line, 'the comment has no key: it reads "By design [Key]: ..."')
            elif key in found:
                verdict.complain(path, line, f"a second {what} [{key}]")
            else:
                found[key] = (path, line)
    return found


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    comments = places(verdict, tree.sources(root, "quillanest"), lambda text: text, COMMENT,
                      lambda match: match.group(2), "comment")
    tests = places(verdict, tree.sources(root, "tests"), lambda text: LINE_COMMENT.sub("", text), TEST,
                   lambda match: match.group(1), "test")
    for key in sorted(comments.keys() - tests.keys()):
        verdict.complain(*comments[key], f"no TEST(ByDesign, {key}) pins this behaviour")
    for key in sorted(tests.keys() - comments.keys()):
        verdict.complain(*tests[key], f'no comment "By design [{key}]" is in quillanest/')
    verdict.exit(len(comments), "deliberate behaviours")


main()
