"""Reads the parts of a macOS library that a loader uses: load commands, imports, exports, fixups, signature."""
import hashlib
import struct
from collections import namedtuple

MAGIC_FAT = 0xCAFEBABE
MAGIC_64 = 0xFEEDFACF
CPU_TYPES = {"x86_64": 0x01000007, "arm64": 0x0100000C}

TYPE_DYLIB = 6
FLAG_NO_UNDEFINED = 0x1
FLAG_TWO_LEVEL = 0x80
FLAG_THREAD_LOCAL = 0x800000

LC_SYMTAB = 0x2
LC_LOAD_DYLIB = 0xC
LC_ID_DYLIB = 0xD
LC_SEGMENT_64 = 0x19
LC_UUID = 0x1B
LC_CODE_SIGNATURE = 0x1D
LC_LAZY_LOAD_DYLIB = 0x20
LC_DYLD_INFO = 0x22
LC_VERSION_MIN_MACOSX = 0x24
LC_BUILD_VERSION = 0x32
LC_LOAD_WEAK_DYLIB = 0x80000018
LC_RPATH = 0x8000001C
LC_REEXPORT_DYLIB = 0x8000001F
LC_DYLD_INFO_ONLY = 0x80000022
LC_LOAD_UPWARD_DYLIB = 0x80000023
LC_DYLD_EXPORTS_TRIE = 0x80000033
LC_DYLD_CHAINED_FIXUPS = 0x80000034
LOADS = (LC_LOAD_DYLIB, LC_LAZY_LOAD_DYLIB, LC_LOAD_WEAK_DYLIB, LC_REEXPORT_DYLIB, LC_LOAD_UPWARD_DYLIB)

WEAK_LOOKUP = -3
PLATFORM_MACOS = 1
PROTECTION_WRITE = 2
PROTECTION_EXECUTE = 4
SECTION_HAS_RELOCATIONS = 0x300
EXPORT_IS_REEXPORT = 0x8
SYMBOL_IS_FOR_DEBUGGERS = 0xE0
SYMBOL_IS_EXTERNAL = 0x1
MAGIC_SIGNATURE = 0xFADE0CC0
MAGIC_CODE_DIRECTORY = 0xFADE0C02
CODE_DIRECTORY_HASH_LENGTH = 36
HASH_SHA256 = 2

Dylib = namedtuple("Dylib", "name current compatibility")
Segment = namedtuple("Segment", "name changes_code has_relocations")
Import = namedtuple("Import", "name ordinal weak")


def dotted(version):
    return "%d.%d.%d" % (version >> 16, version >> 8 & 255, version & 255)


def text_at(data, start):
    return data[start : data.index(b"\0", start)].decode()


class Stream:
    """A read position in bytes."""

    def __init__(self, data, at=0):
        self.data = data
        self.at = at

    def is_over(self):
        return self.at >= len(self.data)

    def byte(self):
        self.at += 1
        return self.data[self.at - 1]

    def number(self):
        """Reads a number with seven bits in each byte. The sign of signed numbers does not matter here."""
        result = shift = 0
        while True:
            byte = self.byte()
            result |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return result

    def text(self):
        result = text_at(self.data, self.at)
        self.at = self.data.index(b"\0", self.at) + 1
        return result


def rebased_segments(data):
    """Returns the indices of the segments that the rebase opcodes change."""
    stream, touched, segment = Stream(data), set(), None
    while not stream.is_over():
        opcode = stream.byte()
        kind, rest = opcode & 0xF0, opcode & 0x0F
        if kind == 0x20:
            segment = rest
            stream.number()
        elif kind == 0x30:
            stream.number()
        elif kind in (0x50, 0x60, 0x70, 0x80):
            touched.add(segment)
            for _ in range({0x50: 0, 0x60: 1, 0x70: 1, 0x80: 2}[kind]):
                stream.number()
    return touched


