#include "tests/unit/PoolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::Pair;

using PoolOwnerMapsTest = CLS_PoolFixture;

TEST_F(PoolOwnerMapsTest, DropsTheIdAndKeepsTheOwnersOthersInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    clsPool.m_mapTmpTasks[&iOwner] = {"a", "b", "c"};
    clsPool.m_mapTmpTaskOwner = {{"a", &iOwner}, {"b", &iOwner}, {"c", &iOwner}};
    clsPool.RemoveTmpTask("b");
    EXPECT_THAT(clsPool.m_mapTmpTasks, ElementsAre(Pair(&iOwner, ElementsAre("a", "c"))));
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, ElementsAre(Key("a"), Key("c")));
}

TEST_F(PoolOwnerMapsTest, DropsTheOwnerWithItsLastId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iFirst = 0;
    int iSecond = 0;
    clsPool.m_mapTmpTasks = {{&iFirst, {"a"}}, {&iSecond, {"b"}}};
    clsPool.m_mapTmpTaskOwner = {{"a", &iFirst}, {"b", &iSecond}};
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(clsPool.m_mapTmpTasks, ElementsAre(Pair(&iSecond, ElementsAre("b"))));
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, ElementsAre(Pair("b", &iSecond)));
}

TEST_F(PoolOwnerMapsTest, DropsOnlyTheFirstOfEqualIds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    clsPool.m_mapTmpTasks[&iOwner] = {"a", "b", "a", "c"};
    clsPool.m_mapTmpTaskOwner = {{"a", &iOwner}};
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(clsPool.m_mapTmpTasks, ElementsAre(Pair(&iOwner, ElementsAre("b", "a", "c"))));
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, IsEmpty());
}

TEST_F(PoolOwnerMapsTest, DropsAnIdWhoseOwnerHasNoListOrNotThisId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iFirst = 0;
    int iSecond = 0;
    clsPool.m_mapTmpTasks[&iSecond] = {"z"};
    clsPool.m_mapTmpTaskOwner = {{"a", &iFirst}, {"b", &iSecond}};
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, ElementsAre(Key("b")));
    clsPool.RemoveTmpTask("b");
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, IsEmpty());
    EXPECT_THAT(clsPool.m_mapTmpTasks, ElementsAre(Pair(&iSecond, ElementsAre("z"))));
}

TEST_F(PoolOwnerMapsTest, LeavesEverythingAloneForAnUnknownId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    clsPool.m_mapTmpTasks[&iOwner] = {"a", "b"};
    clsPool.m_mapTmpTaskOwner = {{"a", &iOwner}};
    clsPool.RemoveTmpTask("b");
    clsPool.RemoveTmpTask("");
    EXPECT_THAT(clsPool.m_mapTmpTasks, ElementsAre(Pair(&iOwner, ElementsAre("a", "b"))));
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, ElementsAre(Pair("a", &iOwner)));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolOwnerMapsTest, NeitherStopsTheTaskNorForgetsItNorTakesItOffTheQueue)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    ASSERT_TRUE(clsPool.AddTmpTask([] {}, &iOwner, "call"));
    const std::string strTaskId = clsPool.m_mapTmpTaskOwner.begin()->first;
    clsPool.RemoveTmpTask(strTaskId);
    EXPECT_THAT(clsPool.m_mapTmpTasks, IsEmpty());
    EXPECT_THAT(clsPool.m_mapTmpTaskOwner, IsEmpty());
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    ASSERT_NE(nullptr, pTask);
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
    EXPECT_THAT(clsPool.m_vecWaitingTasks, ElementsAre(strTaskId));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}
} // namespace
