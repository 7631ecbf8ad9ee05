#pragma once

#include <array>
#include <cstdint>

/// The parts of the Mach-O file format that the loader reads, as they lie in the file.
namespace MachO
{
constexpr std::uint32_t MAGIC_64 = 0xfeedfacf;
constexpr std::uint32_t MAGIC_UNIVERSAL = 0xcafebabe; ///< big-endian, as the whole header of such a file
constexpr std::uint32_t CPU_X86_64 = 0x01000007;
constexpr std::uint32_t CPU_ARM64 = 0x0100000c;

enum n_FileType : std::uint32_t
{
    FILE_PROGRAM = 2,
    FILE_LIBRARY = 6,
    FILE_BUNDLE = 8,
};

constexpr std::uint32_t FLAG_ANY_ADDRESS = 0x200000; ///< a program that may be loaded anywhere

struct ST_UniversalHeader
{
    std::uint32_t m_uiMagic;
    std::uint32_t m_uiSlices;
};

struct ST_UniversalSlice
{
    std::uint32_t m_uiCpu;
    std::uint32_t m_uiCpuSubtype;
    std::uint32_t m_uiOffset;
    std::uint32_t m_uiSize;
    std::uint32_t m_uiAlignment;
};

struct ST_Header
{
    std::uint32_t m_uiMagic;
    std::uint32_t m_uiCpu;
    std::uint32_t m_uiCpuSubtype;
    std::uint32_t m_uiFileType;
    std::uint32_t m_uiCommands;
    std::uint32_t m_uiCommandsSize;
    std::uint32_t m_uiFlags;
    std::uint32_t m_uiReserved;
};

/// A loader must refuse a file that contains an unknown command with this bit.
constexpr std::uint32_t COMMAND_REQUIRED = 0x80000000;

enum n_Command : std::uint32_t
{
    COMMAND_SYMBOLS = 0x2,
    COMMAND_LIBRARY = 0xc,
    COMMAND_INSTALL_NAME = 0xd,
    COMMAND_SEGMENT = 0x19,
    COMMAND_RUN_PATH = 0x1c | COMMAND_REQUIRED,
    COMMAND_REEXPORTED_LIBRARY = 0x1f | COMMAND_REQUIRED,
    COMMAND_FIXUPS = 0x22 | COMMAND_REQUIRED,
    COMMAND_MAIN = 0x28 | COMMAND_REQUIRED,
};

struct ST_Command
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
};

struct ST_SegmentCommand
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
    std::array<char, 16> m_arrName;
    std::uint64_t m_uiAddress;
    std::uint64_t m_uiMemorySize;
    std::uint64_t m_uiFileOffset;
    std::uint64_t m_uiFileSize;
    std::uint32_t m_uiMostProtection;
    std::uint32_t m_uiProtection;
    std::uint32_t m_uiSections;
    std::uint32_t m_uiFlags;
};

constexpr std::uint32_t SEGMENT_READ_ONLY_LATER = 0x10; ///< read-only after the fixups

constexpr std::uint32_t PROTECTION_READ = 1;
constexpr std::uint32_t PROTECTION_WRITE = 2;
constexpr std::uint32_t PROTECTION_EXECUTE = 4;

struct ST_SectionHeader
{
    std::array<char, 16> m_arrName;
    std::array<char, 16> m_arrSegment;
    std::uint64_t m_uiAddress;
    std::uint64_t m_uiSize;
    std::uint32_t m_uiFileOffset;
    std::uint32_t m_uiAlignment; ///< as a power of two
    std::uint32_t m_uiRelocations;
    std::uint32_t m_uiRelocationCount;
    std::uint32_t m_uiFlags; ///< the type in the lowest byte
    std::array<std::uint32_t, 3> m_arrReserved;
};

enum n_SectionType : std::uint32_t
{
    SECTION_INITIALISERS = 0x9,
    SECTION_THREAD_LOCAL_VALUES = 0x11,
    SECTION_THREAD_LOCAL_ZEROS = 0x12,
    SECTION_THREAD_LOCAL_DESCRIPTORS = 0x13,
    SECTION_INITIALISER_OFFSETS = 0x16,
};

/// The command for a library that is loaded with the file, and for the file's own install name.
struct ST_LibraryCommand
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
    std::uint32_t m_uiName; ///< the name's offset from the beginning of the command
    std::uint32_t m_uiTimestamp;
    std::uint32_t m_uiVersion;
    std::uint32_t m_uiCompatibility;
};

