"""The library exports exactly the symbols that its linker version script names, one quoted name a line.

Usage: exported_symbols.py ROOT NM LIBRARY
"""

import collections
import pathlib
import re
import subprocess
import sys

import tree

NAME = re.compile(r'^\s*"([^"]+)";\s*$')
NODE = re.compile(r"^\s*(\w[\w.]*)?\s*\{\s*$")
# What else may be in the script. Anything more, above all a pattern, would export what no line names.
FRAME = re.compile(r'^\s*(|global:|local:|\*;|local:\s*\*;|extern "C(\+\+)?"\s*\{|\}\s*\w*;)\s*$')


def listed(verdict, path):
    """The names in the script with their lines, and the names of its version nodes (None for one without)."""
    names, nodes = {}, set()
    text = re.sub(r"/\*.*?\*/", lambda comment: "\n" * comment.group().count("\n"), tree.text_of(path), flags=re.DOTALL)
    for line, entry in enumerate(text.split("\n"), 1):
        entry = entry.split("#")[0]
        if name := NAME.match(entry):
            if name.group(1) in names:
                verdict.complain(path, line, f'"{name.group(1)}" is listed twice')
            names[name.group(1)] = line
        elif node := NODE.match(entry):
            nodes.add(node.group(1))
        elif not FRAME.match(entry):
            verdict.complain(path, line, f"{entry.strip()} is not one quoted name")
    return names, nodes


def visible(nm, library, nodes):
    """The demangled names that the library defines for others, each with its kind as nm shows it."""
    output = subprocess.run([nm, "--dynamic", "--defined-only", "--demangle", "--without-symbol-versions", library],
                            check=True, stdout=subprocess.PIPE, text=True).stdout
    found = collections.defaultdict(set)
    for line in output.splitlines():
        _, kind, name = line.split(maxsplit=2)
        if not (kind == "A" and name in nodes):
            found[name].add(kind)
    return found


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    script = root / "quillanest" / "exports.map"
    names, nodes = listed(verdict, script)
    found = visible(sys.argv[2], sys.argv[3], nodes)
    for name in sorted(names.keys() - found.keys()):
        verdict.complain(script, names[name], f'the library does not export "{name}"')
    for name in sorted(found.keys() - names.keys()):
        verdict.complain(script, 1, f'the library exports "{name}" ({", ".join(sorted(found[name]))}), which is not listed')
    verdict.exit(min(len(names), len(found)), "exported symbols")


main()
