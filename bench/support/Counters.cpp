#include "bench/support/Counters.h"

#include <cerrno>
#include <dlfcn.h>
#include <sys/resource.h>
#include <system_error>

namespace
{
rusage ReadUsage()
{
    rusage stUsage{};
    if (getrusage(RUSAGE_SELF, &stUsage) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "cannot read the context switches");
    }
    return stUsage;
}
} // namespace

std::uint64_t Counters::GetWaits()
{
    return static_cast<std::uint64_t>(ReadUsage().ru_nvcsw);
}

std::uint64_t Counters::GetSwitches()
{
    const rusage stUsage = ReadUsage();
    return static_cast<std::uint64_t>(stUsage.ru_nvcsw) + static_cast<std::uint64_t>(stUsage.ru_nivcsw);
}

std::optional<std::uint64_t> Counters::GetAllocations()
{
    static auto* const s_pCount =
        reinterpret_cast<std::uint64_t (*)()>(dlsym(RTLD_DEFAULT, "zel_count_allocations"));
    return s_pCount != nullptr ? std::optional<std::uint64_t>(s_pCount()) : std::nullopt;
}
