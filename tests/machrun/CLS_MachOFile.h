#pragma once

#include "tests/machrun/CLS_Bytes.h"

#include <string>
#include <vector>

struct ST_Segment
{
    std::string m_strName;
    std::uint64_t m_uiAddress;
    std::uint64_t m_uiMemorySize;
    std::uint64_t m_uiFileOffset;
    std::uint64_t m_uiFileSize;
    std::uint32_t m_uiProtection; ///< after the fixups

    /// False for the segment that catches null pointers, which has no memory.
    bool IsInMemory() const { return m_uiProtection != 0 && m_uiMemorySize != 0; }
};

struct ST_Section
{
    std::string m_strName;
    std::uint64_t m_uiAddress;
    std::uint64_t m_uiSize;
    std::uint32_t m_uiType;
};

struct ST_LibraryNeed
{
    std::string m_strName; ///< as in the file, for example @rpath/libX.dylib
    bool m_bReexported;    ///< whether its names count as names of this file
};

/// The initial values of a file's thread-local variables.
struct ST_ThreadLocalTemplate
{
    std::uint64_t m_uiAddress = 0;
    std::uint64_t m_uiSize = 0; ///< zero if there are none
    std::uint64_t m_uiAlignment = 16;
};

/// The contents of the load commands of a Mach-O file for x86-64.
///
/// It is a program, a library or a bundle, and may be a slice of a universal file. Every part lies within the
/// file, and every segment within the image. Addresses are those in the file.
///
/// Threads: any. The object does not change after its construction.
///
/// Fails: the constructors throw std::runtime_error with the path and the reason, in these cases:
/// - the file cannot be read;
/// - it is not such a file, or contradicts itself;
/// - it needs a feature that the loader does not have.
class CLS_MachOFile
{
public:
    explicit CLS_MachOFile(const std::string& _strPath);
    CLS_MachOFile(std::string _strPath, std::vector<std::uint8_t> _vecFile);
    CLS_MachOFile(const CLS_MachOFile&) = delete;
    CLS_MachOFile& operator=(const CLS_MachOFile&) = delete;
    ~CLS_MachOFile() = default;

    /// Whether the file begins with the number of such a file. False if it cannot be read.
    static bool IsMachO(const std::string& _strPath);

    const std::string& GetPath() const { return m_strPath; }
    const std::vector<ST_Segment>& GetSegments() const { return m_vecSegments; }
    /// The sections of segments that are in memory.
    const std::vector<ST_Section>& GetSections() const { return m_vecSections; }
    const std::vector<ST_LibraryNeed>& GetLibraries() const { return m_vecLibraries; }
    const std::vector<std::string>& GetRunPaths() const { return m_vecRunPaths; }
    const ST_ThreadLocalTemplate& GetThreadLocals() const { return m_stThreadLocals; }
    /// The x86-64 slice.
    const CLS_Bytes& GetBytes() const { return m_clsSlice; }
    /// The address of the first byte of the file.
    std::uint64_t GetAddress() const { return m_uiAddress; }
    std::uint64_t GetMemorySize() const { return m_uiMemorySize; }
    bool IsProgram() const { return m_bProgram; }
    /// The offset of the program's entry point from the first byte; zero if there is none.
    std::uint64_t GetEntry() const { return m_uiEntry; }

    const CLS_Bytes& GetRebases() const { return m_clsRebases; }
    const CLS_Bytes& GetBinds() const { return m_clsBinds; }
    const CLS_Bytes& GetWeakBinds() const { return m_clsWeakBinds; }
    const CLS_Bytes& GetLazyBinds() const { return m_clsLazyBinds; }
    const CLS_Bytes& GetExports() const { return m_clsExports; }

    /// The name of the last symbol that begins at or before this address; empty if there is none.
    ///
    /// _uiSymbol becomes the symbol's address. The name is a part of the file, and a zero terminates it.
    std::string_view FindSymbol(std::uint64_t _uiAddress, std::uint64_t& _uiSymbol) const;

private:
    void ChooseSlice();
    void ReadCommands();
    void ReadCommand(CLS_Bytes _clsCommand, std::uint32_t _uiCommand);
    void ReadSegment(CLS_Bytes _clsCommand);
    void ReadSection(CLS_Bytes& _clsCommand, const ST_Segment& _stSegment);
    void ReadLibrary(CLS_Bytes _clsCommand, bool _bReexported);
    void ReadFixups(CLS_Bytes _clsCommand);
    void ReadSymbols(CLS_Bytes _clsCommand);
    void MeasureImage();
    CLS_Bytes GetOptionalPart(std::uint64_t _uiOffset, std::uint64_t _uiSize) const;

    std::string m_strPath;
    std::vector<std::uint8_t> m_vecFile;
    CLS_Bytes m_clsSlice;
    std::vector<ST_Segment> m_vecSegments;
    std::vector<ST_Section> m_vecSections;
    std::vector<ST_LibraryNeed> m_vecLibraries;
    std::vector<std::string> m_vecRunPaths;
    ST_ThreadLocalTemplate m_stThreadLocals;
    std::uint64_t m_uiAddress = 0;
    std::uint64_t m_uiMemorySize = 0;
    bool m_bProgram = false;
    std::uint64_t m_uiEntry = 0;
    CLS_Bytes m_clsRebases;
    CLS_Bytes m_clsBinds;
    CLS_Bytes m_clsWeakBinds;
    CLS_Bytes m_clsLazyBinds;
    CLS_Bytes m_clsExports;
    CLS_Bytes m_clsSymbols;
    CLS_Bytes m_clsSymbolTexts;
};
