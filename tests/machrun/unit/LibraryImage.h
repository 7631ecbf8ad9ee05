#pragma once

#include "tests/machrun/MachO.h"

#include <cstring>
#include <string>
#include <vector>

/// The bytes of a small, correct library for macOS.
///
/// It has one segment with one section, an export "_answer", a pointer to itself, and a pointer to "_malloc"
/// of the system's library. A test corrupts a part, and then makes the file.
class CLS_LibraryImage
{
public:
    using Bytes = std::vector<std::uint8_t>;

    static constexpr std::uint64_t SEGMENT_SIZE = 0x1000;
    static constexpr std::uint64_t FIRST_POINTER = 0xf00;
    static constexpr std::uint64_t CODE = 0x800;

    CLS_LibraryImage()
    {
        m_stHeader = {MachO::MAGIC_64, MachO::CPU_X86_64, 3, MachO::FILE_LIBRARY, 0, 0, 0, 0};
        std::memcpy(m_stSegment.m_arrName.data(), "__DATA", 6);
        std::memcpy(m_stSection.m_arrName.data(), "__data", 6);
    }

    /// Makes the file from the parts.
    Bytes Make() const
    {
        Bytes vecCommands;
        Append(vecCommands, m_stSegment);
        Append(vecCommands, m_stSection);
        AppendLibrary(vecCommands);
        AppendFixups(vecCommands);
        Append(vecCommands, m_vecMoreCommands);
        MachO::ST_Header stHeader = m_stHeader;
        stHeader.m_uiCommands += 3 + (m_vecMoreCommands.empty() ? 0 : 1);
        stHeader.m_uiCommandsSize += static_cast<std::uint32_t>(vecCommands.size());
        Bytes vecFile;
        Append(vecFile, stHeader);
        Append(vecFile, vecCommands);
        vecFile.resize(CODE);
        Append(vecFile, m_vecCode);
        vecFile.resize(SEGMENT_SIZE);
        for (const Bytes* const pPart : {&m_vecRebases, &m_vecBinds, &m_vecExports})
        {
            Append(vecFile, *pPart);
        }
        return vecFile;
    }

    /// Adds a load command. The file contains only its head.
    void AddCommand(std::uint32_t _uiCommand, std::uint32_t _uiSize)
    {
        Append(m_vecMoreCommands, MachO::ST_Command{_uiCommand, _uiSize});
    }

    /// Adds a segment without any access rights, with one section.
    void AddSegment(std::uint64_t _uiAddress, std::uint32_t _uiSectionType)
    {
        MachO::ST_SegmentCommand stSegment = m_stSegment;
        stSegment.m_uiAddress = _uiAddress;
        stSegment.m_uiFileSize = 0;
        stSegment.m_uiProtection = 0;
        Append(m_vecMoreCommands, stSegment);
        MachO::ST_SectionHeader stSection = m_stSection;
        stSection.m_uiAddress = _uiAddress;
        stSection.m_uiFlags = _uiSectionType;
        Append(m_vecMoreCommands, stSection);
    }

    /// Turns it into a program that exits with the status.
    void MakeProgram(std::uint8_t _uiStatus)
    {
        m_stHeader.m_uiFileType = MachO::FILE_PROGRAM;
        m_stHeader.m_uiFlags = MachO::FLAG_ANY_ADDRESS;
        m_stSegment.m_uiProtection =
            MachO::PROTECTION_READ | MachO::PROTECTION_WRITE | MachO::PROTECTION_EXECUTE;
        m_vecCode = {0xb8, _uiStatus, 0, 0, 0, 0xc3}; // mov eax, status; ret
        Append(m_vecMoreCommands,
               MachO::ST_MainCommand{MachO::COMMAND_MAIN, sizeof(MachO::ST_MainCommand), CODE, 0});
    }

    static Bytes ToBytes(const std::string& _strText) { return {_strText.begin(), _strText.end()}; }

