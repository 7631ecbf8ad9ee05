// Ids on a machine that has just started, made by a thread with a small number.

#include "QuenInclude/Util.h"
#include "tests/support/NextFunction.h"

#include <cstdint>
#include <cstring>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

namespace
{
struct ST_IdSource
{
    std::uint64_t m_uiThread;
    timespec m_stTime;
};

thread_local const ST_IdSource* t_pFigures = nullptr;

/// A pthread_t is a number on some platforms and a pointer on others.
pthread_t ToThread(std::uint64_t _uiNumber)
{
    pthread_t idThread{};
    static_assert(sizeof(idThread) == sizeof(_uiNumber));
    std::memcpy(&idThread, &_uiNumber, sizeof(idThread));
    return idThread;
}

/// An id that the calling thread makes while the system returns these figures.
std::string MakeId(const ST_IdSource& _stFigures)
{
    t_pFigures = &_stFigures;
    std::string strId = Util::GetUuid();
    t_pFigures = nullptr;
    return strId;
}
} // namespace

// These replace the system's functions of the same names.

extern "C" pthread_t pthread_self() ZEL_TEST_NOEXCEPT
{
    static auto* const s_pSelf = GetNextFunction<decltype(pthread_self)>("pthread_self");
    return t_pFigures != nullptr ? ToThread(t_pFigures->m_uiThread) : s_pSelf();
}

extern "C" int clock_gettime(clockid_t _iClock, timespec* _pTime) ZEL_TEST_NOEXCEPT
{
    static auto* const s_pTime = GetNextFunction<decltype(clock_gettime)>("clock_gettime");
    if (t_pFigures == nullptr)
    {
        return s_pTime(_iClock, _pTime);
    }
    *_pTime = t_pFigures->m_stTime;
    return 0;
}

namespace
{
using testing::MatchesRegex;

TEST(IdFieldsTest, ShortNumbersArePaddedWithZeros)
{
    EXPECT_THAT(MakeId({0xab, {0, 0xcde}}), MatchesRegex("[0-9a-f]{8}-00ab-00000cde-[0-9a-f]{4}"));
    EXPECT_THAT(MakeId({0, {0, 0}}), MatchesRegex("[0-9a-f]{8}-0000-00000000-[0-9a-f]{4}"));
}

TEST(IdFieldsTest, NumbersThatFillTheirFieldsAreNotPadded)
{
    EXPECT_THAT(MakeId({0xabcd, {0, 0x12345678}}), MatchesRegex("[0-9a-f]{8}-abcd-12345678-[0-9a-f]{4}"));
}

TEST(IdFieldsTest, LongNumbersAreNotCut)
{
    // The greatest number of nanoseconds: 7fffffffffffffff.
    EXPECT_THAT(MakeId({0x123456789abcdef0, {9223372036, 854775807}}),
                MatchesRegex("[0-9a-f]{8}-9abcdef0-7fffffffffffffff-[0-9a-f]{4}"));
}
} // namespace
