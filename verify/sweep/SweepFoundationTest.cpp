// Sweeps of the base object and of the utilities.

#include "QuenInclude/CLS_Basic.h"
#include "tests/support/RecordMatchers.h"
#include "verify/sweep/SweepFixture.h"

#include <stdexcept>

namespace
{
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using VariantMap = std::map<std::string, CLS_CVariant>;

constexpr const char* NAME = "a name that is too long for the text object itself";
constexpr const char* TEXT = "a text that is too long for the text object itself";

/// Sweeps operations on an object with parameters.
class SweepFoundationTest : public CLS_SweepFixture
{
protected:
    /// Sweeps an operation from which std::bad_alloc propagates. After a failure, the parameters are
    /// unchanged, and the operation succeeds when it is tried again.
    void SweepParameters(const std::string& _strOperation, int _iLeastPoints,
                         const std::function<void(CLS_Basic&)>& _funOperate)
    {
        Sweep("CLS_Basic::" + _strOperation, _iLeastPoints,
              [&](CLS_SweepPoint& _clsPoint)
              {
                  CLS_Basic clsExpected;
                  clsExpected.SetParam(MakeParam());
                  CLS_Basic clsObject;
                  clsObject.SetParam(MakeParam());
                  const std::string strBefore = clsObject.ParamToString();
                  const bool bFailed = _clsPoint.FailAndThrow([&] { _funOperate(clsObject); });
                  _funOperate(clsExpected);
                  EXPECT_EQ(bFailed ? strBefore : clsExpected.ParamToString(), clsObject.ParamToString());
                  _funOperate(clsObject);
                  EXPECT_EQ(clsExpected.ParamToString(), clsObject.ParamToString());
              });
    }

