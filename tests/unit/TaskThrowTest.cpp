// Whatever a callable throws, the run makes its log record, the worker continues, and no exception object
// leaks.

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <atomic>
#include <exception>
#include <gmock/gmock.h>
#include <optional>
#include <stdexcept>
#include <utility>

namespace
{
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

/// The number of this test's exceptions that currently exist.
std::atomic<int> g_iAlive{0};

class CLS_Alive
{
public:
    CLS_Alive() { ++g_iAlive; }
    CLS_Alive(const CLS_Alive&) { ++g_iAlive; }
    CLS_Alive& operator=(const CLS_Alive&) = default;
    ~CLS_Alive() { --g_iAlive; }
};

/// A standard exception with any text, or with none.
class CLS_Error : public std::exception
{
public:
    explicit CLS_Error(std::optional<std::string> _optText) : m_optText(std::move(_optText)) {}
    const char* what() const noexcept override { return m_optText ? m_optText->c_str() : nullptr; }

private:
    CLS_Alive m_clsAlive;
    std::optional<std::string> m_optText;
};

/// Exceptions that a handler of standard exceptions does not catch: the base is not accessible, or is
/// ambiguous.
class CLS_PrivateError : CLS_Error
{
public:
    CLS_PrivateError() : CLS_Error("private") {}
};
class CLS_LeftError : public CLS_Error
{
public:
    CLS_LeftError() : CLS_Error("left") {}
};
class CLS_RightError : public CLS_Error
{
public:
    CLS_RightError() : CLS_Error("right") {}
};
class CLS_TwofoldError : public CLS_LeftError, public CLS_RightError
{
};

/// Its copy constructor throws.
class CLS_CopyThrows : public CLS_Error
{
public:
    CLS_CopyThrows() : CLS_Error("cannot be copied") {}
    CLS_CopyThrows(const CLS_CopyThrows& _clsOther) : CLS_Error(_clsOther)
    {
        throw std::runtime_error("the copy failed");
    }
    CLS_CopyThrows& operator=(const CLS_CopyThrows&) = delete;
};

/// Exceptions whose destructor has thrown. They are never freed. This list keeps them reachable for the leak
/// check.
std::array<std::atomic<const void*>, 100> g_arrLeft{};
std::atomic<std::size_t> g_uiLeft{0};

/// Its destructor throws another such exception with one level less. At the last level, it throws a
/// CLS_Error.
class CLS_ThrowingEnd
{
public:
    explicit CLS_ThrowingEnd(int _iLevels) : m_iLevels(_iLevels) {}
    CLS_ThrowingEnd(const CLS_ThrowingEnd&) = delete;
    CLS_ThrowingEnd& operator=(const CLS_ThrowingEnd&) = delete;
    ~CLS_ThrowingEnd() noexcept(false)
    {
        g_arrLeft.at(g_uiLeft++) = this;
        if (m_iLevels == 1)
        {
            throw CLS_Error("the last end");
        }
        throw CLS_ThrowingEnd(m_iLevels - 1);
    }

private:
    CLS_Alive m_clsAlive;
    int m_iLevels;
};

/// Calls the pool to make its text.
class CLS_TextCallsThePool : public std::exception
{
public:
    const char* what() const noexcept override
    {
        const std::string strTaskId = CLS_Task::CreateTask([] {}, -1, "text")->GetId();
        RemoveTask(strTaskId, "text");
        return PoolView::IsRegistered(strTaskId) ? "did nothing" : "called the pool";
    }

private:
    CLS_Alive m_clsAlive;
};

[[noreturn]] void ThrowNested()
{
    try
    {
        throw CLS_Error("inner");
    }
    catch (...)
    {
        std::throw_with_nested(CLS_Error("outer"));
    }
}

[[noreturn]] void ThrowCopy()
{
    const CLS_CopyThrows clsOriginal;
    throw clsOriginal; // NOLINT(cert-err60-cpp): the test needs an exception that cannot be copied
}

enum n_Reason
{
    REASON_ANY
};

const CLS_Error& GetStaticError()
{
    static const CLS_Error& s_clsError = *new CLS_Error("not thrown itself");
    return s_clsError;
}

/// The exception, and the beginning of the run's log records; the parameters follow.
struct ST_Throw
{
    const char* m_szName;
    void (*m_funThrow)();
    std::vector<std::string> m_vecRecords;
};

void PrintTo(const ST_Throw& _stThrow, std::ostream* _pOut)
{
    *_pOut << _stThrow.m_szName;
}

std::string Standard(const std::string& _strText)
{
    return "run function error :" + _strText + " param :";
}

const std::string OTHER = "run function error ";
constexpr std::size_t MEGABYTE = 1U << 20U;

class TaskThrowTest : public CLS_PoolFixture
{
protected:
    void SetUp() override
    {
        CLS_PoolFixture::SetUp();
        GetStaticError();
        g_iAlive = 0;
    }
};

class TaskThrowKindTest : public TaskThrowTest, public ::testing::WithParamInterface<ST_Throw>
{
};

TEST_P(TaskThrowKindTest, EveryRunLeavesItsRecordsAndTheWorkerGoesOn)
{
    constexpr int RUNS = 3;
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    clsPool.AddLoopTask(GetParam().m_funThrow, 0, strTaskId, "throwing");
    for (int iRun = 0; iRun < RUNS; ++iRun)
    {
        PoolView::RunDispatchPass(clsPool);
        ASSERT_TRUE(WaitForIdle(clsPool, 1));
        EXPECT_EQ(0, g_iAlive);
        EXPECT_EQ(TASK_STATUS_IDLE, PoolView::GetTask(strTaskId)->GetTaskStatus());
        std::vector<::testing::Matcher<LogRecorder::ST_Record>> vecExpected;
        for (const std::string& strBegin : GetParam().m_vecRecords)
        {
            vecExpected.emplace_back(
                IsTaskRecord(3, "Running", strBegin + MakeParamText(strTaskId, "throwing")));
        }
        EXPECT_THAT(LogRecorder::Take(), ElementsAreArray(vecExpected));
        PoolView::RunLoopPass(clsPool);
    }
    clsPool.RemoveTask(strTaskId, "");
    PoolView::ClearQueue(clsPool);

    CLS_Gate clsRan;
    ASSERT_TRUE(clsPool.AddTmpTask([&clsRan] { clsRan.Open(); }, &clsRan, "next"));
    PoolView::RunDispatchPass(clsPool);
    EXPECT_TRUE(clsRan.Wait());
    EXPECT_EQ(1, clsPool.GetTaskThreadNum());
}

#ifndef _LIBCPP_VERSION // its runtime ends the process when an exception's destructor throws
TEST_F(TaskThrowTest, ExceptionThatGetsPastBothRecordsIsARunErrorAndTheWorkerGoesOn)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    std::string strTaskId;
    clsPool.AddLoopTask([] { throw CLS_ThrowingEnd(2); }, 0, strTaskId, "throwing");
    const std::string strParam = MakeParamText(strTaskId, "throwing");
    for (int iRun = 0; iRun < 2; ++iRun)
    {
        PoolView::RunDispatchPass(clsPool);
        ASSERT_TRUE(WaitForIdle(clsPool, 1));
        EXPECT_EQ(0, g_iAlive);
        EXPECT_THAT(LogRecorder::Take(),
                    ElementsAre(IsTaskRecord(3, "Running", OTHER + strParam),
                                IsTaskRecord(3, "Running", "Running error " + strParam),
                                IsPoolRecord(3, "FunRunTask", "task run error - 0 " + strParam)));
        PoolView::RunLoopPass(clsPool);
    }
}
#endif

