#pragma once

#include <vector>

namespace Statistics
{
double GetMean(const std::vector<double>& _vecSamples);

/// The least sample that at least _dPercent of the samples do not exceed; 0 without samples.
double GetPercentile(std::vector<double> _vecSamples, double _dPercent);
} // namespace Statistics
