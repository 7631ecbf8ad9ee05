#pragma once

#include <dlfcn.h>
#include <string>

// As the system declares its functions.
#ifdef __GLIBC__
#define ZEL_TEST_NOEXCEPT noexcept
#else
#define ZEL_TEST_NOEXCEPT
#endif

/// The function of the system that a program's own function of the same name stands in front of. A
/// sanitizer's stand-in counts as the system's, where one is linked into the program.
template <typename T_Fun>
T_Fun* GetNextFunction(const std::string& _strName)
{
    void* const pSanitizers = dlsym(RTLD_DEFAULT, ("__interceptor_" + _strName).c_str());
    return reinterpret_cast<T_Fun*>(pSanitizers != nullptr ? pSanitizers
                                                           : dlsym(RTLD_NEXT, _strName.c_str()));
}
