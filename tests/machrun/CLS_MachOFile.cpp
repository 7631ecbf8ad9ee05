#include "tests/machrun/CLS_MachOFile.h"

#include "tests/machrun/MachO.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <system_error>
#include <utility>

namespace
{
constexpr std::uint64_t PAGE_SIZE = 4096;

/// An image that is larger comes from a broken file.
constexpr std::uint64_t MOST_MEMORY = std::uint64_t{1} << 32;

std::vector<std::uint8_t> ReadFile(const std::string& _strPath)
{
    std::error_code errSize;
    const std::uintmax_t uiSize = std::filesystem::file_size(_strPath, errSize);
    std::ifstream fsFile(_strPath, std::ios::binary);
    if (errSize || !fsFile)
    {
        const std::error_code errOpen(errno, std::generic_category());
        throw std::runtime_error("cannot be opened: " + (errSize ? errSize : errOpen).message());
    }
    std::vector<std::uint8_t> vecFile(static_cast<std::size_t>(uiSize));
    if (!fsFile.read(reinterpret_cast<char*>(vecFile.data()), static_cast<std::streamsize>(uiSize)))
    {
        throw std::runtime_error("cannot be read");
    }
    return vecFile;
}

/// A text that fills the array, or that a zero terminates earlier.
std::string ToText(const std::array<char, 16>& _arrName)
{
    return {_arrName.data(), strnlen(_arrName.data(), _arrName.size())};
}

std::string ToHexadecimal(std::uint32_t _uiNumber)
{
    std::ostringstream ossText;
    ossText << "0x" << std::hex << _uiNumber;
    return ossText.str();
}

std::string GetCpuName(std::uint32_t _uiCpu)
{
    return _uiCpu == MachO::CPU_ARM64 ? "arm64" : "processor " + ToHexadecimal(_uiCpu);
}

std::uint64_t RoundUpToPage(std::uint64_t _uiSize)
{
    return (_uiSize + PAGE_SIZE - 1) / PAGE_SIZE * PAGE_SIZE;
}
} // namespace

CLS_MachOFile::CLS_MachOFile(const std::string& _strPath)
try : CLS_MachOFile(_strPath, ReadFile(_strPath))
{
}
catch (const std::runtime_error& error)
{
    const std::string strReason = error.what();
    const std::string strStart = "'" + _strPath + "' ";
    throw std::runtime_error(strReason.rfind(strStart, 0) == 0 ? strReason : strStart + strReason);
}

CLS_MachOFile::CLS_MachOFile(std::string _strPath, std::vector<std::uint8_t> _vecFile)
    : m_strPath(std::move(_strPath)), m_vecFile(std::move(_vecFile)),
      m_clsSlice(m_vecFile.data(), m_vecFile.size())
{
    try
    {
        ChooseSlice();
        ReadCommands();
        MeasureImage();
    }
    catch (const std::runtime_error& error)
    {
        throw std::runtime_error("'" + m_strPath + "' cannot be loaded: " + error.what());
    }
}

bool CLS_MachOFile::IsMachO(const std::string& _strPath)
{
    std::ifstream fsFile(_strPath, std::ios::binary);
    std::uint32_t uiMagic = 0;
    fsFile.read(reinterpret_cast<char*>(&uiMagic), sizeof(uiMagic));
    return fsFile && (uiMagic == MachO::MAGIC_64 || __builtin_bswap32(uiMagic) == MachO::MAGIC_UNIVERSAL);
}

