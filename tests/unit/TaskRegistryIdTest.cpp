// Tasks that are given ids of the test's choice. The linker leads the product's calls of Util::GetUuid here.

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TaskFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

std::string MakeChosenId() __asm__("__wrap__ZN4Util7GetUuidB5cxx11Ev");

std::string MakeChosenId()
{
    return "chosen";
}

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using TaskRegistryIdTest = CLS_TaskFixture;

TEST_F(TaskRegistryIdTest, NewTaskTakesTheEntryOfATaskWithTheSameId)
{
    const std::shared_ptr<CLS_Task> pFirst = CLS_Task::CreateTask([] {}, -1, "first");
    const std::shared_ptr<CLS_Task> pSecond = CLS_Task::CreateTask([] {}, -1, "second");
    EXPECT_EQ("chosen", pFirst->GetId());
    EXPECT_EQ("chosen", pSecond->GetId());
    EXPECT_THAT(CLS_Task::m_mapTaskData, ElementsAre(Pair("chosen", pSecond)));
    EXPECT_EQ(pSecond, CLS_Task::GetTask("chosen").lock());
    EXPECT_EQ(1, pFirst.use_count());
    EXPECT_TRUE(pFirst->GetValid());
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(TaskRegistryIdTest, TaskThatLosesItsEntryIsDestroyedWhenNobodyElseHasIt)
{
    bool bEnded = false;
    CLS_Task::CreateTask([pHook = MakeEndHook([&] { bEnded = true; })] {}, -1, "first");
    EXPECT_FALSE(bEnded);
    CLS_Task::CreateTask([] {}, -1, "second");
    EXPECT_TRUE(bEnded);
}
} // namespace
