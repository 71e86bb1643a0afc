"""Includes between the library's layers run one way, and only the platform's own folder knows the system.

Usage: include_direction.py ROOT
"""

import pathlib
import re
import sys

import tree

# A layer, and those that it includes besides itself.
LAYERS = {
    "base": (),
    "platform": ("base",),
    "settings": ("base", "platform"),
    "sql": ("base", "platform"),
    "shm": ("base", "platform"),
    "kernel": ("base", "platform", "settings", "shm"),
    "persist": ("base", "platform", "settings", "shm", "sql", "kernel"),
}
SYSTEM_FOLDER = "platform/posix"
# Headers of the system's folder that are included under the names below quillanest/ that every system gives them.
SYSTEM_INCLUDE = f"{SYSTEM_FOLDER}/include/quillanest"
UMBRELLAS = ("Quillanest.h", "Check.h")

STANDARD_HEADERS = set("""
algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits
clocale cmath compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint cstdio
cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream functional
future initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource
mutex new numbers numeric optional ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex
source_location span sstream stack stdexcept stop_token streambuf string string_view strstream syncstream system_error
thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector version
""".split())

# Libraries that sources, never headers, of a layer use on every system.
PORTABLE_LIBRARIES = {"base": re.compile(r"openssl/"), "sql": re.compile(r"sqlite3\.h$")}

# What compiles, and still assumes one system: numbers and handles of one width, its paths and names of files.
ASSUMPTION = re.compile(r"""__int128|'/'|"/"|\.so"|/proc/|/dev/""")
COMMENT = re.compile(r"//[^\n]*")

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*([<"])([^>"]+)[>"]', re.MULTILINE)
CONDITION = re.compile(r"^[ \t]*#[ \t]*(?:if|ifdef|ifndef|elif|elifdef|elifndef)\b(?:.*\\\n)*.*", re.MULTILINE)
SYSTEM_MACRO = re.compile(
    r"\b(_?WIN(32|64|NT)|__WIN\w+|__?linux(__)?|linux|__gnu_linux__|__?unix(__)?|unix|__APPLE__|__MACH__|__ANDROID__|"
    r"__(Free|Net|Open)BSD__|__DragonFly__|__sun|_AIX|__hpux|__HAIKU__|__QNX\w*|__CYGWIN__|__MINGW\w+|_MSC_VER|"
    r"_POSIX_\w+|__GLIBC\w*|CMAKE_SYSTEM\w*|__has_include)\b")


def layer_of(path):
    """The layer of a library file; None for a file in the library's top folder."""
    return path.split("/")[0] if "/" in path else None


def is_of_system(path):
    return path.startswith(SYSTEM_FOLDER + "/")


def check_own(verdict, path, line, here, target):
    if not target.startswith("quillanest/"):
        verdict.complain(path, line, f'"{target}" is not written from the root, as "quillanest/..."')
        return
    target = target.removeprefix("quillanest/")
    of_system = (verdict.root / "quillanest" / SYSTEM_INCLUDE / target).is_file()
    if not of_system and not any((verdict.root / "quillanest" / name).is_file() for name in (target, target + ".in")):
        verdict.complain(path, line, f'"quillanest/{target}" does not exist')
        return
    if is_of_system(target) and not is_of_system(here):
        verdict.complain(path, line, f"only {SYSTEM_FOLDER}/ includes this header")
    if here in UMBRELLAS or target == "Version.h" or (of_system and layer_of(target) is None):
        return
    source, wanted = layer_of(here), layer_of(target)
    if source not in LAYERS or wanted not in LAYERS:
        verdict.complain(path, line, f"{here} may not include {target}")
    elif wanted != source and wanted not in LAYERS[source]:
        verdict.complain(path, line, f"{source}/ may not include {wanted}/ but only {', '.join(LAYERS[source])}")


def check_foreign(verdict, path, line, here, target):
    if target in STANDARD_HEADERS or (is_of_system(here) and path.suffix == ".cpp"):
        return
    if target in ("sql.h", "sqlext.h") and here == f"{SYSTEM_INCLUDE}/platform/Odbc.h":
        return
    library = PORTABLE_LIBRARIES.get(layer_of(here))
    if library and library.match(target) and path.suffix == ".cpp":
        return
    where = "a header" if path.suffix == ".h" else here
    verdict.complain(path, line, f"<{target}> is not of the standard library and has no place in {where}")


def check_conditions(verdict, path, text):
    for condition in CONDITION.finditer(text):
        macro = SYSTEM_MACRO.search(condition.group())
        if macro:
            line = tree.line_of(text, condition.start())
            verdict.complain(path, line, f"the folder of sources chooses the system, not {macro.group()}")


def check_assumptions(verdict, path, text):
    """Comments may name what the code may not."""
    text = COMMENT.sub("", text)
    for found in ASSUMPTION.finditer(text):
        verdict.complain(path, tree.line_of(text, found.start()), f"{found.group()} assumes a system; ask platform/")


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
        if not is_of_system(here):
            check_assumptions(verdict, path, text)
    for path in tree.sources(root, *tree.SOURCE_FOLDERS):
        check_conditions(verdict, path, tree.text_of(path))
    verdict.exit(len(library), "library files")


main()