void CLS_MachOFile::ChooseSlice()
{
    CLS_Bytes clsFile = m_clsSlice;
    const auto stHeader = clsFile.Read<MachO::ST_UniversalHeader>();
    if (__builtin_bswap32(stHeader.m_uiMagic) != MachO::MAGIC_UNIVERSAL)
    {
        return;
    }
    std::string strFound;
    for (std::uint32_t i = 0; i < __builtin_bswap32(stHeader.m_uiSlices); ++i)
    {
        const auto stSlice = clsFile.Read<MachO::ST_UniversalSlice>();
        const std::uint32_t uiCpu = __builtin_bswap32(stSlice.m_uiCpu);
        if (uiCpu == MachO::CPU_X86_64)
        {
            m_clsSlice = m_clsSlice.GetPart(__builtin_bswap32(stSlice.m_uiOffset),
                                            __builtin_bswap32(stSlice.m_uiSize));
            return;
        }
        strFound += (strFound.empty() ? "" : ", ") + GetCpuName(uiCpu);
    }
    throw std::runtime_error(strFound.empty() ? "it has no slices"
                                              : "no slice is for x86_64, only for " + strFound);
}

void CLS_MachOFile::ReadCommands()
{
    CLS_Bytes clsHeader = m_clsSlice;
    const auto stHeader = clsHeader.Read<MachO::ST_Header>();
    if (stHeader.m_uiMagic != MachO::MAGIC_64)
    {
        throw std::runtime_error("it is not a 64-bit Mach-O file");
    }
    if (stHeader.m_uiCpu != MachO::CPU_X86_64)
    {
        throw std::runtime_error("it is for " + GetCpuName(stHeader.m_uiCpu) + ", not for x86_64");
    }
    m_bProgram = stHeader.m_uiFileType == MachO::FILE_PROGRAM;
    if (m_bProgram && (stHeader.m_uiFlags & MachO::FLAG_ANY_ADDRESS) == 0)
    {
        throw std::runtime_error("the program requires a fixed address");
    }
    if (!m_bProgram && stHeader.m_uiFileType != MachO::FILE_LIBRARY &&
        stHeader.m_uiFileType != MachO::FILE_BUNDLE)
    {
        throw std::runtime_error("it is neither a program nor a library");
    }
    const CLS_Bytes clsCommands = m_clsSlice.GetPart(sizeof(stHeader), stHeader.m_uiCommandsSize);
    std::uint64_t uiOffset = 0;
    for (std::uint32_t i = 0; i < stHeader.m_uiCommands; ++i)
    {
        CLS_Bytes clsRest = clsCommands;
        clsRest.GoTo(uiOffset);
        const auto stCommand = clsRest.Read<MachO::ST_Command>();
        if (stCommand.m_uiSize < sizeof(stCommand))
        {
            throw std::runtime_error("load command " + std::to_string(i) + " is too short");
        }
        ReadCommand(clsCommands.GetPart(uiOffset, stCommand.m_uiSize), stCommand.m_uiCommand);
        uiOffset += stCommand.m_uiSize;
    }
}

void CLS_MachOFile::ReadCommand(CLS_Bytes _clsCommand, std::uint32_t _uiCommand)
{
    switch (_uiCommand)
    {
    case MachO::COMMAND_SEGMENT:
        return ReadSegment(_clsCommand);
    case MachO::COMMAND_LIBRARY:
    case MachO::COMMAND_REEXPORTED_LIBRARY:
        return ReadLibrary(_clsCommand, _uiCommand == MachO::COMMAND_REEXPORTED_LIBRARY);
    case MachO::COMMAND_RUN_PATH:
        _clsCommand.GoTo(CLS_Bytes(_clsCommand).Read<MachO::ST_RunPathCommand>().m_uiPath);
        m_vecRunPaths.emplace_back(_clsCommand.ReadText());
        return;
    case MachO::COMMAND_FIXUPS:
        return ReadFixups(_clsCommand);
    case MachO::COMMAND_MAIN:
        m_uiEntry = _clsCommand.Read<MachO::ST_MainCommand>().m_uiEntry;
        return;
    case MachO::COMMAND_SYMBOLS:
        return ReadSymbols(_clsCommand);
    default:
        if ((_uiCommand & MachO::COMMAND_REQUIRED) != 0)
        {
            throw std::runtime_error("load command " + ToHexadecimal(_uiCommand) +
                                     " is required, but unknown to this loader");
        }
    }
}

