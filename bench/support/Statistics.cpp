#include "bench/support/Statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

double Statistics::GetMean(const std::vector<double>& _vecSamples)
{
    if (_vecSamples.empty())
    {
        return 0;
    }
    return std::accumulate(_vecSamples.begin(), _vecSamples.end(), 0.0) /
           static_cast<double>(_vecSamples.size());
}

double Statistics::GetPercentile(std::vector<double> _vecSamples, double _dPercent)
{
    if (_vecSamples.empty())
    {
        return 0;
    }
    const double dRank = std::ceil(static_cast<double>(_vecSamples.size()) * _dPercent / 100);
    const std::size_t uiIndex = static_cast<std::size_t>(std::max(dRank, 1.0)) - 1;
    const auto itSample = _vecSamples.begin() + static_cast<std::ptrdiff_t>(uiIndex);
    std::nth_element(_vecSamples.begin(), itSample, _vecSamples.end());
    return *itSample;
}
