#include "tests/machrun/Fixups.h"

#include "tests/machrun/unit/LibraryImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using Bytes = CLS_LibraryImage::Bytes;
using ::testing::ElementsAre;

std::vector<std::uint64_t> GetRebases(const Bytes& _vecOpcodes)
{
    CLS_LibraryImage clsImage;
    clsImage.m_vecRebases = _vecOpcodes;
    const CLS_MachOFile clsFile("lib", clsImage.Make());
    std::vector<std::uint64_t> vecPlaces;
    Fixups::ForEachRebase(clsFile, [&](std::uint64_t _uiAddress) { vecPlaces.push_back(_uiAddress); });
    return vecPlaces;
}

/// Each bind as a text.
std::vector<std::string> GetBinds(const Bytes& _vecOpcodes)
{
    CLS_LibraryImage clsImage;
    clsImage.m_vecBinds = _vecOpcodes;
    const CLS_MachOFile clsFile("lib", clsImage.Make());
    std::vector<std::string> vecBinds;
    Fixups::ForEachBind(clsFile, Fixups::KIND_NORMAL,
                        [&](const ST_Bind& _stBind)
                        {
                            vecBinds.push_back(std::to_string(_stBind.m_uiAddress) + " " +
                                               std::string(_stBind.m_strName) + " " +
                                               std::to_string(_stBind.m_iOrdinal) + " " +
                                               std::to_string(_stBind.m_iAddend) +
                                               (_stBind.m_bMayBeMissing ? " or null" : ""));
                        });
    return vecBinds;
}

template <typename T_Fun>
std::string GetReason(T_Fun _funCall)
{
    try
    {
        _funCall();
        return "";
    }
    catch (const std::runtime_error& error)
    {
        return error.what();
    }
}

std::string GetRebaseReason(const Bytes& _vecOpcodes)
{
    return GetReason([&] { GetRebases(_vecOpcodes); });
}

std::string GetBindReason(const Bytes& _vecOpcodes)
{
    return GetReason([&] { GetBinds(_vecOpcodes); });
}

TEST(FixupsTest, RebasesAreRepeatedAndAdvanced)
{
    EXPECT_THAT(GetRebases({0x11, 0x20, 0x10, 0x52, 0}), ElementsAre(16, 24));
    EXPECT_THAT(GetRebases({0x20, 0x10, 0x30, 0x08, 0x60, 0x02, 0x51}), ElementsAre(24, 32, 40));
    EXPECT_THAT(GetRebases({0x20, 0x00, 0x42, 0x70, 0x10, 0x51}), ElementsAre(16, 40));
    EXPECT_THAT(GetRebases({0x20, 0x00, 0x80, 0x02, 0x08, 0x51}), ElementsAre(0, 16, 32));
}

TEST(FixupsTest, BadRebasesAreRefused)
{
    EXPECT_EQ("the fixup opcode 144 is unknown", GetRebaseReason({0x90}));
    EXPECT_EQ("fixups of type 2 are unknown", GetRebaseReason({0x12}));
    EXPECT_EQ("a fixup is in segment 1, which does not exist", GetRebaseReason({0x21, 0x00}));
    EXPECT_EQ("it ends in the middle of a value", GetRebaseReason({0x20}));
    EXPECT_EQ("it ends in the middle of a value", GetRebaseReason({0x20, 0x80}));
    EXPECT_EQ("a fixup lies outside of the image", GetRebaseReason({0x20, 0xf9, 0x1f, 0x51}));
    EXPECT_EQ("a fixup lies outside of the image", GetRebaseReason({0x20, 0xf8, 0x1f, 0x52}));
    EXPECT_EQ("a fixup is repeated at one place",
              GetRebaseReason(
                  {0x20, 0x10, 0x80, 0x02, 0xf8, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x01}));
    EXPECT_EQ("a number has more than 64 bits",
              GetRebaseReason({0x20, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}));
}

TEST(FixupsTest, PlacesAtTheEndOfTheImageAreInside)
{
    EXPECT_THAT(GetRebases({0x20, 0xf8, 0x1f, 0x51}), ElementsAre(0xff8));
}

TEST(FixupsTest, ABindKeepsTheValuesSetBefore)
{
    EXPECT_THAT(GetBinds({0x11, 0x40, 'a', 0, 0x51, 0x70, 0x10, 0x90, 0x41, 'b', 0, 0x60, 0x7e, 0x90, 0}),
                ElementsAre("16 a 1 0", "24 b 1 -2 or null"));
    EXPECT_THAT(GetBinds({0x20, 0x81, 0x01, 0x40, 'a', 0, 0x70, 0x00, 0xa0, 0x08, 0xb1, 0x90}),
                ElementsAre("0 a 129 0", "16 a 129 0", "32 a 129 0"));
    EXPECT_THAT(GetBinds({0x3e, 0x40, 'a', 0, 0x70, 0x00, 0xc0, 0x02, 0x08, 0x80, 0x08, 0x30, 0x90}),
                ElementsAre("0 a -2 0", "16 a -2 0", "40 a 0 0"));
}

TEST(FixupsTest, BadBindsAreRefused)
{
    EXPECT_EQ("the fixup opcode 209 is unknown", GetBindReason({0xd1}));
    EXPECT_EQ("fixups of type 3 are unknown", GetBindReason({0x53}));
    EXPECT_EQ("a fixup is in segment 15, which does not exist", GetBindReason({0x7f, 0x00}));
    EXPECT_EQ("a text is not terminated", GetBindReason({0x40, 'a'}));
    EXPECT_EQ("a fixup lies outside of the image", GetBindReason({0x40, 'a', 0, 0x70, 0x80, 0x20, 0x90}));
}
} // namespace
