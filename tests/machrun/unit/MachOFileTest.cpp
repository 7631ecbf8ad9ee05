#include "tests/machrun/CLS_MachOFile.h"
#include "tests/machrun/unit/LibraryImage.h"
#include "tests/support/TempFolder.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using Bytes = CLS_LibraryImage::Bytes;

/// Returns why the file cannot be loaded; empty if it can.
std::string GetReason(const Bytes& _vecFile)
{
    const std::string strStart = "'lib' cannot be loaded: ";
    try
    {
        const CLS_MachOFile clsFile("lib", _vecFile);
        return "";
    }
    catch (const std::runtime_error& error)
    {
        const std::string strReason = error.what();
        EXPECT_EQ(0U, strReason.rfind(strStart, 0)) << strReason;
        return strReason.substr(strStart.size());
    }
}

std::string GetReason(const CLS_LibraryImage& _clsImage)
{
    return GetReason(_clsImage.Make());
}

/// A universal file with one slice, whose size is wrong by _uiExtraSize.
Bytes MakeUniversal(std::uint32_t _uiCpu, const Bytes& _vecSlice, std::uint32_t _uiExtraSize = 0)
{
    constexpr std::uint32_t OFFSET = 0x1000;
    Bytes vecFile;
    for (const std::uint32_t uiValue : {MachO::MAGIC_UNIVERSAL, 1U, _uiCpu, 3U, OFFSET,
                                        static_cast<std::uint32_t>(_vecSlice.size()) + _uiExtraSize, 12U})
    {
        for (int i = 24; i >= 0; i -= 8)
        {
            vecFile.push_back(static_cast<std::uint8_t>(uiValue >> i));
        }
    }
    vecFile.resize(OFFSET);
    vecFile.insert(vecFile.end(), _vecSlice.begin(), _vecSlice.end());
    return vecFile;
}

TEST(MachOFileTest, ReadsALibrary)
{
    const CLS_MachOFile clsFile("lib", CLS_LibraryImage().Make());
    EXPECT_EQ("lib", clsFile.GetPath());
    EXPECT_FALSE(clsFile.IsProgram());
    EXPECT_EQ(0U, clsFile.GetAddress());
    EXPECT_EQ(CLS_LibraryImage::SEGMENT_SIZE, clsFile.GetMemorySize());
    ASSERT_EQ(1U, clsFile.GetSegments().size());
    EXPECT_EQ("__DATA", clsFile.GetSegments()[0].m_strName);
    ASSERT_EQ(1U, clsFile.GetSections().size());
    EXPECT_EQ("__data", clsFile.GetSections()[0].m_strName);
    ASSERT_EQ(1U, clsFile.GetLibraries().size());
    EXPECT_EQ("/usr/lib/libSystem.B.dylib", clsFile.GetLibraries()[0].m_strName);
    EXPECT_FALSE(clsFile.GetLibraries()[0].m_bReexported);
}

TEST(MachOFileTest, ReadsTheSliceOfAUniversalFile)
{
    EXPECT_EQ("", GetReason(MakeUniversal(MachO::CPU_X86_64, CLS_LibraryImage().Make())));
}

TEST(MachOFileTest, EveryTruncationIsRefused)
{
    const Bytes vecFile = CLS_LibraryImage().Make();
    for (std::size_t uiSize = 0; uiSize < vecFile.size(); ++uiSize)
    {
        EXPECT_NE("",
                  GetReason(Bytes(vecFile.begin(), vecFile.begin() + static_cast<std::ptrdiff_t>(uiSize))))
            << uiSize << " bytes";
    }
}

TEST(MachOFileTest, AnyChangedByteIsSurvived)
{
    const Bytes vecFile = CLS_LibraryImage().Make();
    for (std::size_t i = 0; i < vecFile.size(); i = i == 0x200 ? CLS_LibraryImage::SEGMENT_SIZE : i + 1)
    {
        for (const int iByte : {0, 1, 0x7f, 0x80, 0xff})
        {
            Bytes vecChanged = vecFile;
            vecChanged[i] = static_cast<std::uint8_t>(iByte);
            GetReason(vecChanged);
        }
    }
}

TEST(MachOFileTest, OtherFilesAreRefused)
{
    EXPECT_EQ("it ends in the middle of a value", GetReason(Bytes()));
    EXPECT_EQ("it is not a 64-bit Mach-O file", GetReason(Bytes(5000, 'x')));
    CLS_LibraryImage clsImage;
    clsImage.m_stHeader.m_uiFileType = 1;
    EXPECT_EQ("it is neither a program nor a library", GetReason(clsImage));
}

TEST(MachOFileTest, OtherProcessorsAreRefused)
{
    CLS_LibraryImage clsImage;
    clsImage.m_stHeader.m_uiCpu = MachO::CPU_ARM64;
    EXPECT_EQ("it is for arm64, not for x86_64", GetReason(clsImage));
    clsImage.m_stHeader.m_uiCpu = 18;
    EXPECT_EQ("it is for processor 0x12, not for x86_64", GetReason(clsImage));
    EXPECT_EQ("no slice is for x86_64, only for arm64",
              GetReason(MakeUniversal(MachO::CPU_ARM64, CLS_LibraryImage().Make())));
    EXPECT_EQ("it has no slices", GetReason({0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 0}));
}

TEST(MachOFileTest, SlicePastTheEndIsRefused)
{
    EXPECT_EQ("a part runs past the end",
              GetReason(MakeUniversal(MachO::CPU_X86_64, CLS_LibraryImage().Make(), 1)));
}

