// machrun: loads Mach-O x86-64 images into a Linux process.
#pragma once
#include "macho.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace machrun
{

struct Image;

struct Dependency
{
    std::string name; // as written in the load command
    bool weak = false, reexport = false;
    Image* image = nullptr; // null only for a missing weak library
};

struct Segment
{
    std::string name;
    uint64_t vmaddr, vmsize, fileoff, filesize;
    int prot;
};

struct Section
{
    std::string segment, name;
    uint64_t addr, size;
    uint32_t type;
};

struct Span
{
    const uint8_t* data = nullptr;
    size_t size = 0;
};

struct Image
{
    std::string path;        // path it was loaded from ("" for the native libSystem)
    std::string installName; // LC_ID_DYLIB
    bool native = false;     // the libSystem made of shims
    uint32_t filetype = 0, flags = 0, minos = 0;
    uint64_t preferred = 0;  // lowest vmaddr, where the header stands
    uint8_t* base = nullptr; // address of the header in memory
    uint64_t vmsize = 0;
    std::vector<uint8_t> file; // the x86-64 slice
    std::vector<Segment> segments;
    std::vector<Section> sections;
    std::vector<Dependency> deps; // ordinal n is deps[n-1]
    std::vector<std::string> rpaths;
    Image* loader = nullptr; // the image that first asked for this one (for @rpath chains)
    Span rebase, bind, weakBind, lazyBind, exports, chained;
    uint64_t entryoff = 0;
    bool hasMain = false;
    const macho::Nlist64* symbols = nullptr;
    uint32_t symbolCount = 0;
    const char* strings = nullptr;
    uint32_t stringsSize = 0;
    bool bound = false, initStarted = false, terminated = false;
    int openCount = 0;
    bool keep = false; // RTLD_NODELETE
    // thread-local template
    uint64_t tlvStart = 0, tlvSize = 0, tlvAlign = 16;
    int tlvIndex = -1;

    uint8_t* at(uint64_t vmaddr) const { return base + (vmaddr - preferred); }
    int64_t slide() const { return static_cast<int64_t>(reinterpret_cast<uint64_t>(base) - preferred); }
    const Section* section(const char* seg, const char* sect) const;
    bool contains(const void* p) const
    {
        auto a = static_cast<const uint8_t*>(p);
        return a >= base && a < base + vmsize;
    }
};

struct Options
{
    std::string root;                      // prefix for absolute system paths (/usr/lib/...)
    std::vector<std::string> libraryPaths; // like DYLD_LIBRARY_PATH
    bool trace = false;                    // print what is loaded and bound
    bool check = false;                    // load and bind only; list what is missing
    bool smallStacks = true;               // 512 KiB thread stacks as on macOS
};
extern Options g_options;
extern std::string g_executablePath;
extern std::vector<std::string> g_missing; // unresolved names seen while binding ("image: name")

// Start-up of the process.
Image* loadMain(const std::string& path, std::string& error);
bool linkAndInit(Image* image, std::string& error, bool runInitialisers);
extern int g_argc;
extern char **g_argv, **g_envp, **g_apple;

// Look-ups. Names carry the leading underscore of the file format.
void* lookupNative(std::string_view name);           // shims.cpp; null when there is none
void* lookupIn(Image* image, std::string_view name); // the image and what it re-exports
void* lookupFlat(std::string_view name);
Image* imageContaining(const void* address);
const char* nearestSymbol(Image* image, const void* address, void** symbolAddress);
std::vector<Image*> images(); // snapshot, load order, without the native one

// What the dl functions of the loaded program do.
void* dlOpen(const char* path, int mode, const void* caller);
int dlClose(void* handle);
void* dlSym(void* handle, const char* name, const void* caller);
char* dlError();
void setDlError(const std::string& text);

// Exit handlers and thread-local destructors.
void registerAtExit(void (*fn)(void*), void* arg, void* dso);
void runAtExit();
void runAtExitFor(Image* image);
void tlvAtExit(void (*fn)(void*), void* object);
void runTlvAtExit();
[[noreturn]] void exitProcess(int code);

// A small code block that reports the name and aborts when it is called.
void* trapFor(std::string_view name);
void printBacktrace(void* const* frames, int count);
int walkFrames(void* rbp, void** frames, int max);
void installCrashReporter();

} // namespace machrun
