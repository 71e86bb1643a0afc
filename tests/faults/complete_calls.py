"""Every call that the library makes to another library is in the table of those that can be made to fail, or here.

Usage: complete_calls.py ROOT NM OBJECT...
"""

import pathlib
import re
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "style"))
import tree

# What is not made to fail, by the reason.
UNFAILING = {
    "only computes": """memchr memcmp memcpy memmove memset strcmp strerrordesc_np strlen bcmp fmod lround nearbyint trunc snprintf
        sigaddset sigemptyset sigismember sigfillset SQLGetDiagRec sqlite3_errmsg sqlite3_errstr""",
    "asks for what is there already": """geteuid secure_getenv getpid clock_gettime time sysconf pthread_self dladdr tzset
        sigpending umask __errno_location __libc_current_sigrtmax __libc_single_threaded pthread_attr_getstacksize
        EVP_CIPHER_CTX_is_encrypting sqlite3_bind_parameter_count sqlite3_busy_timeout sqlite3_column_bytes
        sqlite3_column_count sqlite3_column_decltype sqlite3_column_double sqlite3_column_int64 sqlite3_column_type
        sqlite3_db_readonly sqlite3_get_autocommit sqlite3_total_changes""",
    "its null may be an empty value": "sqlite3_column_blob",
    "gives back: its caller can do nothing more": """close fclose free munmap globfree EVP_CIPHER_free EVP_CIPHER_CTX_free EVP_MD_free
        OSSL_LIB_CTX_free
        pthread_attr_destroy pthread_mutexattr_destroy pthread_detach pthread_mutex_unlock SQLDisconnect SQLFreeHandle
        SQLFreeStmt sqlite3_close_v2 sqlite3_finalize sqlite3_reset
        closedir""",
    "fails for wrong arguments only": """sqlite3_bind_double sqlite3_bind_int64 sqlite3_bind_null sigaction pthread_sigmask pthread_kill pthread_mutex_consistent
        pthread_mutexattr_settype pthread_mutexattr_setpshared pthread_mutexattr_setrobust sqlite3_db_config
        sqlite3_progress_handler""",
    "its failure is one of its results": """opendir readdir kill nanosleep sigtimedwait pthread_tryjoin_np pthread_timedjoin_np
        pthread_cond_clockwait""",
    "advice, or a word to the person at the program": "madvise fprintf fputs fwrite stderr",
    "does not come back": "syscall",
    "without it a program's end is the only thing that differs": "OPENSSL_init_crypto",
}
# The compiler's own, sanitizers included.
RUNTIME = re.compile(r"_GLOBAL_OFFSET_TABLE_|_Unwind_Resume|__(cxa|gxx|stack_chk|dso|asan|ubsan|tsan|lsan|sanitizer)_\w+")
# What of the C++ library asks the system for more than memory; folders of relative paths are found when loaded.
SYSTEM = re.compile(r"_ZNSt10filesystem\d|_ZNSt6thread15")
LOADING = re.compile(r"_ZNSt10filesystem8absolute|_ZNSt10filesystem7__cxx11")


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    verdict = tree.Verdict(root)
    table = root / "tests" / "faults" / "Calls.inc"
    rows = {}
    for number, line in enumerate(tree.text_of(table).split("\n"), 1):
        if row := re.match(r"CALL(?:_AS\(\w+, |(?:_IF)?\()(\w+),", line):
            rows[row.group(1)] = number
    unfailing = {name for names in UNFAILING.values() for name in names.split()}
    output = subprocess.run([sys.argv[2], "--undefined-only", "--format=posix", *sys.argv[3:]], check=True,
                            stdout=subprocess.PIPE, text=True).stdout
    calls = {line.split()[0] for line in output.splitlines() if len(line.split()) > 1}
    # Fortified builds call the checking form of some functions.
    calls -= {f"__{name}_chk" for name in unfailing}
    for name in sorted(calls - rows.keys() - unfailing):
        of_system = SYSTEM.match(name) and not LOADING.match(name) if name.startswith("_Z") else not RUNTIME.fullmatch(name)
        if of_system:
            verdict.complain(table, 1, f"{name} is called and never made to fail")
    for name in sorted(rows.keys() - calls):
        verdict.complain(table, rows[name], f"{name} is not called")
    for name in sorted(rows.keys() & unfailing):
        verdict.complain(table, rows[name], f"{name} is in the list of those that cannot fail too")
    verdict.exit(min(len(rows), len(calls)), "calls")


main()
