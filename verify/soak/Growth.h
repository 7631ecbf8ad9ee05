#pragma once

#include "verify/soak/Figures.h"

#include <string>
#include <vector>

/// Judges the figures of a soak.
///
/// They are taken when nothing is queued, nothing runs, and finished tasks are swept. Then the pool may have
/// one task record with one callable for each loop task, the service threads, and at most 301 workers.
class CLS_Growth
{
public:
    /// _stBefore was taken before the first use of the pool.
    explicit CLS_Growth(const ST_Figures& _stBefore) : m_stBefore(_stBefore) {}

    /// The errors in one set of figures; empty for none. These figures must be exact.
    std::string Judge(const ST_Figures& _stFigures) const;

    /// The errors in the memory of all sets, oldest first; empty for none.
    ///
    /// Memory is noisy. A busy machine causes backlogs, and the allocator keeps some memory for each thread.
    /// So the first quarter is left out, because caches fill. The lowest value of the last quarter may exceed
    /// the lowest of the second by HEAP_NOISE or RESIDENT_NOISE.
    ///
    /// If each of ten million tasks loses one byte, that exceeds HEAP_NOISE, because five million tasks run
    /// between the two quarters.
    static std::string JudgeTrend(const std::vector<ST_Figures>& _vecFigures);

    static constexpr std::int64_t HEAP_NOISE = std::int64_t{2} << 20;
    static constexpr std::int64_t RESIDENT_NOISE = std::int64_t{16} << 20; ///< unused memory of a busy heap
    static constexpr std::size_t FEWEST_FIGURES = 8;                       ///< fewer do not show a trend
    static constexpr int SERVICE_THREADS = 3;
    static constexpr int MOST_WORKERS = 301;

private:
    ST_Figures m_stBefore;
};
