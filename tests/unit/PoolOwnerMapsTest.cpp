#include "tests/support/PoolView.h"
#include "tests/unit/PoolFixture.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Key;
using ::testing::Pair;

using PoolOwnerMapsTest = CLS_PoolFixture;

/// Expects exactly one cursor for each list, and that each cursor is a position in its list.
void ExpectCursorsAgree(CLS_QuenTaskPool& _clsPool)
{
    ASSERT_EQ(PoolView::GetOwnerLists(_clsPool).size(), PoolView::GetOwnerCursors(_clsPool).size());
    for (auto& [pOwner, lstTaskIds] : PoolView::GetOwnerLists(_clsPool))
    {
        EXPECT_FALSE(lstTaskIds.empty());
        ASSERT_EQ(1U, PoolView::GetOwnerCursors(_clsPool).count(pOwner));
        const auto itCursor = PoolView::GetOwnerCursors(_clsPool).at(pOwner);
        auto itPlace = lstTaskIds.begin();
        while (itPlace != lstTaskIds.end() && itPlace != itCursor)
        {
            ++itPlace;
        }
        EXPECT_EQ(itCursor, itPlace);
    }
}

/// A simple model that maps each task to its owner.
class CLS_OwnerModel
{
public:
    void Add(const std::string& _strTaskId, void* _pOwner)
    {
        m_mapIds[_pOwner].push_back(_strTaskId);
        m_mapOwners[_strTaskId] = _pOwner;
    }

    void Remove(const std::string& _strTaskId)
    {
        const auto itOwner = m_mapOwners.find(_strTaskId);
        if (itOwner != m_mapOwners.end())
        {
            const auto itIds = m_mapIds.find(itOwner->second);
            itIds->second.remove(_strTaskId);
            if (itIds->second.empty())
            {
                m_mapIds.erase(itIds);
            }
            m_mapOwners.erase(itOwner);
        }
    }

    std::list<std::string> Take(void* _pOwner)
    {
        const std::list<std::string> lstIds = m_mapIds[_pOwner];
        m_mapIds.erase(_pOwner);
        for (const std::string& strTaskId : lstIds)
        {
            m_mapOwners.erase(strTaskId);
        }
        return lstIds;
    }

    void ExpectEqual(CLS_QuenTaskPool& _clsPool) const
    {
        ASSERT_EQ(m_mapIds, PoolView::GetOwnerLists(_clsPool));
        ASSERT_EQ(m_mapOwners, PoolView::GetTaskOwners(_clsPool));
        ASSERT_NO_FATAL_FAILURE(ExpectCursorsAgree(_clsPool));
    }

private:
    std::map<void*, std::list<std::string>> m_mapIds;
    std::map<std::string, void*> m_mapOwners;
};

/// Notes the ids from 0 on for the owner, in this order, and returns them.
std::vector<std::string> AddIds(CLS_QuenTaskPool& _clsPool, void* _pOwner, int _iIds)
{
    std::vector<std::string> vecIds;
    for (int i = 0; i < _iIds; ++i)
    {
        vecIds.push_back(std::to_string(i));
        PoolView::AddOwnedTask(_clsPool, vecIds.back(), _pOwner);
    }
    return vecIds;
}

TEST_F(PoolOwnerMapsTest, DropsTheIdAndKeepsTheOwnersOthersInOrder)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    PoolView::GetOwnerLists(clsPool)[&iOwner] = {"a", "b", "c"};
    PoolView::GetTaskOwners(clsPool) = {{"a", &iOwner}, {"b", &iOwner}, {"c", &iOwner}};
    clsPool.RemoveTmpTask("b");
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), ElementsAre(Pair(&iOwner, ElementsAre("a", "c"))));
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), ElementsAre(Key("a"), Key("c")));
}

TEST_F(PoolOwnerMapsTest, DropsTheOwnerWithItsLastId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iFirst = 0;
    int iSecond = 0;
    PoolView::GetOwnerLists(clsPool) = {{&iFirst, {"a"}}, {&iSecond, {"b"}}};
    PoolView::GetTaskOwners(clsPool) = {{"a", &iFirst}, {"b", &iSecond}};
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), ElementsAre(Pair(&iSecond, ElementsAre("b"))));
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), ElementsAre(Pair("b", &iSecond)));
}

TEST_F(PoolOwnerMapsTest, DropsOnlyTheFirstOfEqualIds)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    PoolView::GetOwnerLists(clsPool)[&iOwner] = {"a", "b", "a", "c"};
    PoolView::GetTaskOwners(clsPool) = {{"a", &iOwner}};
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), ElementsAre(Pair(&iOwner, ElementsAre("b", "a", "c"))));
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), IsEmpty());
}

