#include "tests/machrun/MissingFunction.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <sys/mman.h>

namespace
{
constexpr std::size_t PAGE_SIZE = 4096;

/// Loads the name into the register of the first argument, and jumps.
struct [[gnu::packed]] ST_Code
{
    std::array<std::uint8_t, 2> m_arrLoadName{0x48, 0xbf}; // mov rdi, name
    const char* m_szName;
    std::array<std::uint8_t, 2> m_arrLoadTarget{0x48, 0xb8}; // mov rax, target
    void (*m_funTarget)(const char*);
    std::array<std::uint8_t, 2> m_arrJump{0xff, 0xe0}; // jmp rax
};

[[noreturn]] void Report(const char* _szName)
{
    std::fprintf(stderr, "machrun: the program called %s, which machrun does not provide\n", _szName);
    std::abort();
}

void* MakeCode(const char* _szName)
{
    void* const pPage = mmap(nullptr, PAGE_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pPage == MAP_FAILED)
    {
        throw std::runtime_error("there is no memory for a function that replaces " + std::string(_szName));
    }
    ST_Code stCode{};
    stCode.m_szName = _szName;
    stCode.m_funTarget = Report;
    std::memcpy(pPage, &stCode, sizeof(stCode));
    mprotect(pPage, PAGE_SIZE, PROT_READ | PROT_EXEC);
    return pPage;
}
} // namespace

namespace MissingFunction
{
void* Make(const std::string& _strName)
{
    static std::mutex& s_mtxKnown = *new std::mutex;
    static auto& s_mapKnown = *new std::map<std::string, void*>; // guarded by s_mtxKnown
    const std::lock_guard<std::mutex> lock(s_mtxKnown);
    const auto itKnown = s_mapKnown.try_emplace(_strName, nullptr).first;
    if (itKnown->second == nullptr)
    {
        itKnown->second = MakeCode(itKnown->first.c_str());
    }
    return itKnown->second;
}
} // namespace MissingFunction
