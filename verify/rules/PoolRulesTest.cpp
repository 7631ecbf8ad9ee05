#include "verify/rules/PoolRules.h"

#include "tests/unit/PoolFixture.h"

#include <gtest/gtest.h>

namespace
{
/// The owner maps of one owner with two tasks. The tests break them.
class PoolRulesTest : public CLS_PoolFixture
{
protected:
    void SetUp() override
    {
        CLS_PoolFixture::SetUp();
        m_mapLists[&m_iOwner] = {"a", "b"};
        m_mapOwners = {{"a", &m_iOwner}, {"b", &m_iOwner}};
        m_mapCursors[&m_iOwner] = m_mapLists[&m_iOwner].begin();
    }

    const char* CheckOwners() const { return PoolRules::CheckOwners(m_mapLists, m_mapOwners, m_mapCursors); }

    int m_iOwner = 0;
    int m_iOther = 0;
    PoolView::OwnerLists m_mapLists;
    std::map<std::string, void*> m_mapOwners;
    PoolView::OwnerCursors m_mapCursors;
};

TEST_F(PoolRulesTest, OneWorkerMoreThanTheLimitIsAllowed)
{
    EXPECT_EQ(nullptr, PoolRules::CheckWorkerCount(301, 300));
    EXPECT_STREQ(PoolRules::TOO_MANY_WORKERS, PoolRules::CheckWorkerCount(302, 300));
}

TEST_F(PoolRulesTest, IdleListIsSortedAndHasEachWorkerOnce)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_TaskThread* const pFirst = clsPool.CreateTaskThread();
    CLS_TaskThread* const pSecond = clsPool.CreateTaskThread();
    EXPECT_EQ(nullptr, PoolRules::CheckIdleList({}));
    EXPECT_EQ(nullptr, PoolRules::CheckIdleList({{pFirst, 1}, {pSecond, 1}}));
    EXPECT_STREQ(PoolRules::IDLE_UNSORTED, PoolRules::CheckIdleList({{pFirst, 2}, {pSecond, 1}}));
    EXPECT_STREQ(PoolRules::IDLE_TWICE, PoolRules::CheckIdleList({{pFirst, 1}, {pSecond, 1}, {pFirst, 2}}));
}

TEST_F(PoolRulesTest, OwnerMapsThatAgreeBreakNoRule)
{
    EXPECT_EQ(nullptr, CheckOwners());
}

TEST_F(PoolRulesTest, IdWithoutAnOwnerBreaksARule)
{
    m_mapOwners.erase("b");
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
}

TEST_F(PoolRulesTest, IdWithAnotherOwnerBreaksARule)
{
    m_mapOwners["b"] = &m_iOther;
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
}

TEST_F(PoolRulesTest, IdThatNoListHoldsBreaksARule)
{
    m_mapOwners["c"] = &m_iOwner;
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
}

TEST_F(PoolRulesTest, IdThatIsListedTwiceBreaksARule)
{
    m_mapLists[&m_iOwner].emplace_back("a");
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
}

TEST_F(PoolRulesTest, OwnerWithoutIdsBreaksARule)
{
    m_mapCursors[&m_iOther] = m_mapLists[&m_iOther].begin();
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
}

TEST_F(PoolRulesTest, ListWithoutACursorAndCursorWithoutAListBreakARule)
{
    m_mapCursors.clear();
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
    m_mapCursors[&m_iOwner] = m_mapLists[&m_iOwner].begin();
    m_mapCursors[&m_iOther] = m_mapLists[&m_iOwner].begin();
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, CheckOwners());
}

TEST_F(PoolRulesTest, PoolIsCheckedAsAWhole)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    ASSERT_TRUE(clsPool.AddTmpTask([] {}, &m_iOwner, "call"));
    PoolView::AddIdleWorker(clsPool, clsPool.CreateTaskThread());
    EXPECT_EQ(nullptr, PoolRules::CheckPool(clsPool));
    PoolView::GetWorkerLimit(clsPool) = -1;
    EXPECT_STREQ(PoolRules::TOO_MANY_WORKERS, PoolRules::CheckPool(clsPool));
    PoolView::GetWorkerLimit(clsPool) = 300;
    std::vector<CLS_TaskThread*>& vecIdle = PoolView::GetIdleWorkers(clsPool);
    vecIdle.push_back(vecIdle.front());
    EXPECT_STREQ(PoolRules::IDLE_TWICE, PoolRules::CheckPool(clsPool));
    vecIdle.pop_back();
    PoolView::GetTaskOwners(clsPool).clear();
    EXPECT_STREQ(PoolRules::OWNERS_DISAGREE, PoolRules::CheckPool(clsPool));
}
} // namespace
