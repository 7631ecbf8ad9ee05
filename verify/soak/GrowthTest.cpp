#include "verify/soak/Growth.h"

#include <gtest/gtest.h>

namespace
{
ST_Figures MakeBefore()
{
    ST_Figures stBefore;
    stBefore.m_iDescriptors = 4;
    stBefore.m_iThreads = 1;
    return stBefore;
}

/// Figures without an error.
ST_Figures MakeSound()
{
    ST_Figures stSound = MakeBefore();
    stSound.m_iWorkers = 301;
    stSound.m_iThreads = 1 + 3 + 301;
    stSound.m_iRegistered = stSound.m_iLiveCopies = stSound.m_iKept = 2000;
    return stSound;
}

std::string Judge(const ST_Figures& _stFigures)
{
    return CLS_Growth(MakeBefore()).Judge(_stFigures);
}

/// Sets of figures whose heap and resident memory grow by _iStep from one set to the next.
std::vector<ST_Figures> MakeRow(std::size_t _uiLength, std::int64_t _iStep)
{
    std::vector<ST_Figures> vecRow(_uiLength, MakeSound());
    for (std::size_t i = 0; i < _uiLength; ++i)
    {
        vecRow[i].m_iHeap = 1000000 + static_cast<std::int64_t>(i) * _iStep;
        vecRow[i].m_iResident = 9000000 + static_cast<std::int64_t>(i) * _iStep;
    }
    return vecRow;
}

TEST(GrowthTest, SoundFiguresPass)
{
    EXPECT_EQ("", Judge(MakeSound()));
}

TEST(GrowthTest, EachExactFigureIsJudged)
{
    ST_Figures stFigures = MakeSound();
    stFigures.m_iRegistered = 2001;
    EXPECT_EQ("records: 2001 instead of 2000\n", Judge(stFigures));

    stFigures = MakeSound();
    stFigures.m_iLiveCopies = 1999;
    EXPECT_EQ("live callables: 1999 instead of 2000\n", Judge(stFigures));

    stFigures = MakeSound();
    stFigures.m_iDescriptors = 5;
    EXPECT_EQ("descriptors: 5 instead of 4\n", Judge(stFigures));

    stFigures = MakeSound();
    stFigures.m_iThreads = 306;
    EXPECT_EQ("threads: 306 instead of 305\n", Judge(stFigures));

    stFigures = MakeSound();
    stFigures.m_iWorkers = 302;
    stFigures.m_iThreads = 306;
    EXPECT_EQ("workers: 302 instead of 301\n", Judge(stFigures));
}

TEST(GrowthTest, NoiseIsNoGrowth)
{
    std::vector<ST_Figures> vecRow = MakeRow(8, 0);
    for (const std::size_t i : {6U, 7U})
    {
        vecRow[i].m_iHeap += CLS_Growth::HEAP_NOISE;
        vecRow[i].m_iResident += CLS_Growth::RESIDENT_NOISE;
    }
    EXPECT_EQ("", CLS_Growth::JudgeTrend(vecRow));
    vecRow[7].m_iHeap *= 2; // a temporary peak
    vecRow[6].m_iResident *= 2;
    EXPECT_EQ("", CLS_Growth::JudgeTrend(vecRow));
}

TEST(GrowthTest, GrowthBeyondNoiseIsTold)
{
    // Four steps from the first figures of the second quarter to the first of the last one.
    EXPECT_EQ("heap grows: from 2200000 to 4600000\n", CLS_Growth::JudgeTrend(MakeRow(8, 600000)));
    EXPECT_EQ("heap grows: from 11000000 to 31000000\nresident memory grows: from 19000000 to 39000000\n",
              CLS_Growth::JudgeTrend(MakeRow(8, 5000000)));
}

TEST(GrowthTest, GrowthWhileCachesFillIsLeftOut)
{
    std::vector<ST_Figures> vecRow = MakeRow(8, 0);
    for (std::size_t i = 2; i < vecRow.size(); ++i)
    {
        vecRow[i].m_iHeap += 2 * CLS_Growth::HEAP_NOISE;
        vecRow[i].m_iResident += 2 * CLS_Growth::RESIDENT_NOISE;
    }
    EXPECT_EQ("", CLS_Growth::JudgeTrend(vecRow));
}

TEST(GrowthTest, TooFewFiguresMakeNoTrend)
{
    EXPECT_EQ("too few figures: 7\n", CLS_Growth::JudgeTrend(MakeRow(7, 0)));
}
} // namespace
