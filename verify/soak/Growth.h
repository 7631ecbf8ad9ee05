#pragma once

#include "verify/soak/Figures.h"

#include <string>
#include <vector>

/// Judges the figures of a soak, each taken when nothing is queued, nothing runs and everything finished was
/// swept. What the contract explains then is one record with one callable for each loop task, the service
/// threads, and workers: 301 at most.
class CLS_Growth
{
public:
    /// _stBefore was taken before the first use of the pool.
    explicit CLS_Growth(const ST_Figures& _stBefore) : m_stBefore(_stBefore) {}

    /// What is wrong with one set of figures; empty when nothing is. These have to be exact.
    std::string Judge(const ST_Figures& _stFigures) const;

    /// What is wrong with the whole row, oldest first; empty when nothing is. Memory is noisy: a backlog
    /// comes and goes when the machine is busy, and the allocator keeps some memory for each thread. So the
    /// first quarter is left out, where caches fill, and the lowest value of the last quarter is held against
    /// the lowest of the second, which it may exceed by HEAP_NOISE and RESIDENT_NOISE. One byte lost with
    /// each of ten million tasks is more than the former: five million lie between the two quarters.
    static std::string JudgeTrend(const std::vector<ST_Figures>& _vecFigures);

    static constexpr std::int64_t HEAP_NOISE = std::int64_t{2} << 20;
    static constexpr std::int64_t RESIDENT_NOISE = std::int64_t{16} << 20; ///< what a busy heap leaves unused
    static constexpr std::size_t FEWEST_FIGURES = 8;                       ///< fewer make no trend
    static constexpr int SERVICE_THREADS = 3;
    static constexpr int MOST_WORKERS = 301;

private:
    ST_Figures m_stBefore;
};
