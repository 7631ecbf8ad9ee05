// The parts of the Mach-O file format that machrun reads, in our own words.
#pragma once
#include <cstdint>

namespace macho
{

constexpr uint32_t MAGIC_64 = 0xfeedfacf;
constexpr uint32_t FAT_MAGIC_SWAPPED = 0xbebafeca; // big-endian 0xcafebabe read on a little-endian machine
constexpr uint32_t FAT_MAGIC_64_SWAPPED = 0xbfbafeca;
constexpr uint32_t CPU_X86_64 = 0x01000007;

enum FileType : uint32_t
{
    MH_EXECUTE = 2,
    MH_DYLIB = 6,
    MH_BUNDLE = 8
};
enum HeaderFlags : uint32_t
{
    MH_TWOLEVEL = 0x80,
    MH_WEAK_DEFINES = 0x8000,
    MH_BINDS_TO_WEAK = 0x10000,
    MH_PIE = 0x200000,
};

struct Header
{
    uint32_t magic, cputype, cpusubtype, filetype, ncmds, sizeofcmds, flags, reserved;
};

struct LoadCommand
{
    uint32_t cmd, cmdsize;
};

constexpr uint32_t REQ_DYLD = 0x80000000;
enum Command : uint32_t
{
    LC_SYMTAB = 0x2,
    LC_UNIXTHREAD = 0x5,
    LC_DYSYMTAB = 0xb,
    LC_LOAD_DYLIB = 0xc,
    LC_ID_DYLIB = 0xd,
    LC_LOAD_WEAK_DYLIB = 0x18 | REQ_DYLD,
    LC_SEGMENT_64 = 0x19,
    LC_RPATH = 0x1c | REQ_DYLD,
    LC_REEXPORT_DYLIB = 0x1f | REQ_DYLD,
    LC_LAZY_LOAD_DYLIB = 0x20,
    LC_DYLD_INFO = 0x22,
    LC_DYLD_INFO_ONLY = 0x22 | REQ_DYLD,
    LC_LOAD_UPWARD_DYLIB = 0x23 | REQ_DYLD,
    LC_VERSION_MIN_MACOSX = 0x24,
    LC_MAIN = 0x28 | REQ_DYLD,
    LC_BUILD_VERSION = 0x32,
    LC_DYLD_EXPORTS_TRIE = 0x33 | REQ_DYLD,
    LC_DYLD_CHAINED_FIXUPS = 0x34 | REQ_DYLD,
};

struct SegmentCommand
{
    uint32_t cmd, cmdsize;
    char segname[16];
    uint64_t vmaddr, vmsize, fileoff, filesize;
    uint32_t maxprot, initprot, nsects, flags;
};

struct SectionHeader
{
    char sectname[16], segname[16];
    uint64_t addr, size;
    uint32_t offset, align, reloff, nreloc, flags, reserved1, reserved2, reserved3;
};

enum SectionType : uint32_t
{
    S_ZEROFILL = 0x1,
    S_MOD_INIT_FUNC_POINTERS = 0x9,
    S_MOD_TERM_FUNC_POINTERS = 0xa,
    S_GB_ZEROFILL = 0xc,
    S_THREAD_LOCAL_REGULAR = 0x11,
    S_THREAD_LOCAL_ZEROFILL = 0x12,
    S_THREAD_LOCAL_VARIABLES = 0x13,
    S_INIT_FUNC_OFFSETS = 0x16,
};

struct DylibCommand
{
    uint32_t cmd, cmdsize, name, timestamp, current_version, compatibility_version;
};
struct RpathCommand
{
    uint32_t cmd, cmdsize, path;
};
struct DyldInfoCommand
{
    uint32_t cmd, cmdsize, rebase_off, rebase_size, bind_off, bind_size, weak_bind_off, weak_bind_size,
        lazy_bind_off, lazy_bind_size, export_off, export_size;
};
struct LinkeditDataCommand
{
    uint32_t cmd, cmdsize, dataoff, datasize;
};
struct MainCommand
{
    uint32_t cmd, cmdsize;
    uint64_t entryoff, stacksize;
};
struct SymtabCommand
{
    uint32_t cmd, cmdsize, symoff, nsyms, stroff, strsize;
};
struct BuildVersionCommand
{
    uint32_t cmd, cmdsize, platform, minos, sdk, ntools;
};
struct Nlist64
{
    uint32_t n_strx;
    uint8_t n_type, n_sect;
    uint16_t n_desc;
    uint64_t n_value;
};
constexpr uint8_t N_STAB = 0xe0, N_TYPE = 0x0e, N_SECT = 0x0e, N_EXT = 0x01;

struct FatHeader
{
    uint32_t magic, nfat_arch;
};
struct FatArch
{
    uint32_t cputype, cpusubtype, offset, size, align;
};
struct FatArch64
{
    uint32_t cputype, cpusubtype;
    uint64_t offset, size;
    uint32_t align, reserved;
};

// Library ordinals of two-level binds.
constexpr int ORDINAL_SELF = 0, ORDINAL_MAIN = -1, ORDINAL_FLAT = -2, ORDINAL_WEAK = -3;

enum ExportFlags : uint64_t
{
    EXPORT_KIND_MASK = 3,
    EXPORT_KIND_ABSOLUTE = 2,
    EXPORT_WEAK = 4,
    EXPORT_REEXPORT = 8,
    EXPORT_STUB_AND_RESOLVER = 0x10,
};

enum RebaseOp : uint8_t
{
    REBASE_DONE = 0x00,
    REBASE_SET_TYPE = 0x10,
    REBASE_SET_SEGMENT = 0x20,
    REBASE_ADD_ULEB = 0x30,
    REBASE_ADD_SCALED = 0x40,
    REBASE_DO_TIMES = 0x50,
    REBASE_DO_ULEB_TIMES = 0x60,
    REBASE_DO_ADD_ULEB = 0x70,
    REBASE_DO_ULEB_TIMES_SKIP = 0x80,
};
enum BindOp : uint8_t
{
    BIND_DONE = 0x00,
    BIND_ORDINAL_IMM = 0x10,
    BIND_ORDINAL_ULEB = 0x20,
    BIND_ORDINAL_SPECIAL = 0x30,
    BIND_SYMBOL = 0x40,
    BIND_TYPE = 0x50,
    BIND_ADDEND = 0x60,
    BIND_SEGMENT = 0x70,
    BIND_ADD_ADDR = 0x80,
    BIND_DO = 0x90,
    BIND_DO_ADD_ADDR = 0xa0,
    BIND_DO_ADD_SCALED = 0xb0,
    BIND_DO_ULEB_TIMES_SKIP = 0xc0,
};
constexpr uint8_t BIND_FLAG_WEAK_IMPORT = 1, BIND_FLAG_STRONG_DEFINITION = 8;
constexpr uint8_t TYPE_POINTER = 1;

struct ChainedHeader
{
    uint32_t version, starts_offset, imports_offset, symbols_offset, imports_count, imports_format,
        symbols_format;
};
struct ChainedStartsInSegment
{
    uint32_t size;
    uint16_t page_size, pointer_format;
    uint64_t segment_offset;
    uint32_t max_valid_pointer;
    uint16_t page_count;
    uint16_t page_start[1];
} __attribute__((packed));

struct TlvDescriptor
{
    void* (*thunk)(TlvDescriptor*);
    unsigned long key;
    unsigned long offset;
};

} // namespace macho
