// The task records that the kit leaves in the pool's registry.

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/SubmitForResult.h"
#include "tests/kit/PoolTest.h"

#include <dlfcn.h>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

class CLS_Task;

namespace
{
/// Returns the object behind the reference that the library exports under one of these names; null if there
/// is none.
template <typename T_Object>
T_Object* FindReference(const std::vector<const char*>& _vecNames)
{
    static void* const s_pLibrary = dlopen(POOL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    for (const char* const szName : _vecNames)
    {
        if (void* const pReference = dlsym(s_pLibrary, szName))
        {
            return *static_cast<T_Object**>(pReference);
        }
    }
    return nullptr;
}

/// The number of task records in the library.
std::size_t CountRecords()
{
    using Records = std::map<std::string, std::shared_ptr<CLS_Task>>;
    // If the C++ library has two string types, the name tells which one is used.
    const auto* const pRecords =
        FindReference<const Records>({"_ZN8CLS_Task13m_mapTaskDataB5cxx11E", "_ZN8CLS_Task13m_mapTaskDataE"});
    auto* const pLock = FindReference<std::shared_mutex>({"_ZN8CLS_Task16m_smTaskDataLockE"});
    if (pRecords == nullptr || pLock == nullptr)
    {
        ADD_FAILURE() << "the registry is not exported";
        return 0;
    }
    const std::shared_lock<std::shared_mutex> lock(*pLock);
    return pRecords->size();
}

TEST(KitMemoryTest, ManyTasksLeaveNoMoreRecordsThanWorkers)
{
    const std::size_t uiBefore = CountRecords();
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
        CLS_TaskOwner clsOwner(clsPool, "owner");
        for (int i = 0; i < 20000; ++i)
        {
            ASSERT_TRUE(clsOwner.Submit([] {}, "task"));
            if (i % 1000 == 0)
            {
                ASSERT_EQ(i, SubmitForResult(
                                 clsOwner, [i] { return i; }, "result")
                                 .get());
            }
        }
        ASSERT_TRUE(WaitUntil([&] { return clsOwner.GetCounters().m_uiRun == 20020; }));
        // One for each possible carrier, as many for those that have just ended, and one for the heartbeat.
        EXPECT_LE(CountRecords(), uiBefore + 2 * CLS_PoolHub::MOST_CARRIERS + 1);
        EXPECT_TRUE(WaitUntil([&] { return CountRecords() <= uiBefore + 20; }));
    }
    EXPECT_EQ(uiBefore, CountRecords());
}

TEST(KitMemoryTest, RecordsOfManyWorkersAreDeletedWithoutActionByTheHost)
{
    const std::size_t uiBefore = CountRecords();
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
        CLS_Gate clsMayEnd;
        CLS_Counter clsStarted;
        CLS_TaskOwner clsOwner(clsPool, "owner");
        for (int i = 0; i < 200; ++i)
        {
            ASSERT_TRUE(clsOwner.Submit(
                [&]
                {
                    clsStarted.Add();
                    EXPECT_TRUE(clsMayEnd.Wait());
                },
                "task"));
        }
        ASSERT_TRUE(clsStarted.Wait(200));
        EXPECT_GE(CountRecords(), uiBefore + 200);
        clsMayEnd.Open();
        EXPECT_TRUE(WaitUntil([&] { return CountRecords() <= uiBefore + 20; }));
    }
    EXPECT_EQ(uiBefore, CountRecords());
}

TEST(KitMemoryTest, RemovedLoopTasksLeaveNoRecord)
{
    const std::size_t uiBefore = CountRecords();
    {
        const CLS_PoolScope clsPool{CLS_PoolLibrary(POOL_LIBRARY)};
        for (int i = 0; i < 50; ++i)
        {
            const CLS_LoopTask clsLoop(
                clsPool, [] {}, 0, "loop");
        }
        EXPECT_TRUE(WaitUntil([&] { return CountRecords() == uiBefore + 1; }));
    }
    EXPECT_EQ(uiBefore, CountRecords());
}
} // namespace
