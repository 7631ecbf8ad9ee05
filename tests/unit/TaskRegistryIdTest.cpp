// Tasks with ids that the test chooses. The linker redirects the product's calls of Util::GetUuid here.

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TaskFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>

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

TEST_F(TaskRegistryIdTest, TaskThatLosesItsEntryIsDestroyedWithoutOtherReferences)
{
    bool bEnded = false;
    CLS_Task::CreateTask([pHook = MakeEndHook([&] { bEnded = true; })] {}, -1, "first");
    EXPECT_FALSE(bEnded);
    CLS_Task::CreateTask([] {}, -1, "second");
    EXPECT_TRUE(bEnded);
}

TEST_F(TaskRegistryIdTest, TaskThatLostItsEntryIsNotTrusted)
{
    std::string strTaskId;
    const std::shared_ptr<CLS_Task> pFirst = CLS_Task::CreatePoolTask([] {}, -1, "first", strTaskId);
    EXPECT_EQ("chosen", strTaskId);
    EXPECT_EQ(pFirst, CLS_Task::FindTask(pFirst, strTaskId));
    const std::shared_ptr<CLS_Task> pSecond = CLS_Task::CreateTask([] {}, -1, "second");
    EXPECT_EQ(pSecond, CLS_Task::FindTask(pFirst, strTaskId));
}

TEST_F(TaskRegistryIdTest, NewTaskTakesTheEntryOfANullPointer)
{
    {
        const std::unique_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        CLS_Task::m_mapTaskData["chosen"] = nullptr;
    }
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::CreateTask([] {}, -1, "first");
    EXPECT_EQ(pTask, CLS_Task::GetTask("chosen").lock());
}

TEST_F(TaskRegistryIdTest, TaskThatLosesItsEntryIsFreedOutsideTheRegistrysLock)
{
    if (!FailingMemory::REACHES_ALL)
    {
        GTEST_SKIP() << FailingMemory::WHY_NOT;
    }
    CLS_Task::CreateTask([pHook = std::make_shared<int>(0)] {}, -1, "first");
    int iFrees = 0;
    FailingMemory::WatchFrees(
        [&]
        {
            ++iFrees;
            bool bFree = false;
            std::thread(
                [&]
                {
                    bFree = CLS_Task::m_smTaskDataLock.try_lock();
                    if (bFree)
                    {
                        CLS_Task::m_smTaskDataLock.unlock();
                    }
                })
                .join();
            EXPECT_TRUE(bFree);
        });
    CLS_Task::CreateTask([] {}, -1, "second");
    FailingMemory::WatchFrees({});
    EXPECT_GT(iFrees, 3) << "the task record, its callable's capture and its parameters are freed";
}
} // namespace
