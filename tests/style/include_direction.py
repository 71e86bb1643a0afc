"""Includes between the library's folders run one way, and only the platform's own folder knows the system.

Usage: include_direction.py ROOT
"""

import pathlib
import re
import sys

import tree

# A folder includes itself and those before it.
ROOMS = ("platform", "shm", "kernel", "persist")
SYSTEM_ROOM = "platform/posix"
UMBRELLA = "Quillanest.h"

STANDARD_HEADERS = set("""
algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits
clocale cmath compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint cstdio
cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream functional
future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource
mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex
source_location span sstream stack stdexcept stop_token streambuf string string_view strstream syncstream system_error
thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector version
""".split())

# Libraries that sources, never headers, of the platform may use on every system.
PORTABLE_LIBRARIES = re.compile(r"openssl/|sqlite3\.h$")

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', re.MULTILINE)
CONDITION = re.compile(r"^[ \t]*#[ \t]*(?:if|ifdef|ifndef|elif|elifdef|elifndef)\b(?:.*\\\n)*.*", re.MULTILINE)
SYSTEM_MACRO = re.compile(
    r"\b(_?WIN(32|64|NT)|__WIN\w+|__?linux(__)?|linux|__gnu_linux__|__?unix(__)?|unix|__APPLE__|__MACH__|__ANDROID__|"
    r"__(Free|Net|Open)BSD__|__DragonFly__|__sun|_AIX|__hpux|__HAIKU__|__QNX\w*|__CYGWIN__|__MINGW\w+|_MSC_VER|"
    r"_POSIX_\w+|__GLIBC\w*|CMAKE_SYSTEM\w*|__has_include)\b")


def room_of(path):
    """The folder of a library file as it counts for direction; None for a file in the library's top folder."""
    return path.split("/")[0] if "/" in path else None


def check_own(verdict, path, line, here, target):
    if not target.startswith("quillanest/"):
        verdict.complain(path, line, f'"{target}" is not written from the root, as "quillanest/..."')
        return
    target = target.removeprefix("quillanest/")
    if not (verdict.root / "quillanest" / target).is_file():
        verdict.complain(path, line, f'"quillanest/{target}" does not exist')
        return
    if target.startswith(SYSTEM_ROOM + "/") and not here.startswith(SYSTEM_ROOM + "/"):
        verdict.complain(path, line, f"{SYSTEM_ROOM}/ includes this header, nobody else")
    if here == UMBRELLA or target == "Export.h":
        return
    from_room, to_room = room_of(here), room_of(target)
    if to_room not in ROOMS or from_room not in ROOMS:
        verdict.complain(path, line, f"{here} may not include {target}")
    elif ROOMS.index(to_room) > ROOMS.index(from_room):
        verdict.complain(path, line, f"{from_room}/ may not include {to_room}/ ({' <- '.join(ROOMS)})")


def check_foreign(verdict, path, line, here, target):
    if target in STANDARD_HEADERS or (here.startswith(SYSTEM_ROOM + "/") and path.suffix == ".cpp"):
        return
    if PORTABLE_LIBRARIES.match(target) and here.startswith("platform/") and path.suffix == ".cpp":
        return
    where = "a header" if path.suffix == ".h" else here
    verdict.complain(path, line, f"<{target}> is not of the standard library and has no place in {where}")


def check_conditions(verdict, path, text):
    for condition in CONDITION.finditer(text):
        macro = SYSTEM_MACRO.search(condition.group())
        if macro:
            line = tree.line_of(text, condition.start())
            verdict.complain(path, line, f"the folder of sources chooses the system, not {macro.group()}")


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    library = tree.sources(root, "quillanest")
    for path in library:
        text = tree.text_of(path)
        here = path.relative_to(root / "quillanest").as_posix()
        for include in INCLUDE.finditer(text):
            check = check_foreign if include.group(1) == "<" else check_own
            check(verdict, path, tree.line_of(text, include.start()), here, include.group(2))
    for path in tree.sources(root, *tree.SOURCE_FOLDERS):
        check_conditions(verdict, path, tree.text_of(path))
    verdict.exit(len(library), "library files")


main()
