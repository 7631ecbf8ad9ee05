// How zel_schedules handles its arguments.

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

namespace
{
using Arguments = std::vector<std::string>;

ST_ChildResult RunSchedules(const Arguments& _vecArguments)
{
    return RunChild(SCHEDULES_HOST, _vecArguments);
}

/// Expects that the arguments are refused. Returns standard error.
std::string Refuse(const Arguments& _vecArguments)
{
    const ST_ChildResult stResult = RunSchedules(_vecArguments);
    EXPECT_EQ(stResult.m_iExit, 2) << ::testing::PrintToString(stResult);
    EXPECT_EQ(stResult.m_strOut, "");
    return stResult.m_strErr;
}
} // namespace

TEST(SchedulesHostTest, ArgumentThatCannotBeIsRefused)
{
    EXPECT_EQ(Refuse({"--nonsense"}), "The following argument was not expected: --nonsense\n");
    EXPECT_EQ(Refuse({"--seeds", "0"}), "--seeds: 0 is not a count\n");
    EXPECT_EQ(Refuse({"--exhaustive", "-1"}), "--exhaustive: -1 is not a count\n");
    EXPECT_EQ(Refuse({"--first", "x"}), "--first: x is not a number\n");
    EXPECT_EQ(Refuse({"--measure", "0"}), "--measure: 0 is not a count\n");
    EXPECT_EQ(Refuse({"--seed", "99999999999999999999"}), "--seed: 99999999999999999999 is not a number\n");
    EXPECT_EQ(Refuse({"--delays", "3,x"}), "--delays: 3,x is not a list of steps\n");
    EXPECT_EQ(Refuse({"--strategy", "x"}),
              "--strategy: x not in {random,slow,pct2,pct3,exhaustive,exhaustive-late}\n");
    EXPECT_EQ(Refuse({"--scenario", "x"}).substr(0, 32), "--scenario: x not in {submit-and");
}

TEST(SchedulesHostTest, ArgumentsThatDoNotGoTogetherAreRefused)
{
    const auto funRefuseOne = [](const std::string& _strStrategy, const Arguments& _vecRepetition)
    {
        Arguments vecArguments{"--scenario", "watchdog-retires", "--strategy", _strStrategy};
        vecArguments.insert(vecArguments.end(), _vecRepetition.begin(), _vecRepetition.end());
        return Refuse(vecArguments);
    };
    EXPECT_EQ(funRefuseOne("slow", {}), "slow does not apply to watchdog-retires\n");
    EXPECT_EQ(funRefuseOne("random", {"--delays", "3"}), "--delays does not apply to random\n");
    EXPECT_EQ(funRefuseOne("exhaustive", {"--seed", "3"}), "--seed does not apply to exhaustive\n");
    EXPECT_EQ(funRefuseOne("random", {"--seed", "3", "--measure", "1"}), "--measure excludes --seed\n");
    EXPECT_EQ(Refuse({"--strategy", "random", "--delays", "3"}), "--delays requires --scenario\n");
    EXPECT_EQ(Refuse({"--scenario", "submit-and-run", "--seed", "3"}), "--seed requires --strategy\n");
}

TEST(SchedulesHostTest, OneScheduleIsRunAndItsStepsArePrinted)
{
    for (const Arguments& vecRepetition :
         {Arguments{"random", "--seed", "3"}, Arguments{"exhaustive", "--delays", ""},
          Arguments{"exhaustive-late", "--delays", "3,7"}})
    {
        Arguments vecArguments{"--scenario", "submit-and-run", "--strategy"};
        vecArguments.insert(vecArguments.end(), vecRepetition.begin(), vecRepetition.end());
        const ST_ChildResult stResult = RunSchedules(vecArguments);
        EXPECT_EQ(stResult.m_iExit, 0) << ::testing::PrintToString(stResult);
        const std::string strBegin = "submit-and-run, " + vecRepetition.front() +
                                     ": passed\n      0.000 ms  host 0            begins \n";
        EXPECT_EQ(stResult.m_strOut.substr(0, strBegin.size()), strBegin);
    }
}