struct ST_RunPathCommand
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
    std::uint32_t m_uiPath; ///< the path's offset from the beginning of the command
};

struct ST_FixupsCommand
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
    std::uint32_t m_uiRebaseOffset;
    std::uint32_t m_uiRebaseSize;
    std::uint32_t m_uiBindOffset;
    std::uint32_t m_uiBindSize;
    std::uint32_t m_uiWeakBindOffset;
    std::uint32_t m_uiWeakBindSize;
    std::uint32_t m_uiLazyBindOffset;
    std::uint32_t m_uiLazyBindSize;
    std::uint32_t m_uiExportOffset;
    std::uint32_t m_uiExportSize;
};

struct ST_MainCommand
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
    std::uint64_t m_uiEntry; ///< offset from the header
    std::uint64_t m_uiStackSize;
};

struct ST_SymbolsCommand
{
    std::uint32_t m_uiCommand;
    std::uint32_t m_uiSize;
    std::uint32_t m_uiOffset;
    std::uint32_t m_uiCount;
    std::uint32_t m_uiTextsOffset;
    std::uint32_t m_uiTextsSize;
};

struct ST_Symbol
{
    std::uint32_t m_uiName; ///< the name's offset in the table of texts
    std::uint8_t m_uiType;
    std::uint8_t m_uiSection;
    std::uint16_t m_uiDescription;
    std::uint64_t m_uiAddress;
};

constexpr std::uint8_t SYMBOL_FOR_DEBUGGERS = 0xe0;
constexpr std::uint8_t SYMBOL_TYPE = 0x0e;
constexpr std::uint8_t SYMBOL_IN_SECTION = 0x0e;

/// Where a bound name is searched for, in addition to the libraries, which count from 1.
enum n_Ordinal : int
{
    ORDINAL_SELF = 0,
    ORDINAL_PROGRAM = -1,
    ORDINAL_ANYWHERE = -2,
    ORDINAL_WEAK = -3,
};

enum n_ExportFlag : std::uint64_t
{
    EXPORT_KIND = 3,
    EXPORT_ABSOLUTE = 2, ///< a kind: a number instead of a place in the image
    EXPORT_WEAK = 4,
    EXPORT_FROM_LIBRARY = 8,
    EXPORT_WITH_RESOLVER = 0x10,
};

/// The upper half of an opcode. The lower half is a small operand.
enum n_RebaseOpcode : std::uint8_t
{
    REBASE_END = 0x00,
    REBASE_SET_TYPE = 0x10,
    REBASE_SET_PLACE = 0x20,
    REBASE_ADVANCE = 0x30,
    REBASE_ADVANCE_POINTERS = 0x40,
    REBASE_REPEAT_SMALL = 0x50,
    REBASE_REPEAT = 0x60,
    REBASE_ONE_AND_ADVANCE = 0x70,
    REBASE_REPEAT_WITH_GAPS = 0x80,
};

enum n_BindOpcode : std::uint8_t
{
    BIND_END = 0x00,
    BIND_SET_SMALL_ORDINAL = 0x10,
    BIND_SET_ORDINAL = 0x20,
    BIND_SET_SPECIAL_ORDINAL = 0x30,
    BIND_SET_NAME = 0x40,
    BIND_SET_TYPE = 0x50,
    BIND_SET_ADDEND = 0x60,
    BIND_SET_PLACE = 0x70,
    BIND_ADVANCE = 0x80,
    BIND_ONE = 0x90,
    BIND_ONE_AND_ADVANCE = 0xa0,
    BIND_ONE_AND_ADVANCE_POINTERS = 0xb0,
    BIND_REPEAT_WITH_GAPS = 0xc0,
};

constexpr std::uint8_t BIND_MAY_BE_MISSING = 1; ///< flag of a name
constexpr std::uint8_t FIXUP_POINTER = 1;       ///< the only type of fixup on x86-64

/// The descriptor of a thread-local variable, whose function code calls. The loader sets all but the offset.
struct ST_ThreadLocalDescriptor
{
    void* (*m_funGet)(ST_ThreadLocalDescriptor*);
    const void* m_pImage;
    std::uint64_t m_uiOffset;
};
} // namespace MachO
