// The C library's streams. Mach-O code keeps a pointer to a stream, and never reads its members.

#include "tests/machrun/shims/Tables.h"

#include <cstdio>
#include <cwchar>

namespace Tables
{
const Shims& GetStreams()
{
    static const Shims s_vecShims{
        {"___stdinp", &stdin},
        {"___stdoutp", &stdout},
        {"___stderrp", &stderr},
        {"_fopen", WITH_ERRNO<&::fopen>},
        {"_fdopen", WITH_ERRNO<&::fdopen>},
        {"_fclose", WITH_ERRNO<&::fclose>},
        {"_fflush", WITH_ERRNO<&::fflush>},
        {"_fread", WITH_ERRNO<&::fread>},
        {"_fwrite", WITH_ERRNO<&::fwrite>},
        {"_fgets", WITH_ERRNO<&::fgets>},
        {"_fputs", WITH_ERRNO<&::fputs>},
        {"_fputc", WITH_ERRNO<&::fputc>},
        {"_fputwc", WITH_ERRNO<&::fputwc>},
        {"_fseek", WITH_ERRNO<&::fseek>},
        {"_fseeko", WITH_ERRNO<&::fseeko>},
        {"_ftell", WITH_ERRNO<&::ftell>},
        {"_ftello", WITH_ERRNO<&::ftello>},
    };
    return s_vecShims;
}
} // namespace Tables