TEST(MachOFileTest, ProgramWithAFixedAddressIsRefused)
{
    CLS_LibraryImage clsImage;
    clsImage.m_stHeader.m_uiFileType = MachO::FILE_PROGRAM;
    EXPECT_EQ("the program requires a fixed address", GetReason(clsImage));
    clsImage.m_stHeader.m_uiFlags = MachO::FLAG_ANY_ADDRESS;
    EXPECT_EQ("", GetReason(clsImage));
}

TEST(MachOFileTest, BadLoadCommandsAreRefused)
{
    CLS_LibraryImage clsShort;
    clsShort.AddCommand(0x1b, 7);
    EXPECT_EQ("load command 3 is too short", GetReason(clsShort));
    CLS_LibraryImage clsLong;
    clsLong.AddCommand(0x1b, 16);
    EXPECT_EQ("a part runs past the end", GetReason(clsLong));
    CLS_LibraryImage clsMany;
    clsMany.m_stHeader.m_uiCommands = 1;
    EXPECT_EQ("it ends in the middle of a value", GetReason(clsMany));
    CLS_LibraryImage clsAllPastEnd;
    clsAllPastEnd.m_stHeader.m_uiCommandsSize = 0x7fffffff;
    EXPECT_EQ("a part runs past the end", GetReason(clsAllPastEnd));
}

TEST(MachOFileTest, UnknownLoadCommandIsRefusedWhenItIsRequired)
{
    CLS_LibraryImage clsImage;
    clsImage.AddCommand(0x7f, 8);
    EXPECT_EQ("", GetReason(clsImage));
    CLS_LibraryImage clsRequired;
    clsRequired.AddCommand(0x80000034, 8);
    EXPECT_EQ("load command 0x80000034 is required, but unknown to this loader", GetReason(clsRequired));
}

TEST(MachOFileTest, BadSegmentsAreRefused)
{
    CLS_LibraryImage clsLarge;
    clsLarge.m_stSegment.m_uiFileSize = 0x1001;
    EXPECT_EQ("segment __DATA does not fit into memory", GetReason(clsLarge));
    CLS_LibraryImage clsWrapping;
    clsWrapping.m_stSegment.m_uiAddress = ~std::uint64_t{0};
    EXPECT_EQ("segment __DATA does not fit into memory", GetReason(clsWrapping));
    CLS_LibraryImage clsBehind;
    clsBehind.m_stSegment.m_uiFileOffset = 0x100;
    EXPECT_EQ("segment __DATA runs past the end of the file", GetReason(clsBehind));
    CLS_LibraryImage clsNone;
    clsNone.m_stSegment.m_uiProtection = 0;
    EXPECT_EQ("it has no segments", GetReason(clsNone));
    CLS_LibraryImage clsHuge;
    clsHuge.m_stSegment.m_uiMemorySize = std::uint64_t{1} << 40;
    EXPECT_EQ("its segments lie too far apart", GetReason(clsHuge));
}

TEST(MachOFileTest, BadSectionsAreRefused)
{
    CLS_LibraryImage clsOutside;
    clsOutside.m_stSection.m_uiSize = 0x1000;
    EXPECT_EQ("section __data lies outside of its segment", GetReason(clsOutside));
    CLS_LibraryImage clsMany;
    clsMany.m_stSegment.m_uiSections = 2;
    EXPECT_EQ("it ends in the middle of a value", GetReason(clsMany));
    CLS_LibraryImage clsOffsets;
    clsOffsets.m_stSection.m_uiFlags = MachO::SECTION_INITIALISER_OFFSETS;
    EXPECT_EQ("its initialisers are offsets, which this loader does not know", GetReason(clsOffsets));
}

TEST(MachOFileTest, SectionsThatAreNotInMemoryAreLeftOut)
{
    CLS_LibraryImage clsImage;
    clsImage.AddSegment(std::uint64_t{1} << 46, MachO::SECTION_THREAD_LOCAL_DESCRIPTORS);
    const CLS_MachOFile clsFile("lib", clsImage.Make());
    EXPECT_EQ(2U, clsFile.GetSegments().size());
    ASSERT_EQ(1U, clsFile.GetSections().size());
    EXPECT_EQ("__data", clsFile.GetSections()[0].m_strName);
}

TEST(MachOFileTest, NameOfALibraryOutsideOfItsCommandIsRefused)
{
    CLS_LibraryImage clsOutside;
    clsOutside.m_uiLibraryName = 1000;
    EXPECT_EQ("an offset leads past the end", GetReason(clsOutside));
}

TEST(MachOFileTest, FixupsPastTheEndAreRefused)
{
    CLS_LibraryImage clsImage;
    clsImage.m_uiExtraExports = 1;
    EXPECT_EQ("a part runs past the end", GetReason(clsImage));
}

TEST(MachOFileTest, FilesThatCannotBeReadAreNamed)
{
    const CLS_TempFolder clsFolder;
    const auto funGetReason = [](const std::string& _strPath) -> std::string
    {
        try
        {
            const CLS_MachOFile clsFile(_strPath);
            return "";
        }
        catch (const std::runtime_error& error)
        {
            return error.what();
        }
    };
    EXPECT_EQ("'/nowhere/lib' cannot be opened: No such file or directory", funGetReason("/nowhere/lib"));
    const std::string strText = clsFolder.GetPath("text");
    std::ofstream(strText) << "short";
    EXPECT_EQ("'" + strText + "' cannot be loaded: it ends in the middle of a value", funGetReason(strText));
    EXPECT_FALSE(CLS_MachOFile::IsMachO(strText));
    EXPECT_FALSE(CLS_MachOFile::IsMachO("/nowhere/lib"));
}
} // namespace
