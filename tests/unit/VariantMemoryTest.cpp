#include "QuenInclude/CLS_CVariant.h"
#include "tests/support/VariantView.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <utility>

// On some platforms, the sanitizers define their own operators. There, the linker redirects the program's
// calls to these. Elsewhere, these are the program's operators.
#ifdef ZEL_TEST_WRAPPED_NEW
#define OPERATOR_NEW __wrap__Znwm
#define OPERATOR_DELETE __wrap__ZdlPv
#define OPERATOR_DELETE_SIZED __wrap__ZdlPvm
extern "C"
{
    void* __real__Znwm(std::size_t _uiSize);
    void __real__ZdlPv(void* _pMemory) noexcept;
    void* __wrap__Znwm(std::size_t _uiSize);
    void __wrap__ZdlPv(void* _pMemory) noexcept;
    void __wrap__ZdlPvm(void* _pMemory, std::size_t _uiSize) noexcept;
}
#else
#define OPERATOR_NEW operator new
#define OPERATOR_DELETE operator delete
#define OPERATOR_DELETE_SIZED operator delete
#endif

namespace
{
/// Settings and counts for the allocations of this thread.
struct ST_Memory
{
    int m_iUntilFailure = -1; ///< allocations that succeed before one fails; negative if none fails
    long m_iLive = 0;         ///< allocations minus releases
};

thread_local ST_Memory t_stMemory;

void* AllocateReally(std::size_t _uiSize)
{
#ifdef ZEL_TEST_WRAPPED_NEW
    return __real__Znwm(_uiSize);
#else
    void* const pMemory = std::malloc(_uiSize == 0 ? 1 : _uiSize);
    return pMemory == nullptr ? throw std::bad_alloc() : pMemory;
#endif
}

void ReleaseReally(void* _pMemory)
{
#ifdef ZEL_TEST_WRAPPED_NEW
    __real__ZdlPv(_pMemory);
#else
    std::free(_pMemory);
#endif
}

void* Allocate(std::size_t _uiSize)
{
    if (t_stMemory.m_iUntilFailure == 0)
    {
        t_stMemory.m_iUntilFailure = -1;
        throw std::bad_alloc();
    }
    if (t_stMemory.m_iUntilFailure > 0)
    {
        --t_stMemory.m_iUntilFailure;
    }
    void* const pMemory = AllocateReally(_uiSize);
    ++t_stMemory.m_iLive;
    return pMemory;
}

void Release(void* _pMemory)
{
    if (_pMemory != nullptr)
    {
        --t_stMemory.m_iLive;
        ReleaseReally(_pMemory);
    }
}
} // namespace

void* OPERATOR_NEW(std::size_t _uiSize)
{
    return Allocate(_uiSize);
}

void OPERATOR_DELETE(void* _pMemory) noexcept
{
    Release(_pMemory);
}

void OPERATOR_DELETE_SIZED(void* _pMemory, std::size_t /*_uiSize*/) noexcept
{
    Release(_pMemory);
}

namespace
{
using Variants = std::vector<CLS_CVariant>;
using VariantMap = std::map<std::string, CLS_CVariant>;

/// A text short enough to fit inside its string object. The standard library allocates longer texts itself,
/// where the linker cannot redirect the calls.
constexpr const char* TEXT = "short";

CLS_CVariant MakeNested()
{
    return VariantMap{
        {"list", Variants{1, TEXT, Variants{TEXT}}}, {"map", VariantMap{{TEXT, TEXT}}}, {"text", TEXT}};
}

std::vector<CLS_CVariant> MakeOwning()
{
    return {TEXT, Variants{1, TEXT}, VariantMap{{"a", TEXT}}, MakeNested()};
}

/// Makes each allocation of _funCopy fail in turn, until _funCopy succeeds. Calls _funCheck after each
/// failure. Returns the number of failures.
int FailEachAllocation(const std::function<void()>& _funCopy, const std::function<void()>& _funCheck)
{
    for (int iFailures = 0;; ++iFailures)
    {
        const long iLiveBefore = t_stMemory.m_iLive;
        t_stMemory.m_iUntilFailure = iFailures;
        try
        {
            _funCopy();
            t_stMemory.m_iUntilFailure = -1;
            return iFailures;
        }
        catch (const std::bad_alloc&)
        {
            t_stMemory.m_iUntilFailure = -1;
        }
        EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive) << "failure " << iFailures;
        _funCheck();
    }
}