    MachO::ST_Header m_stHeader{};
    MachO::ST_SegmentCommand m_stSegment{MachO::COMMAND_SEGMENT,
                                         sizeof(MachO::ST_SegmentCommand) + sizeof(MachO::ST_SectionHeader),
                                         {},
                                         0,
                                         SEGMENT_SIZE,
                                         0,
                                         SEGMENT_SIZE,
                                         3,
                                         3,
                                         1,
                                         0};
    MachO::ST_SectionHeader m_stSection{{}, {}, FIRST_POINTER, 0x20, 0, 3, 0, 0, 0, {}};
    std::string m_strLibrary = "/usr/lib/libSystem.B.dylib";
    bool m_bReexported = false;
    std::uint32_t m_uiLibraryName = sizeof(MachO::ST_LibraryCommand);
    Bytes m_vecRebases{0x11, 0x20, 0x80, 0x1e, 0x51, 0};
    Bytes m_vecBinds = ToBytes(std::string("\x11\x51\x40_malloc\0\x70\x88\x1e\x90\0", 16));
    /// A root with one edge to a node without flags, whose place is the first pointer.
    Bytes m_vecExports = ToBytes(std::string("\0\1_answer\0\x0b\x03\0\x80\x1e\0", 16));
    std::uint32_t m_uiExtraExports = 0; ///< added to the size of the exports in the command
    Bytes m_vecMoreCommands;
    Bytes m_vecCode;

private:
    template <typename T_Part>
    static void Append(Bytes& _vecBytes, const T_Part& _stPart)
    {
        const auto* const pStart = reinterpret_cast<const std::uint8_t*>(&_stPart);
        _vecBytes.insert(_vecBytes.end(), pStart, pStart + sizeof(_stPart));
    }

    static void Append(Bytes& _vecBytes, const Bytes& _vecPart)
    {
        _vecBytes.insert(_vecBytes.end(), _vecPart.begin(), _vecPart.end());
    }

    void AppendLibrary(Bytes& _vecCommands) const
    {
        const std::size_t uiSize = (sizeof(MachO::ST_LibraryCommand) + m_strLibrary.size() + 8) / 8 * 8;
        Append(_vecCommands, MachO::ST_LibraryCommand{
                                 m_bReexported ? MachO::COMMAND_REEXPORTED_LIBRARY : MachO::COMMAND_LIBRARY,
                                 static_cast<std::uint32_t>(uiSize), m_uiLibraryName, 0, 0, 0});
        Bytes vecName = ToBytes(m_strLibrary);
        vecName.resize(uiSize - sizeof(MachO::ST_LibraryCommand));
        Append(_vecCommands, vecName);
    }

    /// The fixups come after the segment, in the order of their kinds.
    void AppendFixups(Bytes& _vecCommands) const
    {
        const auto uiRebases = static_cast<std::uint32_t>(SEGMENT_SIZE);
        const auto uiBinds = uiRebases + static_cast<std::uint32_t>(m_vecRebases.size());
        const auto uiExports = uiBinds + static_cast<std::uint32_t>(m_vecBinds.size());
        MachO::ST_FixupsCommand stFixups{};
        stFixups.m_uiCommand = MachO::COMMAND_FIXUPS;
        stFixups.m_uiSize = sizeof(stFixups);
        stFixups.m_uiRebaseOffset = uiRebases;
        stFixups.m_uiRebaseSize = static_cast<std::uint32_t>(m_vecRebases.size());
        stFixups.m_uiBindOffset = uiBinds;
        stFixups.m_uiBindSize = static_cast<std::uint32_t>(m_vecBinds.size());
        stFixups.m_uiExportOffset = uiExports;
        stFixups.m_uiExportSize = static_cast<std::uint32_t>(m_vecExports.size()) + m_uiExtraExports;
        Append(_vecCommands, stFixups);
    }
};
