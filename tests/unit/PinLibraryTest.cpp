#include "QuenInclude/Util.h"
#include "tests/support/NextFunction.h"

#include <gtest/gtest.h>

namespace
{
bool s_bUnknown = false; ///< whether the loader knows no file of any address
bool s_bRefuses = false; ///< whether the loader finds no file
int s_iPins = 0;         ///< requests that keep a library loaded for good
} // namespace

// In front of the system's functions of the same names.
extern "C" int dladdr(const void* _pAddress, Dl_info* _pInfo) ZEL_TEST_NOEXCEPT
{
    static auto* const s_pFind = GetNextFunction<decltype(dladdr)>("dladdr");
    return s_bUnknown ? 0 : s_pFind(_pAddress, _pInfo);
}

extern "C" void* dlopen(const char* _szPath, int _iMode) ZEL_TEST_NOEXCEPT
{
    static auto* const s_pOpen = GetNextFunction<decltype(dlopen)>("dlopen");
    s_iPins += (_iMode & RTLD_NODELETE) != 0 ? 1 : 0;
    return s_pOpen(s_bRefuses ? "/no/such/library" : _szPath, _iMode);
}

namespace
{
TEST(PinLibraryTest, AsksTheLoaderOnceAndLeavesNoErrorBehind)
{
    s_iPins = 0;
    Util::PinLibrary();
    EXPECT_EQ(1, s_iPins);
    EXPECT_EQ(nullptr, dlerror());
}

TEST(PinLibraryTest, LeavesNoErrorBehindWhenTheLoaderRefuses)
{
    s_bRefuses = true;
    Util::PinLibrary();
    s_bRefuses = false;
    EXPECT_EQ(nullptr, dlerror());
}

TEST(PinLibraryTest, PinsNothingWhenTheLoaderDoesNotKnowWhereTheCodeStands)
{
    s_iPins = 0;
    s_bUnknown = true;
    Util::PinLibrary();
    s_bUnknown = false;
    EXPECT_EQ(0, s_iPins);
    EXPECT_EQ(nullptr, dlerror());
}
} // namespace