def read_bindings(data):
    """Returns the imports of the bind opcodes, and the indices of the segments that these opcodes change."""
    stream, imports, touched = Stream(data), set(), set()
    name, ordinal, weak, segment = "", 0, False, None
    while not stream.is_over():
        opcode = stream.byte()
        kind, rest = opcode & 0xF0, opcode & 0x0F
        if kind == 0x10:
            ordinal = rest
        elif kind == 0x20:
            ordinal = stream.number()
        elif kind == 0x30:
            ordinal = -(-rest & 0x0F)
        elif kind == 0x40:
            name, weak = stream.text(), bool(rest & 1)
        elif kind in (0x60, 0x80):
            stream.number()
        elif kind == 0x70:
            segment = rest
            stream.number()
        elif kind in (0x90, 0xA0, 0xB0, 0xC0):
            touched.add(segment)
            imports.add(Import(name, ordinal, weak))
            for _ in range({0x90: 0, 0xA0: 1, 0xB0: 0, 0xC0: 2}[kind]):
                stream.number()
        elif kind not in (0x00, 0x50):
            raise ValueError("unknown opcode %#x" % opcode)
    return imports, touched


def chained_segments(data):
    """Returns the indices of the segments that contain chained fixups."""
    starts = struct.unpack_from("<7I", data)[1]
    count = struct.unpack_from("<I", data, starts)[0]
    offsets = struct.unpack_from("<%dI" % count, data, starts + 4)
    return {index for index, offset in enumerate(offsets) if offset}


def chained_imports(data):
    """Returns the imports of the chained fixups."""
    _, _, table, texts, count, form, packed = struct.unpack_from("<7I", data)
    if form not in (1, 2, 3) or packed:
        raise ValueError("unknown form of imports")
    result = set()
    for i in range(count):
        if form == 3:
            entry = struct.unpack_from("<Q", data, table + 16 * i)[0]
            ordinal, weak, name = entry & 0xFFFF, entry >> 16 & 1, entry >> 32
            ordinal -= 0x10000 if ordinal > 0xFFF0 else 0
        else:
            entry = struct.unpack_from("<I", data, table + 4 * form * i)[0]
            ordinal, weak, name = entry & 0xFF, entry >> 8 & 1, entry >> 9
            ordinal -= 0x100 if ordinal > 0xF0 else 0
        result.add(Import(text_at(data, texts + name), ordinal, bool(weak)))
    return result


def read_exports(data):
    """Returns the names and flags in the tree of exports."""
    exports, seen, waiting = {}, set(), [("", 0)]
    while waiting and data:
        name, offset = waiting.pop()
        if offset in seen:
            raise ValueError("the tree of exports is none")
        seen.add(offset)
        stream = Stream(data, offset)
        size = stream.number()
        after = stream.at + size
        if size:
            exports[name] = stream.number()
        stream.at = after
        for _ in range(stream.byte()):
            branch = stream.text()
            waiting.append((name + branch, stream.number()))
    return exports


def code_directory(signature):
    """Returns the part of a signature that lists the hashes of the pages. If there are several, it is the one with the
    longest hashes."""
    magic, _, count = struct.unpack_from(">3I", signature)
    if magic != MAGIC_SIGNATURE:
        raise ValueError("the signature is none")
    directories = []
    for i in range(count):
        _, offset = struct.unpack_from(">2I", signature, 12 + 8 * i)
        kind, size = struct.unpack_from(">2I", signature, offset)
        if kind == MAGIC_CODE_DIRECTORY:
            directories.append(signature[offset : offset + size])
    if not directories:
        raise ValueError("the signature has no hashes")
    return max(directories, key=lambda directory: directory[CODE_DIRECTORY_HASH_LENGTH])


