#include "tests/machrun/shims/Tables.h"

namespace Tables
{
const std::vector<const char*>& GetSame()
{
    static const std::vector<const char*> s_vecNames{
        // memory
        "aligned_alloc", "bzero", "calloc", "free", "malloc", "memchr", "memcmp", "memcpy", "memmove",
        "memset", "realloc", "__memcpy_chk", "__memset_chk",
        // texts
        "strcasecmp", "strchr", "strcmp", "strcpy", "strcspn", "strdup", "strlen", "strncmp", "strncpy",
        "strpbrk", "strrchr", "strspn", "strstr", "strtok_r", "__strncpy_chk", "wcscmp", "wcslen", "wcsstr",
        "wmemchr", "wmemcmp",
        // numbers
        "atoi", "atol", "nextafter", "qsort", "rand",
        // streams
        "clearerr", "feof", "ferror", "fileno", "fprintf", "getc", "getwc", "printf", "putchar", "puts",
        "setbuf", "snprintf", "sscanf", "swprintf", "ungetc", "ungetwc", "vfprintf", "vprintf", "vsnprintf",
        // times
        "gmtime", "gmtime_r", "localtime_r", "time",
        // the process
        "getegid", "getenv", "geteuid", "getgid", "getpid", "getuid", "pause", "sched_yield", "setenv",
        "setsid", "sleep"};
    return s_vecNames;
}
} // namespace Tables