void CLS_MachOFile::ReadSegment(CLS_Bytes _clsCommand)
{
    const auto stCommand = _clsCommand.Read<MachO::ST_SegmentCommand>();
    const ST_Segment stSegment{ToText(stCommand.m_arrName),
                               stCommand.m_uiAddress,
                               stCommand.m_uiMemorySize,
                               stCommand.m_uiFileOffset,
                               stCommand.m_uiFileSize,
                               (stCommand.m_uiFlags & MachO::SEGMENT_READ_ONLY_LATER) != 0
                                   ? stCommand.m_uiProtection & ~MachO::PROTECTION_WRITE
                                   : stCommand.m_uiProtection};
    if (stSegment.m_uiMemorySize > std::numeric_limits<std::uint64_t>::max() - stSegment.m_uiAddress ||
        stSegment.m_uiFileSize > stSegment.m_uiMemorySize)
    {
        throw std::runtime_error("segment " + stSegment.m_strName + " does not fit into memory");
    }
    if (stSegment.m_uiFileOffset > m_clsSlice.GetSize() ||
        stSegment.m_uiFileSize > m_clsSlice.GetSize() - stSegment.m_uiFileOffset)
    {
        throw std::runtime_error("segment " + stSegment.m_strName + " runs past the end of the file");
    }
    m_vecSegments.push_back(stSegment);
    for (std::uint32_t i = 0; i < stCommand.m_uiSections; ++i)
    {
        ReadSection(_clsCommand, stSegment);
    }
}

void CLS_MachOFile::ReadSection(CLS_Bytes& _clsCommand, const ST_Segment& _stSegment)
{
    const auto stHeader = _clsCommand.Read<MachO::ST_SectionHeader>();
    const ST_Section stSection{ToText(stHeader.m_arrName), stHeader.m_uiAddress, stHeader.m_uiSize,
                               stHeader.m_uiFlags & 0xff};
    if (stSection.m_uiAddress < _stSegment.m_uiAddress ||
        stSection.m_uiAddress - _stSegment.m_uiAddress > _stSegment.m_uiMemorySize ||
        stSection.m_uiSize > _stSegment.m_uiMemorySize - (stSection.m_uiAddress - _stSegment.m_uiAddress))
    {
        throw std::runtime_error("section " + stSection.m_strName + " lies outside of its segment");
    }
    if (stSection.m_uiType == MachO::SECTION_INITIALISER_OFFSETS)
    {
        throw std::runtime_error("its initialisers are offsets, which this loader does not know");
    }
    if (!_stSegment.IsInMemory())
    {
        return;
    }
    m_vecSections.push_back(stSection);
    const bool bThreadLocal = stSection.m_uiType == MachO::SECTION_THREAD_LOCAL_VALUES ||
                              stSection.m_uiType == MachO::SECTION_THREAD_LOCAL_ZEROS;
    if (!bThreadLocal || stSection.m_uiSize == 0)
    {
        return;
    }
    // The sections lie one after the other and are one template.
    ST_ThreadLocalTemplate& stAll = m_stThreadLocals;
    const std::uint64_t uiEnd =
        std::max(stAll.m_uiAddress + stAll.m_uiSize, stSection.m_uiAddress + stSection.m_uiSize);
    stAll.m_uiAddress =
        stAll.m_uiSize == 0 ? stSection.m_uiAddress : std::min(stAll.m_uiAddress, stSection.m_uiAddress);
    stAll.m_uiSize = uiEnd - stAll.m_uiAddress;
    stAll.m_uiAlignment =
        std::max(stAll.m_uiAlignment, std::uint64_t{1} << std::min(stHeader.m_uiAlignment, 12U));
}

void CLS_MachOFile::ReadLibrary(CLS_Bytes _clsCommand, bool _bReexported)
{
    _clsCommand.GoTo(CLS_Bytes(_clsCommand).Read<MachO::ST_LibraryCommand>().m_uiName);
    m_vecLibraries.push_back({std::string(_clsCommand.ReadText()), _bReexported});
}

