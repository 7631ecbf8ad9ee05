#pragma once

#include <dlfcn.h>
#include <string>

// The declaration of the system's function.
#ifdef __GLIBC__
#define ZEL_TEST_NOEXCEPT noexcept
#else
#define ZEL_TEST_NOEXCEPT
#endif

/// The system's function that a program replaces with its own of the same name. If a sanitizer's replacement
/// is linked into the program, that one.
template <typename T_Fun>
T_Fun* GetNextFunction(const std::string& _strName)
{
    void* const pSanitizers = dlsym(RTLD_DEFAULT, ("__interceptor_" + _strName).c_str());
    return reinterpret_cast<T_Fun*>(pSanitizers != nullptr ? pSanitizers
                                                           : dlsym(RTLD_NEXT, _strName.c_str()));
}