TEST(VariantMemoryTest, AFailedCopyLeavesTheTargetAsItWas)
{
    const CLS_CVariant clsSource = MakeNested();
    for (const CLS_CVariant& clsBefore : MakeOwning())
    {
        CLS_CVariant clsTarget(clsBefore);
        const void* const pValue = VariantView::GetPointer(clsTarget);
        const int iFailures = FailEachAllocation([&] { clsTarget = clsSource; },
                                                 [&]
                                                 {
                                                     EXPECT_EQ(clsBefore.GetType(), clsTarget.GetType());
                                                     EXPECT_EQ(pValue, VariantView::GetPointer(clsTarget));
                                                     EXPECT_EQ(clsBefore.ToString(), clsTarget.ToString());
                                                 });
        EXPECT_GT(iFailures, 10);
        EXPECT_EQ(3U, clsTarget.ToMap().size());
    }
}

TEST(VariantMemoryTest, AFailedCopyOverAnInPlaceValueLeavesIt)
{
    const CLS_CVariant clsSource(TEXT);
    CLS_CVariant clsTarget(5);
    const int iFailures = FailEachAllocation([&] { clsTarget = clsSource; },
                                             [&]
                                             {
                                                 EXPECT_EQ(CVariantType_LongLong, clsTarget.GetType());
                                                 EXPECT_EQ("5", clsTarget.ToString());
                                             });
    EXPECT_EQ(1, iFailures);
    EXPECT_EQ(TEXT, clsTarget.ToString());
}

TEST(VariantMemoryTest, AFailedCopyOfAnOwnElementLeavesTheList)
{
    CLS_CVariant clsVariant(Variants{TEXT, 2});
    const std::string strBefore = clsVariant.ToString();
    const int iFailures = FailEachAllocation([&] { clsVariant = (*VariantView::GetList(clsVariant))[0]; },
                                             [&] { EXPECT_EQ(strBefore, clsVariant.ToString()); });
    EXPECT_EQ(1, iFailures);
    EXPECT_EQ(TEXT, clsVariant.ToString());
}

TEST(VariantMemoryTest, AFailedConstructionLeavesNothingBehind)
{
    const CLS_CVariant clsSource = MakeNested();
    const VariantMap mapSource = clsSource.ToMap();
    const Variants vecSource{TEXT, mapSource};
    const std::string strSource = TEXT;
    EXPECT_GT(FailEachAllocation([&] { const CLS_CVariant clsCopy(clsSource); }, [] {}), 10);
    EXPECT_GT(FailEachAllocation([&] { const CLS_CVariant clsCopy(mapSource); }, [] {}), 10);
    EXPECT_GT(FailEachAllocation([&] { const CLS_CVariant clsCopy(vecSource); }, [] {}), 10);
    EXPECT_EQ(1, FailEachAllocation([&] { const CLS_CVariant clsCopy(strSource); }, [] {}));
}

TEST(VariantMemoryTest, DestructionFreesWhatIsOwnedExactlyOnce)
{
    const std::vector<CLS_CVariant> vecSources = MakeOwning();
    for (const CLS_CVariant& clsSource : vecSources)
    {
        const long iLiveBefore = t_stMemory.m_iLive;
        long iLiveDuring = 0;
        {
            const CLS_CVariant clsVariant(clsSource);
            iLiveDuring = t_stMemory.m_iLive;
        }
        EXPECT_LT(iLiveBefore, iLiveDuring);
        EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive);
    }
}