class MachO:
    """The part of a library's file that is for one architecture."""

    def __init__(self, path, arch):
        with open(path, "rb") as file:
            self.data = self.part(file.read(), arch)
        if struct.unpack_from("<2I", self.data) != (MAGIC_64, CPU_TYPES[arch]):
            raise ValueError("%s is no 64-bit file for %s" % (path, arch))
        self.type, count, _, self.flags = struct.unpack_from("<4I", self.data, 12)
        self.commands = []
        at = 32
        for _ in range(count):
            command, size = struct.unpack_from("<2I", self.data, at)
            self.commands.append((command, self.data[at : at + size]))
            at += size
        for body in self.of(LC_SEGMENT_64):
            start, size = struct.unpack_from("<2Q", body, 40)
            if start + size > len(self.data):
                raise ValueError("it is cut off")

    @staticmethod
    def part(data, arch):
        if struct.unpack_from(">I", data)[0] != MAGIC_FAT:
            return data
        for i in range(struct.unpack_from(">I", data, 4)[0]):
            cpu, _, offset, size = struct.unpack_from(">4I", data, 8 + 20 * i)
            if cpu == CPU_TYPES[arch]:
                return data[offset : offset + size]
        raise ValueError("there is nothing for " + arch)

    def of(self, *kinds):
        return [body for command, body in self.commands if command in kinds]

    def dylibs(self, *kinds):
        result = []
        for body in self.of(*kinds):
            name, _, current, compatibility = struct.unpack_from("<4I", body, 8)
            result.append(Dylib(text_at(body, name), dotted(current), dotted(compatibility)))
        return result

    def oldest_system(self):
        for body in self.of(LC_BUILD_VERSION):
            platform, oldest = struct.unpack_from("<2I", body, 8)
            return dotted(oldest) if platform == PLATFORM_MACOS else "platform %d" % platform
        for body in self.of(LC_VERSION_MIN_MACOSX):
            return dotted(struct.unpack_from("<I", body, 8)[0])
        return None

    def segments(self):
        result = []
        for body in self.of(LC_SEGMENT_64):
            most, first, count = struct.unpack_from("<3I", body, 56)
            both = PROTECTION_WRITE | PROTECTION_EXECUTE
            flags = [struct.unpack_from("<I", body, 72 + 80 * i + 64)[0] for i in range(count)]
            result.append(Segment(body[8:24].rstrip(b"\0").decode(), both in (most & both, first & both),
                                  any(flag & SECTION_HAS_RELOCATIONS for flag in flags)))
        return result

    def imports(self):
        """Returns what the loader looks up by name. A name that all libraries share has no ordinal of its own."""
        _, bind, _, lazy, _ = self.tables()
        imports = read_bindings(bind)[0] | read_bindings(lazy)[0]
        chains = self.linked(LC_DYLD_CHAINED_FIXUPS)
        return imports | (chained_imports(chains) if chains else set())

    def tables(self):
        """Returns the four tables of opcodes and the tree of exports. With chained fixups, the tables are empty."""
        for body in self.of(LC_DYLD_INFO, LC_DYLD_INFO_ONLY):
            numbers = struct.unpack_from("<10I", body, 8)
            return [self.data[o : o + s] for o, s in zip(numbers[::2], numbers[1::2])]
        return [b"", b"", b"", b"", self.linked(LC_DYLD_EXPORTS_TRIE)]

    def linked(self, kind):
        for body in self.of(kind):
            offset, size = struct.unpack_from("<2I", body, 8)
            return self.data[offset : offset + size]
        return b""

    def uuid(self):
        return "".join(body[8:24].hex() for body in self.of(LC_UUID))

    def private_symbols(self):
        """Returns the names that only a debugger reads, including those of object files."""
        symbols, count, texts, _ = struct.unpack_from("<4I", self.of(LC_SYMTAB)[0], 8)
        result = []
        for i in range(count):
            name, kind = struct.unpack_from("<IB", self.data, symbols + 16 * i)
            if kind & SYMBOL_IS_FOR_DEBUGGERS or not kind & SYMBOL_IS_EXTERNAL:
                result.append(text_at(self.data, texts + name))
        return result

    def signature_faults(self):
        """Returns the parts of the file that do not match the signature."""
        places = self.of(LC_CODE_SIGNATURE)
        if not places:
            return ["no signature"]
        offset, size = struct.unpack_from("<2I", places[0], 8)
        directory = code_directory(self.data[offset : offset + size])
        hashes, _, _, pages, end, length, kind, _, page = struct.unpack_from(">5I4B", directory, 16)
        if (kind, length) != (HASH_SHA256, hashlib.sha256().digest_size):
            return ["hashes of kind %d" % kind]
        starts = range(0, end, 1 << page)
        if (end, pages) != (offset, len(starts)):
            return ["%d pages up to %#x are signed, and not %d up to %#x" % (pages, end, len(starts), offset)]
        return ["page %#x" % start for i, start in enumerate(starts)
                if hashlib.sha256(self.data[start : min(start + (1 << page), end)]).digest()
                != directory[hashes + length * i : hashes + length * (i + 1)]]

    def exports(self):
        return read_exports(self.tables()[4])

    def fixed_up_segments(self):
        """Returns the names of the segments that the loader writes to."""
        rebase, bind, weak, lazy, _ = self.tables()
        touched = rebased_segments(rebase).union(*(read_bindings(table)[1] for table in (bind, weak, lazy)))
        chains = self.linked(LC_DYLD_CHAINED_FIXUPS)
        if chains:
            touched |= chained_segments(chains)
        return {self.segments()[index].name for index in touched}