CLS_Bytes CLS_MachOFile::GetOptionalPart(std::uint64_t _uiOffset, std::uint64_t _uiSize) const
{
    return _uiSize == 0 ? CLS_Bytes() : m_clsSlice.GetPart(_uiOffset, _uiSize);
}

void CLS_MachOFile::ReadFixups(CLS_Bytes _clsCommand)
{
    const auto stFixups = _clsCommand.Read<MachO::ST_FixupsCommand>();
    m_clsRebases = GetOptionalPart(stFixups.m_uiRebaseOffset, stFixups.m_uiRebaseSize);
    m_clsBinds = GetOptionalPart(stFixups.m_uiBindOffset, stFixups.m_uiBindSize);
    m_clsWeakBinds = GetOptionalPart(stFixups.m_uiWeakBindOffset, stFixups.m_uiWeakBindSize);
    m_clsLazyBinds = GetOptionalPart(stFixups.m_uiLazyBindOffset, stFixups.m_uiLazyBindSize);
    m_clsExports = GetOptionalPart(stFixups.m_uiExportOffset, stFixups.m_uiExportSize);
}

void CLS_MachOFile::ReadSymbols(CLS_Bytes _clsCommand)
{
    const auto stSymbols = _clsCommand.Read<MachO::ST_SymbolsCommand>();
    m_clsSymbols =
        GetOptionalPart(stSymbols.m_uiOffset, std::uint64_t{stSymbols.m_uiCount} * sizeof(MachO::ST_Symbol));
    m_clsSymbolTexts = GetOptionalPart(stSymbols.m_uiTextsOffset, stSymbols.m_uiTextsSize);
    if (stSymbols.m_uiTextsSize != 0 && m_clsSymbolTexts.GetData()[stSymbols.m_uiTextsSize - 1] != 0)
    {
        throw std::runtime_error("the names of its symbols are not terminated");
    }
}

void CLS_MachOFile::MeasureImage()
{
    std::uint64_t uiFirst = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t uiEnd = 0;
    for (const ST_Segment& stSegment : m_vecSegments)
    {
        if (stSegment.IsInMemory())
        {
            uiFirst = std::min(uiFirst, stSegment.m_uiAddress);
            uiEnd = std::max(uiEnd, stSegment.m_uiAddress + stSegment.m_uiMemorySize);
        }
    }
    if (uiFirst >= uiEnd)
    {
        throw std::runtime_error("it has no segments");
    }
    if (uiEnd - uiFirst > MOST_MEMORY)
    {
        throw std::runtime_error("its segments lie too far apart");
    }
    m_uiAddress = uiFirst;
    m_uiMemorySize = RoundUpToPage(uiEnd - uiFirst);
    if (m_uiEntry >= m_uiMemorySize)
    {
        throw std::runtime_error("the program begins outside of its segments");
    }
}

std::string_view CLS_MachOFile::FindSymbol(std::uint64_t _uiAddress, std::uint64_t& _uiSymbol) const
{
    CLS_Bytes clsSymbols = m_clsSymbols;
    CLS_Bytes clsTexts = m_clsSymbolTexts;
    std::string_view strName;
    _uiSymbol = 0;
    while (!clsSymbols.IsAtEnd())
    {
        const auto stSymbol = clsSymbols.Read<MachO::ST_Symbol>();
        if ((stSymbol.m_uiType & MachO::SYMBOL_FOR_DEBUGGERS) == 0 &&
            (stSymbol.m_uiType & MachO::SYMBOL_TYPE) == MachO::SYMBOL_IN_SECTION &&
            stSymbol.m_uiAddress <= _uiAddress && stSymbol.m_uiAddress >= _uiSymbol &&
            stSymbol.m_uiName < clsTexts.GetSize())
        {
            clsTexts.GoTo(stSymbol.m_uiName);
            strName = clsTexts.ReadText();
            _uiSymbol = stSymbol.m_uiAddress;
        }
    }
    return strName;
}
