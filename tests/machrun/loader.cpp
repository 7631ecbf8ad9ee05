// machrun: mapping, fixups, symbol look-up, initialisers, dl functions.
#include "loader.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits.h>
#include <mutex>
#include <pthread.h>
#include <shared_mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

namespace machrun
{

using namespace macho;

Options g_options;
std::string g_executablePath;
std::vector<std::string> g_missing;
int g_argc;
char **g_argv, **g_envp, **g_apple;

namespace
{

std::recursive_mutex g_loadLock; // held while images are loaded and linked
std::shared_mutex g_imagesLock;  // guards g_images only
std::vector<Image*> g_images;    // load order
Image* g_main = nullptr;
Image* g_native = nullptr;
Image* g_unwind = nullptr; // Mach-O libunwind that the native libSystem re-exports
int g_tlvCount = 0;
char g_mainHandle;

void trace(const char* format, ...)
{
    if (!g_options.trace)
        return;
    va_list args;
    va_start(args, format);
    std::fputs("machrun: ", stderr);
    std::vfprintf(stderr, format, args);
    std::fputc('\n', stderr);
    va_end(args);
}

uint32_t swap32(uint32_t v)
{
    return __builtin_bswap32(v);
}
uint64_t swap64(uint64_t v)
{
    return __builtin_bswap64(v);
}

uint64_t uleb(const uint8_t*& p, const uint8_t* end)
{
    uint64_t result = 0;
    int shift = 0;
    while (p < end)
    {
        uint8_t byte = *p++;
        if (shift < 64)
            result |= static_cast<uint64_t>(byte & 0x7f) << shift;
        shift += 7;
        if (!(byte & 0x80))
            break;
    }
    return result;
}

int64_t sleb(const uint8_t*& p, const uint8_t* end)
{
    int64_t result = 0;
    int shift = 0;
    uint8_t byte = 0;
    while (p < end)
    {
        byte = *p++;
        if (shift < 64)
            result |= static_cast<int64_t>(byte & 0x7f) << shift;
        shift += 7;
        if (!(byte & 0x80))
            break;
    }
    if ((byte & 0x40) && shift < 64)
        result |= -(static_cast<int64_t>(1) << shift);
    return result;
}

bool fileExists(const std::string& path)
{
    struct stat st;
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string realPath(const std::string& path)
{
    char buffer[PATH_MAX];
    return ::realpath(path.c_str(), buffer) ? buffer : path;
}

std::string dirOf(const std::string& path)
{
    auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string leafOf(const std::string& path)
{
    auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isNativeName(const std::string& name)
{
    if (name == "/usr/lib/libSystem.B.dylib" || name == "/usr/lib/libSystem.dylib")
        return true;
    for (const char* alias :
         {"/usr/lib/libpthread.dylib", "/usr/lib/libm.dylib", "/usr/lib/libc.dylib", "/usr/lib/libdl.dylib"})
        if (name == alias)
            return true;
    return name.rfind("/usr/lib/system/", 0) == 0;
}

// ---- parsing --------------------------------------------------------------

bool readSlice(const std::string& path, std::vector<uint8_t>& out, std::string& error)
{
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
    {
        error = "cannot open '" + path + "': " + std::strerror(errno);
        return false;
    }
    struct stat st;
    ::fstat(fd, &st);
    std::vector<uint8_t> all(static_cast<size_t>(st.st_size));
    size_t done = 0;
    while (done < all.size())
    {
        ssize_t n = ::read(fd, all.data() + done, all.size() - done);
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    if (done != all.size() || all.size() < sizeof(Header))
    {
        error = "'" + path + "' is too short to be a Mach-O file";
        return false;
    }
    uint32_t magic;
    std::memcpy(&magic, all.data(), 4);
    if (magic == FAT_MAGIC_SWAPPED || magic == FAT_MAGIC_64_SWAPPED)
    {
        uint32_t count;
        std::memcpy(&count, all.data() + 4, 4);
        count = swap32(count);
        size_t at = sizeof(FatHeader);
        for (uint32_t i = 0; i < count; ++i)
        {
            uint64_t offset, size;
            uint32_t cpu;
            if (magic == FAT_MAGIC_SWAPPED)
            {
                FatArch arch;
                if (at + sizeof arch > all.size())
                    break;
                std::memcpy(&arch, all.data() + at, sizeof arch);
                at += sizeof arch;
                cpu = swap32(arch.cputype), offset = swap32(arch.offset), size = swap32(arch.size);
            }
            else
            {
                FatArch64 arch;
                if (at + sizeof arch > all.size())
                    break;
                std::memcpy(&arch, all.data() + at, sizeof arch);
                at += sizeof arch;
                cpu = swap32(arch.cputype), offset = swap64(arch.offset), size = swap64(arch.size);
            }
            if (cpu == CPU_X86_64 && offset <= all.size() && size <= all.size() - offset)
            {
                out.assign(all.begin() + static_cast<long>(offset),
                           all.begin() + static_cast<long>(offset + size));
                return true;
            }
        }
        error = "'" + path + "' has no x86_64 slice";
        return false;
    }
    Header header;
    std::memcpy(&header, all.data(), sizeof header);
    if (header.magic != MAGIC_64 || header.cputype != CPU_X86_64)
    {
        error = "'" + path + "' is not a Mach-O x86_64 file";
        return false;
    }
    out = std::move(all);
    return true;
}

Span span(const Image& image, uint32_t offset, uint32_t size)
{
    if (size == 0 || offset > image.file.size() || size > image.file.size() - offset)
        return {};
    return {image.file.data() + offset, size};
}

std::string fixedName(const char* text)
{
    return std::string(text, strnlen(text, 16));
}

bool parse(Image& image, std::string& error)
{
    const uint8_t* data = image.file.data();
    Header header;
    std::memcpy(&header, data, sizeof header);
    image.filetype = header.filetype;
    image.flags = header.flags;
    if (sizeof(Header) + header.sizeofcmds > image.file.size())
    {
        error = "'" + image.path + "': load commands run past the end";
        return false;
    }
    const uint8_t* p = data + sizeof(Header);
    const uint8_t* end = p + header.sizeofcmds;
    uint64_t low = UINT64_MAX, high = 0;
    for (uint32_t i = 0; i < header.ncmds && p + sizeof(LoadCommand) <= end; ++i)
    {
        LoadCommand lc;
        std::memcpy(&lc, p, sizeof lc);
        if (lc.cmdsize < sizeof lc || p + lc.cmdsize > end)
        {
            error = "'" + image.path + "': malformed load command";
            return false;
        }
        switch (lc.cmd)
        {
        case LC_SEGMENT_64:
        {
            auto sc = reinterpret_cast<const SegmentCommand*>(p);
            Segment segment{fixedName(sc->segname),        sc->vmaddr, sc->vmsize, sc->fileoff, sc->filesize,
                            static_cast<int>(sc->initprot)};
            if (sc->flags & 0x10) // read-only after fixups
                segment.prot &= ~PROT_WRITE;
            image.segments.push_back(segment);
            if (segment.name != "__PAGEZERO" && sc->vmsize)
            {
                low = std::min(low, sc->vmaddr);
                high = std::max(high, sc->vmaddr + sc->vmsize);
            }
            auto sect = reinterpret_cast<const SectionHeader*>(p + sizeof(SegmentCommand));
            for (uint32_t s = 0; s < sc->nsects; ++s, ++sect)
            {
                image.sections.push_back({fixedName(sect->segname), fixedName(sect->sectname), sect->addr,
                                          sect->size, sect->flags & 0xff});
                uint32_t type = sect->flags & 0xff;
                if ((type == S_THREAD_LOCAL_REGULAR || type == S_THREAD_LOCAL_ZEROFILL) && sect->size)
                {
                    uint64_t tlvEnd = image.tlvSize ? image.tlvStart + image.tlvSize : 0;
                    uint64_t start = image.tlvSize ? std::min(image.tlvStart, sect->addr) : sect->addr;
                    tlvEnd = std::max(tlvEnd, sect->addr + sect->size);
                    image.tlvStart = start;
                    image.tlvSize = tlvEnd - start;
                    image.tlvAlign = std::max(image.tlvAlign, uint64_t(1) << sect->align);
                }
            }
            break;
        }
        case LC_ID_DYLIB:
        {
            auto dc = reinterpret_cast<const DylibCommand*>(p);
            image.installName = reinterpret_cast<const char*>(p) + dc->name;
            break;
        }
        case LC_LOAD_DYLIB:
        case LC_LOAD_WEAK_DYLIB:
        case LC_REEXPORT_DYLIB:
        case LC_LOAD_UPWARD_DYLIB:
        case LC_LAZY_LOAD_DYLIB:
        {
            auto dc = reinterpret_cast<const DylibCommand*>(p);
            Dependency dep;
            dep.name = reinterpret_cast<const char*>(p) + dc->name;
            dep.weak = lc.cmd == LC_LOAD_WEAK_DYLIB;
            dep.reexport = lc.cmd == LC_REEXPORT_DYLIB;
            image.deps.push_back(dep);
            break;
        }
        case LC_RPATH:
        {
            auto rc = reinterpret_cast<const RpathCommand*>(p);
            image.rpaths.push_back(reinterpret_cast<const char*>(p) + rc->path);
            break;
        }
        case LC_DYLD_INFO:
        case LC_DYLD_INFO_ONLY:
        {
            auto di = reinterpret_cast<const DyldInfoCommand*>(p);
            image.rebase = span(image, di->rebase_off, di->rebase_size);
            image.bind = span(image, di->bind_off, di->bind_size);
            image.weakBind = span(image, di->weak_bind_off, di->weak_bind_size);
            image.lazyBind = span(image, di->lazy_bind_off, di->lazy_bind_size);
            if (di->export_size)
                image.exports = span(image, di->export_off, di->export_size);
            break;
        }
        case LC_DYLD_EXPORTS_TRIE:
        case LC_DYLD_CHAINED_FIXUPS:
        {
            auto ld = reinterpret_cast<const LinkeditDataCommand*>(p);
            (lc.cmd == LC_DYLD_EXPORTS_TRIE ? image.exports : image.chained) =
                span(image, ld->dataoff, ld->datasize);
            break;
        }
        case LC_MAIN:
            image.entryoff = reinterpret_cast<const MainCommand*>(p)->entryoff;
            image.hasMain = true;
            break;
        case LC_SYMTAB:
        {
            auto sc = reinterpret_cast<const SymtabCommand*>(p);
            Span symbols = span(image, sc->symoff, sc->nsyms * static_cast<uint32_t>(sizeof(Nlist64)));
            Span strings = span(image, sc->stroff, sc->strsize);
            if (symbols.data && strings.data)
            {
                image.symbols = reinterpret_cast<const Nlist64*>(symbols.data);
                image.symbolCount = sc->nsyms;
                image.strings = reinterpret_cast<const char*>(strings.data);
                image.stringsSize = sc->strsize;
            }
            break;
        }
        case LC_BUILD_VERSION:
            image.minos = reinterpret_cast<const BuildVersionCommand*>(p)->minos;
            break;
        default:
            break;
        }
        p += lc.cmdsize;
    }
    if (low >= high)
    {
        error = "'" + image.path + "' has no segments";
        return false;
    }
    image.preferred = low;
    image.vmsize = (high - low + 0xfff) & ~uint64_t(0xfff);
    return true;
}

bool map(Image& image, std::string& error)
{
    void* want = nullptr;
    int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    if (image.filetype == MH_EXECUTE && !(image.flags & MH_PIE))
    {
        want = reinterpret_cast<void*>(image.preferred);
        flags |= MAP_FIXED_NOREPLACE;
    }
    void* memory = ::mmap(want, image.vmsize, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (memory == MAP_FAILED)
    {
        error = "'" + image.path + "': cannot reserve memory";
        return false;
    }
    image.base = static_cast<uint8_t*>(memory);
    for (const Segment& s : image.segments)
    {
        if (s.name == "__PAGEZERO" || !s.filesize)
            continue;
        if (s.fileoff > image.file.size() || s.filesize > image.file.size() - s.fileoff ||
            s.filesize > s.vmsize)
        {
            error = "'" + image.path + "': segment " + s.name + " runs past the end of the file";
            return false;
        }
        std::memcpy(image.at(s.vmaddr), image.file.data() + s.fileoff, s.filesize);
    }
    return true;
}

// ---- finding library files --------------------------------------------------

std::string systemPath(const std::string& path)
{
    if (!g_options.root.empty() && path.size() && path[0] == '/')
    {
        std::string rooted = g_options.root + path;
        if (fileExists(rooted))
            return rooted;
    }
    return fileExists(path) ? path : std::string();
}

std::string expand(const std::string& path, const Image* from)
{
    auto replace = [&](const char* prefix, const std::string& dir) -> std::string
    {
        size_t n = std::strlen(prefix);
        if (path.compare(0, n, prefix) == 0 && (path.size() == n || path[n] == '/'))
            return dir + path.substr(n);
        return {};
    };
    std::string s;
    if (from && !(s = replace("@loader_path", dirOf(from->path))).empty())
        return s;
    if (!(s = replace("@executable_path", dirOf(g_executablePath))).empty())
        return s;
    return path;
}

std::string findLibrary(const std::string& name, const Image* from, std::string& tried)
{
    auto attempt = [&](const std::string& path)
    {
        std::string found = systemPath(path);
        if (found.empty())
            tried += (tried.empty() ? "'" : ", '") + path + "' (no such file)";
        return found;
    };
    std::string found;
    for (const std::string& dir : g_options.libraryPaths)
        if (fileExists(found = dir + "/" + leafOf(name)))
            return found;
    if (name.rfind("@rpath/", 0) == 0)
    {
        std::string rest = name.substr(6);
        for (const Image* image = from; image; image = image->loader)
            for (const std::string& rpath : image->rpaths)
                if (!(found = attempt(expand(rpath, image) + rest)).empty())
                    return found;
        if (g_main && from != g_main)
            for (const std::string& rpath : g_main->rpaths)
                if (!(found = attempt(expand(rpath, g_main) + rest)).empty())
                    return found;
        return {};
    }
    return attempt(expand(name, from));
}

// dlopen of a name without a slash: the library path, run paths, then the working folder.
std::string findLeaf(const std::string& name, const Image* from, std::string& tried)
{
    std::string found;
    for (const std::string& dir : g_options.libraryPaths)
        if (fileExists(found = dir + "/" + name))
            return found;
    auto attempt = [&](const std::string& path)
    {
        std::string hit = systemPath(path);
        if (hit.empty())
            tried += (tried.empty() ? "'" : ", '") + path + "' (no such file)";
        return hit;
    };
    for (const Image* image : {from, static_cast<const Image*>(g_main)})
    {
        if (!image)
            continue;
        for (const std::string& rpath : image->rpaths)
            if (!(found = attempt(expand(rpath, image) + "/" + name)).empty())
                return found;
        if (from == g_main)
            break;
    }
    if (fileExists(name))
        return "./" + name;
    tried += (tried.empty() ? "'" : ", '") + name + "' (no such file)";
    for (const char* dir : {"/usr/local/lib/", "/usr/lib/"})
        if (!(found = attempt(dir + name)).empty())
            return found;
    return {};
}

Image* findLoaded(const std::string& real)
{
    std::shared_lock<std::shared_mutex> guard(g_imagesLock);
    for (Image* image : g_images)
        if (image->path == real)
            return image;
    return nullptr;
}

// Loads path and, first of all, everything that it depends on is found and mapped too.
Image* loadTree(const std::string& path, Image* from, std::string& error)
{
    std::string real = realPath(path);
    if (Image* image = findLoaded(real))
        return image;
    auto image = std::make_unique<Image>();
    image->path = real;
    image->loader = from;
    if (!readSlice(real, image->file, error) || !parse(*image, error) || !map(*image, error))
        return nullptr;
    if (image->tlvSize)
        image->tlvIndex = g_tlvCount++;
    Image* result = image.release();
    trace("loaded %s at %p (slide 0x%llx)", real.c_str(), static_cast<void*>(result->base),
          static_cast<unsigned long long>(result->slide()));
    {
        std::unique_lock<std::shared_mutex> guard(g_imagesLock);
        g_images.push_back(result);
    }
    for (Dependency& dep : result->deps)
    {
        std::string tried;
        std::string file;
        if (!isNativeName(dep.name))
            file = findLibrary(dep.name, result, tried);
        if (!file.empty())
        {
            dep.image = loadTree(file, result, error);
            if (!dep.image && !dep.weak)
                return nullptr;
        }
        else if (isNativeName(dep.name))
        {
            dep.image = g_native;
        }
        else if (!dep.weak)
        {
            error = "Library not loaded: " + dep.name + "\n  Referenced from: " + real +
                    "\n  Reason: tried: " + tried;
            return nullptr;
        }
    }
    return result;
}

// ---- exports ----------------------------------------------------------------

struct Export
{
    bool found = false;
    uint64_t flags = 0, value = 0;
    const char* reexportName = nullptr;
};

Export findExport(const Image* image, std::string_view name)
{
    Export result;
    const uint8_t* start = image->exports.data;
    if (!start)
        return result;
    const uint8_t* end = start + image->exports.size;
    const uint8_t* node = start;
    size_t matched = 0;
    for (;;)
    {
        if (node >= end)
            return result;
        const uint8_t* p = node;
        uint64_t terminal = uleb(p, end);
        const uint8_t* children = p + terminal;
        if (matched == name.size())
        {
            if (!terminal)
                return result;
            result.found = true;
            result.flags = uleb(p, end);
            result.value = uleb(p, end);
            if (result.flags & EXPORT_REEXPORT)
                result.reexportName = reinterpret_cast<const char*>(p);
            return result;
        }
        if (children >= end)
            return result;
        uint8_t count = *children++;
        const uint8_t* next = nullptr;
        for (uint8_t i = 0; i < count && children < end; ++i)
        {
            const char* edge = reinterpret_cast<const char*>(children);
            size_t length = strnlen(edge, static_cast<size_t>(end - children));
            children += length + 1;
            uint64_t offset = uleb(children, end);
            if (!next && length && name.compare(matched, length, edge, length) == 0 &&
                matched + length <= name.size())
            {
                next = start + offset;
                matched += length;
            }
        }
        if (!next)
            return result;
        node = next;
    }
}

void* resolveExport(Image* image, const Export& e, std::string_view name)
{
    if (e.flags & EXPORT_REEXPORT)
    {
        size_t ordinal = e.value;
        if (ordinal == 0 || ordinal > image->deps.size() || !image->deps[ordinal - 1].image)
            return nullptr;
        std::string_view target = e.reexportName && *e.reexportName ? std::string_view(e.reexportName) : name;
        return lookupIn(image->deps[ordinal - 1].image, target);
    }
    if ((e.flags & EXPORT_KIND_MASK) == EXPORT_KIND_ABSOLUTE)
        return reinterpret_cast<void*>(e.value);
    return image->base + e.value;
}

// The one definition that all images share: in load order a strong one, else the first weak one.
void* lookupWeak(std::string_view name)
{
    void* weak = nullptr;
    for (Image* image : images())
    {
        Export e = findExport(image, name);
        if (!e.found || (e.flags & EXPORT_REEXPORT))
            continue;
        if (!(e.flags & EXPORT_WEAK))
            return resolveExport(image, e, name);
        if (!weak)
            weak = resolveExport(image, e, name);
    }
    return weak;
}

// ---- fixups -----------------------------------------------------------------

bool interposed(const char* name)
{
    static const std::vector<std::string> names = []
    {
        std::vector<std::string> v;
        const char* text = std::getenv("MACHRUN_INTERPOSE");
        std::string all = text ? text : "", part;
        for (size_t at = 0; at <= all.size();)
        {
            size_t end = all.find(',', at);
            if (end == std::string::npos)
                end = all.size();
            if (!(part = all.substr(at, end - at)).empty())
                v.push_back(part);
            at = end + 1;
        }
        return v;
    }();
    return std::find(names.begin(), names.end(), name) != names.end();
}

struct Binder
{
    Image& image;
    std::string& error;
    bool failed = false;
    std::unordered_map<std::string, void*> cache;

    const Segment* segment(unsigned index)
    {
        if (index < image.segments.size())
            return &image.segments[index];
        fail("bad segment index");
        return nullptr;
    }
    void fail(const std::string& text)
    {
        if (!failed)
            error = "'" + image.path + "': " + text;
        failed = true;
    }

    // Finds what a bind wants. found = false: leave the place as it is.
    void* find(const char* name, int ordinal, bool weakImport, bool& found)
    {
        std::string key = std::to_string(ordinal) + name;
        auto it = cache.find(key);
        if (it != cache.end())
        {
            found = true;
            return it->second;
        }
        found = true;
        void* address = nullptr;
        Image* from = nullptr;
        if (ordinal > 0)
        {
            if (static_cast<size_t>(ordinal) > image.deps.size())
            {
                fail("bad library ordinal " + std::to_string(ordinal));
                return nullptr;
            }
            from = image.deps[static_cast<size_t>(ordinal) - 1].image;
            // MACHRUN_INTERPOSE: what the main program defines goes in front, like dyld's __interpose
            if (&image != g_main && from && interposed(name))
                if (void* front = lookupIn(g_main, name))
                {
                    trace("%s: %s goes to the program", image.path.c_str(), name);
                    cache.emplace(std::move(key), front);
                    return front;
                }
            address = from ? lookupIn(from, name) : nullptr;
        }
        else if (ordinal == ORDINAL_SELF)
        {
            address = lookupIn(&image, name);
        }
        else if (ordinal == ORDINAL_MAIN)
        {
            address = g_main ? lookupIn(g_main, name) : nullptr;
        }
        else if (ordinal == ORDINAL_WEAK)
        {
            address = lookupWeak(name);
            if (!address)
                address = lookupFlat(name);
        }
        else
        {
            address = lookupFlat(name);
        }
        if (!address && !weakImport)
        {
            g_missing.push_back(
                leafOf(image.path) + ": " + name +
                (from ? " (from " + leafOf(from->native ? "libSystem" : from->path) + ")" : ""));
            if (g_options.check || (from && from->native) || ordinal == ORDINAL_FLAT)
            {
                address = trapFor(name);
                trace("no %s: a call will abort", name);
            }
            else
            {
                fail(std::string("Symbol not found: ") + name +
                     "\n  Expected in: " + (from ? from->path : "flat namespace"));
            }
        }
        cache.emplace(std::move(key), address);
        return address;
    }

    void write(uint8_t* place, uint8_t type, void* value, int64_t addend)
    {
        if (place < image.base || place + 8 > image.base + image.vmsize)
        {
            fail("bind outside the image");
            return;
        }
        uint64_t v = reinterpret_cast<uint64_t>(value);
        if (v)
            v += static_cast<uint64_t>(addend);
        if (type == TYPE_POINTER)
            std::memcpy(place, &v, 8);
        else
            fail("unsupported bind type " + std::to_string(type));
    }

    void rebase(Span info)
    {
        const uint8_t *p = info.data, *end = p + info.size;
        uint8_t* place = nullptr;
        uint64_t slide = static_cast<uint64_t>(image.slide());
        auto one = [&]
        {
            if (place < image.base || place + 8 > image.base + image.vmsize)
            {
                fail("rebase outside the image");
                return;
            }
            uint64_t v;
            std::memcpy(&v, place, 8);
            v += slide;
            std::memcpy(place, &v, 8);
        };
        while (p < end && !failed)
        {
            uint8_t byte = *p++, imm = byte & 0x0f;
            uint64_t count, skip;
            switch (byte & 0xf0)
            {
            case REBASE_DONE:
                return;
            case REBASE_SET_TYPE:
                if (imm != TYPE_POINTER)
                    fail("text relocation (rebase type " + std::to_string(imm) + ")");
                break;
            case REBASE_SET_SEGMENT:
                if (const Segment* s = segment(imm))
                    place = image.at(s->vmaddr) + uleb(p, end);
                break;
            case REBASE_ADD_ULEB:
                place += uleb(p, end);
                break;
            case REBASE_ADD_SCALED:
                place += imm * 8;
                break;
            case REBASE_DO_TIMES:
                for (int i = 0; i < imm && !failed; ++i, place += 8)
                    one();
                break;
            case REBASE_DO_ULEB_TIMES:
                count = uleb(p, end);
                for (uint64_t i = 0; i < count && !failed; ++i, place += 8)
                    one();
                break;
            case REBASE_DO_ADD_ULEB:
                one();
                place += 8 + uleb(p, end);
                break;
            case REBASE_DO_ULEB_TIMES_SKIP:
                count = uleb(p, end);
                skip = uleb(p, end);
                for (uint64_t i = 0; i < count && !failed; ++i, place += 8 + skip)
                    one();
                break;
            default:
                fail("unknown rebase opcode");
            }
        }
    }

    enum Kind
    {
        Normal,
        Weak,
        Lazy
    };

    void bind(Span info, Kind kind)
    {
        const uint8_t *p = info.data, *end = p + info.size;
        uint8_t* place = nullptr;
        const char* name = "";
        int ordinal = 0;
        uint8_t type = TYPE_POINTER, flags = 0;
        int64_t addend = 0;
        auto one = [&]
        {
            bool found = false;
            void* value;
            if (kind == Weak)
            {
                value = lookupWeak(name);
                found = value != nullptr; // none: the normal bind stands
            }
            else
            {
                value = find(name, ordinal, flags & BIND_FLAG_WEAK_IMPORT, found);
            }
            if (found && !failed)
                write(place, type, value, addend);
        };
        while (p < end && !failed)
        {
            uint8_t byte = *p++, imm = byte & 0x0f;
            uint64_t count, skip;
            switch (byte & 0xf0)
            {
            case BIND_DONE:
                if (kind != Lazy)
                    return;
                break;
            case BIND_ORDINAL_IMM:
                ordinal = imm;
                break;
            case BIND_ORDINAL_ULEB:
                ordinal = static_cast<int>(uleb(p, end));
                break;
            case BIND_ORDINAL_SPECIAL:
                ordinal = imm ? static_cast<int8_t>(0xf0 | imm) : 0;
                break;
            case BIND_SYMBOL:
                flags = imm;
                name = reinterpret_cast<const char*>(p);
                p += strnlen(name, static_cast<size_t>(end - p)) + 1;
                break;
            case BIND_TYPE:
                type = imm;
                break;
            case BIND_ADDEND:
                addend = sleb(p, end);
                break;
            case BIND_SEGMENT:
                if (const Segment* s = segment(imm))
                    place = image.at(s->vmaddr) + uleb(p, end);
                break;
            case BIND_ADD_ADDR:
                place += uleb(p, end);
                break;
            case BIND_DO:
                one();
                place += 8;
                break;
            case BIND_DO_ADD_ADDR:
                one();
                place += 8 + uleb(p, end);
                break;
            case BIND_DO_ADD_SCALED:
                one();
                place += 8 + imm * 8;
                break;
            case BIND_DO_ULEB_TIMES_SKIP:
                count = uleb(p, end);
                skip = uleb(p, end);
                for (uint64_t i = 0; i < count && !failed; ++i, place += 8 + skip)
                    one();
                break;
            default:
                fail("unknown bind opcode");
            }
        }
    }

    void chained(Span info)
    {
        ChainedHeader header;
        if (info.size < sizeof header)
        {
            fail("short chained fixups");
            return;
        }
        std::memcpy(&header, info.data, sizeof header);
        std::vector<std::pair<void*, int64_t>> imports;
        const uint8_t* at = info.data + header.imports_offset;
        const char* names = reinterpret_cast<const char*>(info.data + header.symbols_offset);
        for (uint32_t i = 0; i < header.imports_count && !failed; ++i)
        {
            int ordinal;
            bool weakImport;
            uint32_t nameOffset;
            int64_t addend = 0;
            if (header.imports_format == 1 || header.imports_format == 2)
            {
                uint32_t v;
                std::memcpy(&v, at, 4);
                at += 4;
                ordinal = static_cast<int8_t>(v & 0xff);
                if ((v & 0xff) < 0xf0)
                    ordinal = static_cast<int>(v & 0xff);
                weakImport = (v >> 8) & 1;
                nameOffset = v >> 9;
                if (header.imports_format == 2)
                {
                    int32_t a;
                    std::memcpy(&a, at, 4);
                    at += 4;
                    addend = a;
                }
            }
            else if (header.imports_format == 3)
            {
                uint64_t v;
                std::memcpy(&v, at, 8);
                std::memcpy(&addend, at + 8, 8);
                at += 16;
                ordinal = static_cast<int>(v & 0xffff);
                if (ordinal >= 0xfff0)
                    ordinal = static_cast<int16_t>(v & 0xffff);
                weakImport = (v >> 16) & 1;
                nameOffset = static_cast<uint32_t>(v >> 32);
            }
            else
            {
                fail("unknown chained import format");
                return;
            }
            bool found;
            imports.emplace_back(find(names + nameOffset, ordinal, weakImport, found), addend);
        }
        const uint8_t* starts = info.data + header.starts_offset;
        uint32_t segCount;
        std::memcpy(&segCount, starts, 4);
        for (uint32_t s = 0; s < segCount && !failed; ++s)
        {
            uint32_t offset;
            std::memcpy(&offset, starts + 4 + 4 * s, 4);
            if (!offset)
                continue;
            auto seg = reinterpret_cast<const ChainedStartsInSegment*>(starts + offset);
            if (seg->pointer_format != 2 && seg->pointer_format != 6)
            {
                fail("unsupported chained pointer format " + std::to_string(seg->pointer_format));
                return;
            }
            auto pageStarts =
                reinterpret_cast<const uint8_t*>(seg) + offsetof(ChainedStartsInSegment, page_start);
            for (uint16_t page = 0; page < seg->page_count && !failed; ++page)
            {
                uint16_t start;
                std::memcpy(&start, pageStarts + 2 * page, 2);
                if (start == 0xffff)
                    continue;
                if (start & 0x8000)
                {
                    fail("chained page with several starts");
                    return;
                }
                uint8_t* place = image.base + seg->segment_offset + uint64_t(page) * seg->page_size + start;
                for (;;)
                {
                    if (place < image.base || place + 8 > image.base + image.vmsize)
                    {
                        fail("chain outside the image");
                        break;
                    }
                    uint64_t v;
                    std::memcpy(&v, place, 8);
                    uint64_t next = (v >> 51) & 0xfff;
                    uint64_t value;
                    if (v >> 63)
                    {
                        size_t index = v & 0xffffff;
                        int64_t addend = static_cast<int8_t>((v >> 24) & 0xff);
                        if (index >= imports.size())
                        {
                            fail("bad chained import index");
                            break;
                        }
                        value = reinterpret_cast<uint64_t>(imports[index].first);
                        if (value)
                            value += static_cast<uint64_t>(imports[index].second + addend);
                    }
                    else
                    {
                        uint64_t target = v & 0xfffffffffULL, high = (v >> 36) & 0xff;
                        value = seg->pointer_format == 2 ? target + static_cast<uint64_t>(image.slide())
                                                         : reinterpret_cast<uint64_t>(image.base) + target;
                        value |= high << 56;
                    }
                    std::memcpy(place, &value, 8);
                    if (!next)
                        break;
                    place += next * 4;
                }
            }
        }
    }
};

extern "C" void* machrunTlvThunk(TlvDescriptor*);

void link(Image& image, std::string& error, bool& ok)
{
    Binder binder{image, error, false, {}};
    if (image.rebase.data && image.slide() != 0)
        binder.rebase(image.rebase);
    if (image.bind.data)
        binder.bind(image.bind, Binder::Normal);
    if (image.lazyBind.data)
        binder.bind(image.lazyBind, Binder::Lazy);
    if (image.weakBind.data)
        binder.bind(image.weakBind, Binder::Weak);
    if (image.chained.data)
        binder.chained(image.chained);
    if (binder.failed)
    {
        ok = false;
        return;
    }
    for (const Section& s : image.sections)
    {
        if (s.type != S_THREAD_LOCAL_VARIABLES)
            continue;
        auto descriptor = reinterpret_cast<TlvDescriptor*>(image.at(s.addr));
        for (size_t i = 0; i < s.size / sizeof(TlvDescriptor); ++i, ++descriptor)
        {
            descriptor->thunk = machrunTlvThunk;
            descriptor->key = reinterpret_cast<unsigned long>(&image);
        }
    }
    for (const Segment& s : image.segments)
    {
        if (s.name == "__PAGEZERO" || !s.vmsize)
            continue;
        int prot = 0;
        if (s.prot & 1)
            prot |= PROT_READ;
        if (s.prot & 2)
            prot |= PROT_WRITE;
        if (s.prot & 4)
            prot |= PROT_EXEC;
        ::mprotect(image.at(s.vmaddr), (s.vmsize + 0xfff) & ~uint64_t(0xfff), prot);
    }
    image.bound = true;
}

bool linkTree(Image* image, std::string& error, std::vector<Image*>& done)
{
    if (image->native || image->bound || std::find(done.begin(), done.end(), image) != done.end())
        return true;
    done.push_back(image);
    for (Dependency& dep : image->deps)
        if (dep.image && !linkTree(dep.image, error, done))
            return false;
    bool ok = true;
    link(*image, error, ok);
    return ok;
}

using InitFunction = void (*)(int, char**, char**, char**, void*);
std::vector<void (*)(const Header*, intptr_t)> g_addCallbacks;

void initTree(Image* image)
{
    if (image->native || image->initStarted)
        return;
    image->initStarted = true;
    for (Dependency& dep : image->deps)
        if (dep.image)
            initTree(dep.image);
    for (auto callback : g_addCallbacks)
        callback(reinterpret_cast<const Header*>(image->base), image->slide());
    for (const Section& s : image->sections)
    {
        if (s.type == S_MOD_INIT_FUNC_POINTERS)
        {
            auto functions = reinterpret_cast<InitFunction*>(image->at(s.addr));
            for (size_t i = 0; i < s.size / sizeof(void*); ++i)
                functions[i](g_argc, g_argv, g_envp, g_apple, nullptr);
        }
        else if (s.type == S_INIT_FUNC_OFFSETS)
        {
            auto offsets = reinterpret_cast<uint32_t*>(image->at(s.addr));
            for (size_t i = 0; i < s.size / 4; ++i)
                reinterpret_cast<InitFunction>(image->base + offsets[i])(g_argc, g_argv, g_envp, g_apple,
                                                                         nullptr);
        }
    }
}

} // namespace

// ---- public look-ups --------------------------------------------------------

const Section* Image::section(const char* seg, const char* sect) const
{
    for (const Section& s : sections)
        if (s.segment == seg && s.name == sect)
            return &s;
    return nullptr;
}

std::vector<Image*> images()
{
    std::shared_lock<std::shared_mutex> guard(g_imagesLock);
    return g_images;
}

void* lookupIn(Image* image, std::string_view name)
{
    if (image->native)
    {
        if (void* address = lookupNative(name))
            return address;
        if (g_unwind)
        {
            Export e = findExport(g_unwind, name);
            if (e.found)
                return resolveExport(g_unwind, e, name);
        }
        return nullptr;
    }
    Export e = findExport(image, name);
    if (e.found)
        return resolveExport(image, e, name);
    for (Dependency& dep : image->deps)
        if (dep.reexport && dep.image)
            if (void* address = lookupIn(dep.image, name))
                return address;
    return nullptr;
}

void* lookupFlat(std::string_view name)
{
    for (Image* image : images())
    {
        Export e = findExport(image, name);
        if (e.found)
            if (void* address = resolveExport(image, e, name))
                return address;
    }
    return g_native ? lookupIn(g_native, name) : nullptr;
}

Image* imageContaining(const void* address)
{
    std::shared_lock<std::shared_mutex> guard(g_imagesLock);
    for (Image* image : g_images)
        if (image->contains(address))
            return image;
    return nullptr;
}

const char* nearestSymbol(Image* image, const void* address, void** symbolAddress)
{
    uint64_t target =
        static_cast<uint64_t>(static_cast<const uint8_t*>(address) - image->base) + image->preferred;
    const Nlist64* best = nullptr;
    for (uint32_t i = 0; i < image->symbolCount; ++i)
    {
        const Nlist64& n = image->symbols[i];
        if ((n.n_type & N_STAB) || (n.n_type & N_TYPE) != N_SECT || n.n_value > target ||
            n.n_strx >= image->stringsSize)
            continue;
        if (!best || n.n_value > best->n_value || (n.n_value == best->n_value && (n.n_type & N_EXT)))
            best = &n;
    }
    if (!best)
        return nullptr;
    if (symbolAddress)
        *symbolAddress = image->at(best->n_value);
    const char* name = image->strings + best->n_strx;
    return *name == '_' ? name + 1 : name;
}

// ---- start-up ---------------------------------------------------------------

Image* loadMain(const std::string& path, std::string& error)
{
    std::lock_guard<std::recursive_mutex> guard(g_loadLock);
    g_executablePath = realPath(path);
    g_native = new Image;
    g_native->native = true;
    g_native->installName = "/usr/lib/libSystem.B.dylib";
    // The main program comes first in load order, so it is loaded before libunwind.
    g_main = loadTree(g_executablePath, nullptr, error);
    if (!g_main)
        return nullptr;
    std::string unwind =
        g_options.root.empty() ? std::string() : g_options.root + "/usr/lib/system/libunwind.dylib";
    if (fileExists(unwind))
    {
        g_unwind = loadTree(unwind, nullptr, error);
        if (!g_unwind)
            return nullptr;
    }
    return g_main;
}

bool linkAndInit(Image* image, std::string& error, bool runInitialisers)
{
    std::lock_guard<std::recursive_mutex> guard(g_loadLock);
    std::vector<Image*> done;
    if (g_unwind && !linkTree(g_unwind, error, done))
        return false;
    if (!linkTree(image, error, done))
        return false;
    if (runInitialisers)
    {
        if (g_unwind)
            initTree(g_unwind);
        initTree(image);
    }
    return true;
}

// ---- dl functions -----------------------------------------------------------

namespace
{
thread_local std::string* t_dlError = nullptr;
thread_local std::string* t_dlErrorShown = nullptr;
} // namespace

void setDlError(const std::string& text)
{
    delete t_dlError;
    t_dlError = new std::string(text);
}

char* dlError()
{
    delete t_dlErrorShown;
    t_dlErrorShown = t_dlError;
    t_dlError = nullptr;
    return t_dlErrorShown ? t_dlErrorShown->data() : nullptr;
}

void* dlOpen(const char* path, int mode, const void* caller)
{
    if (!path)
        return &g_mainHandle;
    std::lock_guard<std::recursive_mutex> guard(g_loadLock);
    char text[32];
    std::snprintf(text, sizeof text, ", 0x%04X): ", static_cast<unsigned>(mode));
    std::string prefix = std::string("dlopen(") + path + text;
    std::string name = path;
    if (isNativeName(name))
    {
        return g_native;
    }
    Image* from = imageContaining(caller);
    std::string tried;
    std::string file =
        name.find('/') == std::string::npos ? findLeaf(name, from, tried) : findLibrary(name, from, tried);
    if (file.empty())
    {
        setDlError(prefix + "tried: " + tried);
        return nullptr;
    }
    if (mode & 0x10)
    { // RTLD_NOLOAD
        Image* image = findLoaded(realPath(file));
        if (!image)
            setDlError(prefix + "image not already loaded");
        else
        {
            ++image->openCount;
            if (mode & 0x80)
                image->keep = true;
        }
        return image;
    }
    size_t before = images().size();
    std::string error;
    Image* image = loadTree(file, from, error);
    std::vector<Image*> done;
    if (image && linkTree(image, error, done))
    {
        initTree(image);
        ++image->openCount;
        if (mode & 0x80)
            image->keep = true;
        return image;
    }
    {
        std::unique_lock<std::shared_mutex> lock(g_imagesLock);
        while (g_images.size() > before)
        { // leaves the mapping: something may still point at it
            g_images.pop_back();
        }
    }
    setDlError(prefix + error);
    return nullptr;
}

void runAtExitFor(Image* image);
// With MACHRUN_UNLOAD an image that nobody holds any more is taken away: 1 makes its pages inaccessible, so
// that code that still runs there crashes for certain; 2 unmaps them. Images with thread-local variables
// stay, as on macOS.
int dlClose(void* handle)
{
    std::lock_guard<std::recursive_mutex> guard(g_loadLock);
    auto image = static_cast<Image*>(handle);
    if (handle == &g_mainHandle || image->native || image->openCount <= 0)
        return 0;
    if (--image->openCount > 0 || image->keep || !std::getenv("MACHRUN_UNLOAD"))
        return 0;
    for (Image* other : images())
        for (Dependency& dep : other->deps)
            if (dep.image == image)
                return 0;
    if (image->tlvSize)
        return 0;
    runAtExitFor(image);
    {
        std::unique_lock<std::shared_mutex> lock(g_imagesLock);
        g_images.erase(std::find(g_images.begin(), g_images.end(), image));
    }
    if (std::getenv("MACHRUN_UNLOAD")[0] == '2')
    {
        ::munmap(image->base, image->vmsize);
        delete image;
        return 0;
    }
    ::mprotect(image->base, image->vmsize, PROT_NONE);
    trace("unloaded %s", image->path.c_str());
    return 0;
}

namespace
{
void* symInTree(Image* image, const std::string& name, std::vector<Image*>& seen)
{
    if (std::find(seen.begin(), seen.end(), image) != seen.end())
        return nullptr;
    seen.push_back(image);
    if (void* address = lookupIn(image, name))
        return address;
    for (Dependency& dep : image->deps)
        if (dep.image)
            if (void* address = symInTree(dep.image, name, seen))
                return address;
    return nullptr;
}
} // namespace

void* dlSym(void* handle, const char* symbol, const void* caller)
{
    std::string name = std::string("_") + symbol;
    void* address = nullptr;
    auto special = reinterpret_cast<intptr_t>(handle);
    std::vector<Image*> seen;
    if (special == -2 || handle == &g_mainHandle)
    {
        address = lookupFlat(name);
    }
    else if (special == -5)
    {
        address = lookupIn(g_main, name);
    }
    else if (special == -1 || special == -3)
    {
        Image* from = imageContaining(caller);
        bool active = false;
        for (Image* image : images())
        {
            if (image == from)
            {
                active = true;
                if (special == -1)
                    continue;
            }
            if (active && (address = lookupIn(image, name)))
                break;
        }
        if (!address)
            address = lookupIn(g_native, name);
    }
    else if (special == 0)
    {
        setDlError("dlsym(0x0, " + std::string(symbol) + "): invalid handle");
        return nullptr;
    }
    else
    {
        address = symInTree(static_cast<Image*>(handle), name, seen);
    }
    if (!address)
    {
        char text[64];
        std::snprintf(text, sizeof text, "dlsym(%p, ", handle);
        setDlError(std::string(text) + symbol + "): symbol not found");
    }
    return address;
}

// ---- exit handlers ----------------------------------------------------------

namespace
{
struct ExitHandler
{
    void (*fn)(void*);
    void* arg;
    void* dso;
};
std::mutex g_exitLock;
std::vector<ExitHandler> g_exitHandlers;
thread_local std::vector<std::pair<void (*)(void*), void*>>* t_tlvHandlers = nullptr;
} // namespace

void registerAtExit(void (*fn)(void*), void* arg, void* dso)
{
    std::lock_guard<std::mutex> guard(g_exitLock);
    g_exitHandlers.push_back({fn, arg, dso});
}

void runAtExit()
{
    for (;;)
    {
        ExitHandler handler;
        {
            std::lock_guard<std::mutex> guard(g_exitLock);
            if (g_exitHandlers.empty())
                break;
            handler = g_exitHandlers.back();
            g_exitHandlers.pop_back();
        }
        handler.fn(handler.arg);
    }
    auto all = images();
    for (auto it = all.rbegin(); it != all.rend(); ++it)
    {
        Image* image = *it;
        if (!image->initStarted || image->terminated)
            continue;
        image->terminated = true;
        for (const Section& s : image->sections)
            if (s.type == S_MOD_TERM_FUNC_POINTERS)
            {
                auto functions = reinterpret_cast<void (**)()>(image->at(s.addr));
                for (size_t i = 0; i < s.size / sizeof(void*); ++i)
                    functions[i]();
            }
    }
}

void runAtExitFor(Image* image)
{
    for (;;)
    {
        ExitHandler handler{};
        {
            std::lock_guard<std::mutex> guard(g_exitLock);
            for (size_t i = g_exitHandlers.size(); i-- > 0;)
                if (image->contains(g_exitHandlers[i].dso) ||
                    image->contains(reinterpret_cast<void*>(g_exitHandlers[i].fn)))
                {
                    handler = g_exitHandlers[i];
                    g_exitHandlers.erase(g_exitHandlers.begin() + static_cast<long>(i));
                    break;
                }
        }
        if (!handler.fn)
            return;
        handler.fn(handler.arg);
    }
}

void tlvAtExit(void (*fn)(void*), void* object)
{
    if (!t_tlvHandlers)
        t_tlvHandlers = new std::vector<std::pair<void (*)(void*), void*>>;
    t_tlvHandlers->emplace_back(fn, object);
}

void runTlvAtExit()
{
    while (t_tlvHandlers && !t_tlvHandlers->empty())
    {
        auto handler = t_tlvHandlers->back();
        t_tlvHandlers->pop_back();
        handler.first(handler.second);
    }
    delete t_tlvHandlers;
    t_tlvHandlers = nullptr;
}

void exitProcess(int code)
{
    runTlvAtExit();
    runAtExit();
    std::fflush(nullptr);
    ::_exit(code & 0xff);
}

// ---- thread-local variables -------------------------------------------------

namespace
{
struct TlvBlocks
{
    size_t count = 0;
    void** blocks = nullptr;
    int rounds = 0;
};
thread_local TlvBlocks* t_tlv = nullptr;
pthread_key_t g_tlvKey;
std::once_flag g_tlvOnce;

void tlvDestroy(void* value)
{
    auto tlv = static_cast<TlvBlocks*>(value);
    // Other keys' destructors may still use thread-local variables: wait for the last round.
    if (++tlv->rounds < PTHREAD_DESTRUCTOR_ITERATIONS - 1)
    {
        pthread_setspecific(g_tlvKey, tlv);
        return;
    }
    for (size_t i = 0; i < tlv->count; ++i)
        std::free(tlv->blocks[i]);
    std::free(tlv->blocks);
    delete tlv;
    t_tlv = nullptr;
}
} // namespace

extern "C" __attribute__((used)) void* machrunTlvResolve(TlvDescriptor* descriptor)
{
    auto image = reinterpret_cast<Image*>(descriptor->key);
    if (!t_tlv)
    {
        std::call_once(g_tlvOnce, [] { pthread_key_create(&g_tlvKey, tlvDestroy); });
        t_tlv = new TlvBlocks;
        pthread_setspecific(g_tlvKey, t_tlv);
    }
    auto index = static_cast<size_t>(image->tlvIndex);
    if (index >= t_tlv->count)
    {
        size_t count = index + 8;
        t_tlv->blocks = static_cast<void**>(std::realloc(t_tlv->blocks, count * sizeof(void*)));
        std::memset(t_tlv->blocks + t_tlv->count, 0, (count - t_tlv->count) * sizeof(void*));
        t_tlv->count = count;
    }
    void*& block = t_tlv->blocks[index];
    if (!block)
    {
        size_t align = std::max<uint64_t>(image->tlvAlign, 16);
        size_t size = (image->tlvSize + align - 1) / align * align;
        block = std::aligned_alloc(align, size);
        std::memset(block, 0, size);
        // only the regular part has contents; the rest of the template is zero in memory too
        std::memcpy(block, image->at(image->tlvStart), image->tlvSize);
    }
    return static_cast<uint8_t*>(block) + descriptor->offset;
}

// Keeps every register but RAX, as callers of a thread-local thunk expect.
asm(R"(
.text
.globl machrunTlvThunk
.type machrunTlvThunk, @function
machrunTlvThunk:
    pushq %rbp
    movq %rsp, %rbp
    pushq %rdi
    pushq %rsi
    pushq %rdx
    pushq %rcx
    pushq %r8
    pushq %r9
    pushq %r10
    pushq %r11
    subq $256, %rsp
    andq $-16, %rsp
    movups %xmm0, 0(%rsp)
    movups %xmm1, 16(%rsp)
    movups %xmm2, 32(%rsp)
    movups %xmm3, 48(%rsp)
    movups %xmm4, 64(%rsp)
    movups %xmm5, 80(%rsp)
    movups %xmm6, 96(%rsp)
    movups %xmm7, 112(%rsp)
    movups %xmm8, 128(%rsp)
    movups %xmm9, 144(%rsp)
    movups %xmm10, 160(%rsp)
    movups %xmm11, 176(%rsp)
    movups %xmm12, 192(%rsp)
    movups %xmm13, 208(%rsp)
    movups %xmm14, 224(%rsp)
    movups %xmm15, 240(%rsp)
    call machrunTlvResolve
    movups 0(%rsp), %xmm0
    movups 16(%rsp), %xmm1
    movups 32(%rsp), %xmm2
    movups 48(%rsp), %xmm3
    movups 64(%rsp), %xmm4
    movups 80(%rsp), %xmm5
    movups 96(%rsp), %xmm6
    movups 112(%rsp), %xmm7
    movups 128(%rsp), %xmm8
    movups 144(%rsp), %xmm9
    movups 160(%rsp), %xmm10
    movups 176(%rsp), %xmm11
    movups 192(%rsp), %xmm12
    movups 208(%rsp), %xmm13
    movups 224(%rsp), %xmm14
    movups 240(%rsp), %xmm15
    leaq -64(%rbp), %rsp
    popq %r11
    popq %r10
    popq %r9
    popq %r8
    popq %rcx
    popq %rdx
    popq %rsi
    popq %rdi
    popq %rbp
    ret
.size machrunTlvThunk, .-machrunTlvThunk
)");

// ---- traps for missing functions --------------------------------------------

namespace
{
[[noreturn]] void trapHit(const char* name)
{
    std::fprintf(stderr, "machrun: the program called %s, which machrun does not provide\n", name);
    void* frames[64];
    printBacktrace(frames, walkFrames(__builtin_frame_address(0), frames, 64));
    std::abort();
}
} // namespace

void* trapFor(std::string_view name)
{
    static std::mutex lock;
    static std::unordered_map<std::string, void*> known;
    static uint8_t* page = nullptr;
    static size_t used = 0;
    std::lock_guard<std::mutex> guard(lock);
    auto& slot = known[std::string(name)];
    if (slot)
        return slot;
    constexpr size_t pageSize = 4096, size = 32;
    if (!page || used + size > pageSize)
    {
        page = static_cast<uint8_t*>(
            ::mmap(nullptr, pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        used = 0;
    }
    ::mprotect(page, pageSize, PROT_READ | PROT_WRITE);
    uint8_t* code = page + used;
    used += size;
    char* text = ::strdup(std::string(name).c_str());
    void* target = reinterpret_cast<void*>(&trapHit);
    uint8_t* p = code;
    *p++ = 0x48, *p++ = 0xbf; // mov rdi, name
    std::memcpy(p, &text, 8), p += 8;
    *p++ = 0x48, *p++ = 0xb8; // mov rax, trapHit
    std::memcpy(p, &target, 8), p += 8;
    *p++ = 0xff, *p++ = 0xe0; // jmp rax
    ::mprotect(page, pageSize, PROT_READ | PROT_EXEC);
    return slot = code;
}

// ---- used by shims.cpp --------------------------------------------------------

void addImageCallback(void (*callback)(const Header*, intptr_t))
{
    std::lock_guard<std::recursive_mutex> guard(g_loadLock);
    g_addCallbacks.push_back(callback);
    for (Image* image : images())
        if (image->initStarted)
            callback(reinterpret_cast<const Header*>(image->base), image->slide());
}

} // namespace machrun
