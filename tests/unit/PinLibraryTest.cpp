#include "QuenInclude/Util.h"
#include "tests/support/NextFunction.h"

#include <gtest/gtest.h>

namespace
{
bool g_bUnknown = false; ///< whether the loader finds no file for any address
bool g_bRefuses = false; ///< whether the loader cannot open a file
int g_iPins = 0;         ///< requests that pin a library for the life of the process
} // namespace

// These replace the system's functions of the same names.
extern "C" int dladdr(const void* _pAddress, Dl_info* _pInfo) ZEL_TEST_NOEXCEPT
{
    static auto* const s_pFind = GetNextFunction<decltype(dladdr)>("dladdr");
    return g_bUnknown ? 0 : s_pFind(_pAddress, _pInfo);
}

extern "C" void* dlopen(const char* _szPath, int _iMode) ZEL_TEST_NOEXCEPT
{
    static auto* const s_pOpen = GetNextFunction<decltype(dlopen)>("dlopen");
    g_iPins += (_iMode & RTLD_NODELETE) != 0 ? 1 : 0;
    return s_pOpen(g_bRefuses ? "/no/such/library" : _szPath, _iMode);
}

namespace
{
TEST(PinLibraryTest, AsksTheLoaderOnceAndLeavesNoErrorBehind)
{
    g_iPins = 0;
    Util::PinLibrary();
    EXPECT_EQ(1, g_iPins);
    EXPECT_EQ(nullptr, dlerror());
}

TEST(PinLibraryTest, LeavesNoErrorBehindWhenTheLoaderRefuses)
{
    g_bRefuses = true;
    Util::PinLibrary();
    g_bRefuses = false;
    EXPECT_EQ(nullptr, dlerror());
}

TEST(PinLibraryTest, PinsNothingWhenTheLoaderDoesNotKnowTheCodesFile)
{
    g_iPins = 0;
    g_bUnknown = true;
    Util::PinLibrary();
    g_bUnknown = false;
    EXPECT_EQ(0, g_iPins);
    EXPECT_EQ(nullptr, dlerror());
}
} // namespace