TEST(VariantMemoryTest, ANewTypeFreesWhatIsOwnedExactlyOnce)
{
    const std::vector<CLS_CVariant> vecSources = MakeOwning();
    for (const CLS_CVariant& clsSource : vecSources)
    {
        for (int iType = -2; iType <= 7; ++iType)
        {
            const long iLiveBefore = t_stMemory.m_iLive;
            {
                CLS_CVariant clsVariant(clsSource);
                clsVariant.SetType(static_cast<n_CVariantType>(iType));
                EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive) << "type " << iType;
            }
            EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive) << "type " << iType;
        }
    }
}

TEST(VariantMemoryTest, AssignmentFreesWhatIsOwnedExactlyOnce)
{
    const std::vector<CLS_CVariant> vecSources = MakeOwning();
    const CLS_CVariant clsPlain(5);
    for (const CLS_CVariant& clsSource : vecSources)
    {
        const long iLiveBefore = t_stMemory.m_iLive;
        CLS_CVariant clsVariant(clsSource);
        for (const CLS_CVariant& clsNext : vecSources)
        {
            clsVariant = clsNext;
        }
        clsVariant = clsPlain;
        EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive);
    }
}

TEST(VariantMemoryTest, AnInPlaceValueNeedsNoMemory)
{
    const long iLiveBefore = t_stMemory.m_iLive;
    t_stMemory.m_iUntilFailure = 0;
    int iTarget = 0;
    {
        CLS_CVariant clsVariant(1);
        clsVariant = CLS_CVariant(true);
        clsVariant = CLS_CVariant(0.5);
        clsVariant = CLS_CVariant(static_cast<void*>(&iTarget));
        clsVariant.SetType(CVariantType_Map);
    }
    t_stMemory.m_iUntilFailure = -1;
    EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive);
}

/// The number of allocations that _funMove makes. None of them fails, because a move must not throw.
int CountAllocations(const std::function<void()>& _funMove)
{
    constexpr int MANY = 1000;
    t_stMemory.m_iUntilFailure = MANY;
    _funMove();
    return MANY - std::exchange(t_stMemory.m_iUntilFailure, -1);
}

TEST(VariantMemoryTest, AMoveNeedsNoMemory)
{
    for (CLS_CVariant clsSource : MakeOwning())
    {
        CLS_CVariant clsTarget(5);
        EXPECT_EQ(0, CountAllocations([&] { clsTarget = std::move(clsSource); }));
        EXPECT_EQ(0, CountAllocations([&] { const CLS_CVariant clsNew(std::move(clsTarget)); }));
    }
}

TEST(VariantMemoryTest, AMoveFreesWhatTheTargetOwnedExactlyOnceAndNothingElse)
{
    const std::vector<CLS_CVariant> vecSources = MakeOwning();
    for (const CLS_CVariant& clsBefore : vecSources)
    {
        for (const CLS_CVariant& clsOriginal : vecSources)
        {
            const long iLiveBefore = t_stMemory.m_iLive;
            {
                CLS_CVariant clsSource(clsOriginal);
                const long iLiveSource = t_stMemory.m_iLive;
                CLS_CVariant clsTarget(clsBefore);
                clsTarget = std::move(clsSource);
                EXPECT_EQ(iLiveSource, t_stMemory.m_iLive);
                clsTarget = CLS_CVariant(5);
                EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive);
            }
            EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive);
        }
    }
}

TEST(VariantMemoryTest, AMoveOfAnOwnElementFreesTheOthers)
{
    const long iLiveBefore = t_stMemory.m_iLive;
    {
        CLS_CVariant clsVariant(Variants{TEXT, MakeNested()});
        clsVariant = std::move((*VariantView::GetList(clsVariant))[0]);
        EXPECT_EQ(TEXT, clsVariant.ToString());
        EXPECT_EQ(iLiveBefore + 1, t_stMemory.m_iLive);
    }
    EXPECT_EQ(iLiveBefore, t_stMemory.m_iLive);
}

TEST(VariantMemoryTest, AMovedStringNeedsMemoryForItsObjectAlone)
{
    std::string strText(1000, 'x');
    EXPECT_EQ(1, CountAllocations([&] { const CLS_CVariant clsVariant(std::move(strText)); }));
}
} // namespace