TEST_F(PoolOwnerMapsTest, DropsAnIdWhoseOwnerHasNoListOrNotThisId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iFirst = 0;
    int iSecond = 0;
    PoolView::GetOwnerLists(clsPool)[&iSecond] = {"z"};
    PoolView::GetTaskOwners(clsPool) = {{"a", &iFirst}, {"b", &iSecond}};
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), ElementsAre(Key("b")));
    clsPool.RemoveTmpTask("b");
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), ElementsAre(Pair(&iSecond, ElementsAre("z"))));
}

TEST_F(PoolOwnerMapsTest, LeavesEverythingAloneForAnUnknownId)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    PoolView::GetOwnerLists(clsPool)[&iOwner] = {"a", "b"};
    PoolView::GetTaskOwners(clsPool) = {{"a", &iOwner}};
    clsPool.RemoveTmpTask("b");
    clsPool.RemoveTmpTask("");
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), ElementsAre(Pair(&iOwner, ElementsAre("a", "b"))));
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), ElementsAre(Pair("a", &iOwner)));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolOwnerMapsTest, NeitherStopsTheTaskNorForgetsItNorTakesItOffTheQueue)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    ASSERT_TRUE(clsPool.AddTmpTask([] {}, &iOwner, "call"));
    const std::string strTaskId = PoolView::GetTaskOwners(clsPool).begin()->first;
    clsPool.RemoveTmpTask(strTaskId);
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), IsEmpty());
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), IsEmpty());
    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(strTaskId).lock();
    ASSERT_NE(nullptr, pTask);
    EXPECT_TRUE(pTask->GetValid());
    EXPECT_EQ(TASK_STATUS_WAITING, pTask->GetTaskStatus());
    EXPECT_THAT(PoolView::GetWaitingIds(clsPool), ElementsAre(strTaskId));
    EXPECT_THAT(LogRecorder::Take(), IsEmpty());
}

TEST_F(PoolOwnerMapsTest, IdThatIsNotedAgainBelongsToItsLastOwner)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iFirst = 0;
    int iSecond = 0;
    PoolView::AddOwnedTask(clsPool, "a", &iFirst);
    PoolView::AddOwnedTask(clsPool, "a", &iSecond);
    EXPECT_THAT(PoolView::GetTaskOwners(clsPool), ElementsAre(Pair("a", &iSecond)));
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool)[&iFirst], ElementsAre("a"));
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool)[&iSecond], ElementsAre("a"));
    clsPool.RemoveTmpTask("a");
    EXPECT_THAT(PoolView::GetOwnerLists(clsPool), ElementsAre(Pair(&iFirst, ElementsAre("a"))));
    ExpectCursorsAgree(clsPool);
}

TEST_F(PoolOwnerMapsTest, CursorIsThePlaceBehindTheIdThatWasDroppedLast)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    AddIds(clsPool, &iOwner, 6);
    const auto funGetCursor = [&] { return PoolView::GetOwnerCursors(clsPool).at(&iOwner); };
    std::list<std::string>& lstTaskIds = PoolView::GetOwnerLists(clsPool).at(&iOwner);
    EXPECT_EQ(lstTaskIds.end(), funGetCursor());
    clsPool.RemoveTmpTask("2");
    EXPECT_EQ("3", *funGetCursor());
    PoolView::AddOwnedTask(clsPool, "6", &iOwner);
    EXPECT_EQ("3", *funGetCursor());
    clsPool.RemoveTmpTask("4");
    EXPECT_EQ("5", *funGetCursor());
    clsPool.RemoveTmpTask("unknown");
    EXPECT_EQ("5", *funGetCursor());
    clsPool.RemoveTmpTask("0");
    EXPECT_EQ("1", *funGetCursor());
    clsPool.RemoveTmpTask("6");
    EXPECT_EQ(lstTaskIds.end(), funGetCursor());
    EXPECT_THAT(lstTaskIds, ElementsAre("1", "3", "5"));
}

TEST_F(PoolOwnerMapsTest, SearchesAlternatelyOnBothSidesOfTheCursor)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    // No two tasks share an id in practice. Here, duplicates show which occurrence the search finds first.
    const auto funDropAfterMiddle = [&](const std::list<std::string>& _lstTaskIds)
    {
        PoolView::GetOwnerCursors(clsPool).clear();
        PoolView::GetOwnerLists(clsPool)[&iOwner] = _lstTaskIds;
        PoolView::GetTaskOwners(clsPool) = {{"middle", &iOwner}, {"x", &iOwner}};
        clsPool.RemoveTmpTask("middle");
        clsPool.RemoveTmpTask("x");
        return PoolView::GetOwnerLists(clsPool)[&iOwner];
    };
    EXPECT_THAT(funDropAfterMiddle({"x", "a", "middle", "b", "x"}), ElementsAre("x", "a", "b"));
    EXPECT_THAT(funDropAfterMiddle({"x", "middle", "b", "x"}), ElementsAre("b", "x"));
    EXPECT_THAT(funDropAfterMiddle({"x", "a", "middle", "b", "c", "x"}), ElementsAre("a", "b", "c", "x"));
    EXPECT_THAT(funDropAfterMiddle({"x", "a", "b", "middle", "x"}), ElementsAre("x", "a", "b"));
    EXPECT_THAT(funDropAfterMiddle({"x", "middle", "x"}), ElementsAre("x"));
}