    static VariantMap MakeParam() { return {{"__id__", "id"}, {NAME, TEXT}, {"list", MakeList()}}; }
    static std::vector<CLS_CVariant> MakeList() { return {TEXT, 1}; }
};

TEST_F(SweepFoundationTest, ParametersAreSetWhollyOrNotAtAll)
{
    const CLS_CVariant clsValue(MakeList());
    const VariantMap mapValues{{"new", MakeList()}, {NAME, MakeList()}};
    const std::string strName = NAME;
    const std::string strNew = "another name that is too long for the text object";
    SweepParameters("SetParam", 3, [&](CLS_Basic& _clsObject) { _clsObject.SetParam(strNew, clsValue); });
    SweepParameters("SetParam over a value", 3,
                    [&](CLS_Basic& _clsObject) { _clsObject.SetParam(strName, clsValue); });
    SweepParameters("SetParam of all", 5, [&](CLS_Basic& _clsObject) { _clsObject.SetParam(mapValues); });
    SweepParameters("SetId", 2, [&](CLS_Basic& _clsObject) { _clsObject.SetId(clsValue); });
}

TEST_F(SweepFoundationTest, ParametersAreReadWhollyOrNotAtAll)
{
    const std::string strName = NAME;
    SweepParameters("Param", 2, [&](CLS_Basic& _clsObject) { _clsObject.Param(strName); });
    SweepParameters("Param of all", 5, [](CLS_Basic& _clsObject) { _clsObject.Param(); });
    SweepParameters("ParamToString", 2, [](CLS_Basic& _clsObject) { _clsObject.ParamToString(); });
}

TEST_F(SweepFoundationTest, RemovalOfAParameterNeedsNoMemory)
{
    const std::string strName = NAME;
    Sweep("CLS_Basic::RemoveParam", 0,
          [&](CLS_SweepPoint& _clsPoint)
          {
              CLS_Basic clsObject;
              clsObject.SetParam(MakeParam());
              EXPECT_FALSE(_clsPoint.Fail([&] { clsObject.RemoveParam(strName); }));
              EXPECT_EQ(2U, clsObject.Param().size());
          });
}

TEST_F(SweepFoundationTest, AnIdThatCouldNotBeMadeIsMadeByALaterCall)
{
    Sweep("CLS_Basic::GetId", 4,
          [](CLS_SweepPoint& _clsPoint)
          {
              CLS_Basic clsObject;
              _clsPoint.FailAndThrow([&] { clsObject.GetId(); });
              const std::string strId = clsObject.GetId();
              EXPECT_NE("", strId);
              EXPECT_EQ(strId, clsObject.GetId());
              EXPECT_EQ("[__id__] : [" + strId + "]\n", clsObject.ParamToString());
          });
}

TEST_F(SweepFoundationTest, CallBackIsRegisteredWhollyOrNotAtAll)
{
    const CallBackResultFun funCallBack = [funRun = MakeCallable()](const std::string&, const VariantMap&,
                                                                    const std::string&, void*) { funRun(); };
    Sweep("CLS_Basic::SetCallBackResultFun", 3,
          [&](CLS_SweepPoint& _clsPoint)
          {
              CLS_Basic clsObject;
              std::string strKey;
              const bool bFailed =
                  _clsPoint.FailAndThrow([&] { strKey = clsObject.SetCallBackResultFun(funCallBack, this); });
              const int iBefore = m_clsRuns.Get();
              clsObject.RunCallBackFun("", {}, "", "");
              EXPECT_EQ(iBefore + (bFailed ? 0 : 1), m_clsRuns.Get());
              EXPECT_EQ(bFailed, strKey.empty());
              strKey = clsObject.SetCallBackResultFun(funCallBack, this);
              clsObject.RunCallBackFun("", {}, "", strKey);
              EXPECT_EQ(iBefore + (bFailed ? 1 : 2), m_clsRuns.Get());
              EXPECT_FALSE(_clsPoint.HasFailed() &&
                           CLS_SweepPoint(1).Fail([&] { clsObject.RmoveCallBackResultFun(strKey); }))
                  << "removal needs no memory";
              EXPECT_THAT(LogRecorder::Take(), IsEmpty());
          });
}

TEST_F(SweepFoundationTest, CallBackRunsAndItsExceptionIsRecordedUnlessThereIsNoMemoryForThat)
{
    const std::string strClass = CLS_Basic().GetClassCode();
    const auto isFailure =
        IsRecord(3, strClass, "QuenInclude/CLS_Basic", "RunCallBackFun", strClass + "call back Fail" + TEXT);
    Sweep("CLS_Basic::RunCallBackFun", 3,
          [&](CLS_SweepPoint& _clsPoint)
          {
              CLS_Basic clsObject;
              const std::runtime_error errThrown(TEXT);
              const std::string strKey =
                  clsObject.SetCallBackResultFun([&errThrown](const std::string&, const VariantMap&,
                                                              const std::string&, void*) { throw errThrown; },
                                                 nullptr);
              const bool bFailed =
                  _clsPoint.FailAndThrow([&] { clsObject.RunCallBackFun("", {}, "", strKey); });
              if (bFailed)
              {
                  EXPECT_THAT(LogRecorder::Take(), IsEmpty());
              }
              else
              {
                  EXPECT_THAT(LogRecorder::Take(), ElementsAre(isFailure));
              }
              // The lock is free again.
              clsObject.SetCallBackResultFun({}, nullptr);
              clsObject.RunCallBackFun("", {}, "", strKey);
              EXPECT_THAT(LogRecorder::Take(), ElementsAre(isFailure));
          });
}

TEST_F(SweepFoundationTest, UtilitiesThrowAndWorkWhenTriedAgain)
{
    // GNU's texts need memory of their own from fewer characters on.
#ifdef _LIBCPP_VERSION
    constexpr int LEAST_POINTS_OF_MAP = 3;
#else
    constexpr int LEAST_POINTS_OF_MAP = 4;
#endif
    const std::string strText = std::string(TEXT) + "," + TEXT;
    const VariantMap mapParam = MakeParam();
    Sweep("Util::SplitStdString", 4,
          [&](CLS_SweepPoint& _clsPoint)
          {
              _clsPoint.FailAndThrow([&] { Util::SplitStdString(strText, ","); });
              EXPECT_THAT(Util::SplitStdString(strText, ","), ElementsAre(TEXT, TEXT));
          });
    Sweep("Util::MapToString", LEAST_POINTS_OF_MAP,
          [&](CLS_SweepPoint& _clsPoint)
          {
              _clsPoint.FailAndThrow([&] { Util::MapToString(mapParam); });
              EXPECT_EQ(std::string("[__id__] : [id]\n[") + NAME + "] : [" + TEXT + "]\n[list] : [" + TEXT +
                            "|1]\n",
                        Util::MapToString(mapParam));
          });
    Sweep("Util::GetUuid", 1,
          [](CLS_SweepPoint& _clsPoint)
          {
              _clsPoint.FailAndThrow([] { Util::GetUuid(); });
              EXPECT_NE("", Util::GetUuid());
          });
}

TEST_F(SweepFoundationTest, AllocationsOfARecordAreLeftAlone)
{
    const std::string strLong(100000, 'x');
    LogRecorder::SetHook(
        [](const LogRecorder::ST_Record&)
        {
            EXPECT_TRUE(FailingMemory::IsExempt());
            const std::string strOwn(1000, 'y');
        });
    bool bFailed = true;
    {
        FailingMemory::FailAt(1);
        Logger::LogMessageStream("Module", "Function", "File", 1, Logger::LOG_LEVEL_ERROR)
            << strLong << std::string(1000, 'z') << 17;
        bFailed = FailingMemory::Stop();
    }
    LogRecorder::SetHook({});
    EXPECT_FALSE(bFailed);
    EXPECT_FALSE(FailingMemory::IsExempt());
    EXPECT_THAT(LogRecorder::Take(), ElementsAre(IsRecord(3, "Module", "File", "Function",
                                                          strLong + std::string(1000, 'z') + "17")));
    EXPECT_TRUE(CLS_SweepPoint(1).FailAndThrow([] { const CLS_CVariant clsVariant(TEXT); }))
        << "failures are possible again after the log record";
}
} // namespace
