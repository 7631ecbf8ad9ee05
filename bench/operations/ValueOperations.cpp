// Variants, ids and texts.

#include "QuenInclude/CLS_CVariant.h"
#include "QuenInclude/Util.h"

#include <benchmark/benchmark.h>

namespace
{
const std::string TEXT = "a text that is too long for the short string buffer";

CLS_CVariant MakeList()
{
    return std::vector<CLS_CVariant>(10, TEXT);
}

CLS_CVariant MakeMap()
{
    std::map<std::string, CLS_CVariant> mapValue;
    for (int i = 0; i < 10; ++i)
    {
        mapValue["key " + std::to_string(i)] = TEXT;
    }
    return mapValue;
}

void CopyVariant(benchmark::State& _clsState, const CLS_CVariant& _clsValue)
{
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        CLS_CVariant clsCopy(_clsValue);
        benchmark::DoNotOptimize(clsCopy);
    }
}

void VariantToText(benchmark::State& _clsState, const CLS_CVariant& _clsValue)
{
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        benchmark::DoNotOptimize(_clsValue.ToString());
    }
}

void GetUuid(benchmark::State& _clsState)
{
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        benchmark::DoNotOptimize(Util::GetUuid());
    }
}

void SplitText(benchmark::State& _clsState)
{
    for ([[maybe_unused]] const auto itStep : _clsState)
    {
        benchmark::DoNotOptimize(Util::SplitStdString(TEXT, " "));
    }
}

BENCHMARK_CAPTURE(CopyVariant, Integer, CLS_CVariant(42));
BENCHMARK_CAPTURE(CopyVariant, Text, CLS_CVariant(TEXT));
BENCHMARK_CAPTURE(CopyVariant, ListOf10, MakeList());
BENCHMARK_CAPTURE(CopyVariant, MapOf10, MakeMap());
BENCHMARK_CAPTURE(VariantToText, Integer, CLS_CVariant(42));
BENCHMARK_CAPTURE(VariantToText, Real, CLS_CVariant(4.25));
BENCHMARK_CAPTURE(VariantToText, Text, CLS_CVariant(TEXT));
BENCHMARK_CAPTURE(VariantToText, ListOf10, MakeList());
BENCHMARK(GetUuid)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(SplitText);
} // namespace