TEST_F(PoolOwnerMapsTest, OwnerWhoseTasksAreAllGoneGetsANewList)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    for (int iRound = 0; iRound < 3; ++iRound)
    {
        for (const std::string& strTaskId : AddIds(clsPool, &iOwner, 3))
        {
            ExpectCursorsAgree(clsPool);
            clsPool.RemoveTmpTask(strTaskId);
        }
        EXPECT_THAT(PoolView::GetOwnerLists(clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetOwnerCursors(clsPool), IsEmpty());

        const std::vector<std::string> vecIds = AddIds(clsPool, &iOwner, 3);
        clsPool.RemoveTmpTask("1");
        EXPECT_THAT(PoolView::TakeOwnedTasks(clsPool, &iOwner), ElementsAre("0", "2"));
        EXPECT_THAT(PoolView::GetOwnerLists(clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetTaskOwners(clsPool), IsEmpty());
        EXPECT_THAT(PoolView::GetOwnerCursors(clsPool), IsEmpty());
        EXPECT_THAT(PoolView::TakeOwnedTasks(clsPool, &iOwner), IsEmpty());
    }
}

TEST_F(PoolOwnerMapsTest, IdsAreDroppedInAnyOrder)
{
    constexpr int IDS = 50;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    int iOwner = 0;
    std::vector<std::vector<std::string>> vecOrders(3, AddIds(clsPool, &iOwner, IDS));
    PoolView::TakeOwnedTasks(clsPool, &iOwner);
    std::reverse(vecOrders[1].begin(), vecOrders[1].end());
    std::shuffle(vecOrders[2].begin(), vecOrders[2].end(), std::mt19937(3)); // the same order each time
    for (const int iStale : {0, 20})
    {
        for (const std::vector<std::string>& vecOrder : vecOrders)
        {
            CLS_OwnerModel clsModel;
            for (int i = 0; i < iStale + IDS; ++i)
            {
                const std::string strTaskId =
                    i < iStale ? "stale" + std::to_string(i) : std::to_string(i - iStale);
                PoolView::AddOwnedTask(clsPool, strTaskId, &iOwner);
                clsModel.Add(strTaskId, &iOwner);
            }
            for (const std::string& strTaskId : vecOrder)
            {
                clsPool.RemoveTmpTask(strTaskId);
                clsModel.Remove(strTaskId);
                ASSERT_NO_FATAL_FAILURE(clsModel.ExpectEqual(clsPool)) << strTaskId;
            }
            EXPECT_EQ(static_cast<std::size_t>(iStale), PoolView::TakeOwnedTasks(clsPool, &iOwner).size());
        }
    }
}

TEST_F(PoolOwnerMapsTest, AgreesWithASimpleModelOverManyOperations)
{
    constexpr int OPERATIONS = 5000;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    CLS_OwnerModel clsModel;
    std::array<int, 3> arrOwners{};
    std::mt19937 clsRandom(20); // arbitrary operations, but the same each time
    const auto funDraw = [&](std::size_t _uiEnd) { return std::size_t{clsRandom()} % _uiEnd; };
    std::vector<std::string> vecKnown{"never noted"};
    for (int i = 0; i < OPERATIONS; ++i)
    {
        void* const pOwner = &arrOwners.at(funDraw(arrOwners.size()));
        const std::size_t uiKind = funDraw(100);
        if (uiKind < 50)
        {
            vecKnown.push_back(std::to_string(i));
            PoolView::AddOwnedTask(clsPool, vecKnown.back(), pOwner);
            clsModel.Add(vecKnown.back(), pOwner);
        }
        else if (uiKind < 99)
        {
            // Mostly recent ids, so that old ones gather at the front. Many of the ids are already removed.
            const std::size_t uiYoung =
                funDraw(4) == 0 ? vecKnown.size() : std::min<std::size_t>(vecKnown.size(), 8);
            const std::string strTaskId = vecKnown[vecKnown.size() - 1 - funDraw(uiYoung)];
            clsPool.RemoveTmpTask(strTaskId);
            clsModel.Remove(strTaskId);
        }
        else
        {
            ASSERT_EQ(clsModel.Take(pOwner), PoolView::TakeOwnedTasks(clsPool, pOwner));
        }
        ASSERT_NO_FATAL_FAILURE(clsModel.ExpectEqual(clsPool)) << "operation " << i;
    }
    EXPECT_FALSE(PoolView::GetOwnerLists(clsPool).empty());
}
} // namespace