const ST_Throw THROWS[] = {
    {"Standard", [] { throw CLS_Error("what happened"); }, {Standard("what happened")}},
    {"StandardOfTheLanguage", [] { throw std::bad_alloc(); }, {Standard(std::bad_alloc().what())}},
    {"Text", [] { throw std::string("text"); }, {OTHER}},
    {"TextPointer", [] { throw "text"; }, {OTHER}},
    {"Integer", [] { throw 42; }, {OTHER}},
    {"Enumerator", [] { throw REASON_ANY; }, {OTHER}},
    {"NullPointer", [] { throw nullptr; }, {OTHER}},
    {"PointerToAnError", [] { throw &GetStaticError(); }, {OTHER}},
    {"Function", [] { throw &ThrowNested; }, {OTHER}},
    {"PrivateStandard", [] { throw CLS_PrivateError(); }, {OTHER}},
    {"TwofoldStandard", [] { throw CLS_TwofoldError(); }, {OTHER}},
    {"Nested", [] { ThrowNested(); }, {Standard("outer")}},
    {"ThrownAgain",
     [] { std::rethrow_exception(std::make_exception_ptr(CLS_Error("again"))); },
     {Standard("again")}},
    {"WithEmptyText", [] { throw CLS_Error(""); }, {Standard("")}},
    {"WithoutText", [] { throw CLS_Error(std::nullopt); }, {OTHER}},
    {"WithTextOfSeveralLines", [] { throw CLS_Error("[a]\n%s\t"); }, {Standard("[a]\n%s\t")}},
    {"WithAMegabyteOfText",
     [] { throw CLS_Error(std::string(MEGABYTE, 'x')); },
     {Standard(std::string(MEGABYTE, 'x'))}},
    {"WithTextThatCallsThePool", [] { throw CLS_TextCallsThePool(); }, {Standard("called the pool")}},
    {"ThatCannotBeCopiedButNeedNot", [] { throw CLS_CopyThrows(); }, {Standard("cannot be copied")}},
    {"ThatCannotBeCopied", [] { ThrowCopy(); }, {Standard("the copy failed")}},
#ifndef _LIBCPP_VERSION
    {"WhoseDestructorThrows",
     [] { throw CLS_ThrowingEnd(1); },
     {OTHER, "Running error :the last end param :"}},
#endif
};
INSTANTIATE_TEST_SUITE_P(Throws, TaskThrowKindTest, ::testing::ValuesIn(THROWS),
                         [](const auto& _stInfo) { return std::string(_stInfo.param.m_szName); });
} // namespace
