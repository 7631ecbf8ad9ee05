// The scheduler knows which memory is allocated, and tells blocks, static variables and stacks apart.

#include "verify/schedules/SchedulerFixture.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

extern "C" void __tsan_read_range(void* _pPlace, std::size_t _uiSize);
extern "C" void __tsan_write_range(void* _pPlace, std::size_t _uiSize);

namespace
{
std::atomic<bool> g_bNever{false};

/// Overflows the stack.
void FillStack()
{
    std::array<char, std::size_t{256} * 1024> arrFull; // NOLINT(cppcoreguidelines-pro-type-member-init)
    char* volatile pLowest = arrFull.data();
    *pLowest = 1;
}
} // namespace

class SchedulerMemoryTest : public CLS_SchedulerFixture
{
protected:
    using Touch = void (*)(void*, std::size_t);

    /// Accesses a block and the block behind it, which may have been freed.
    std::string TouchTwoBlocks(bool _bFreed, Touch _funTouch)
    {
        const auto funBody = [_bFreed, _funTouch]
        {
            const std::unique_ptr<char[]> pFirst(new char[16]);
            std::unique_ptr<char[]> pSecond(new char[16]);
            char* const pEnd = pSecond.get() + 1;
            if (_bFreed)
            {
                pSecond.reset();
            }
            _funTouch(pFirst.get(), static_cast<std::size_t>(pEnd - pFirst.get()));
        };
        return RunRandom(funBody, 1);
    }

    std::uint64_t GetHash(const Body& _funBody) { return RunSeed(1, _funBody).m_uiHash; }
};

TEST_F(SchedulerMemoryTest, RangeWhoseEndWasFreedIsFound)
{
    EXPECT_EQ(TouchTwoBlocks(false, __tsan_read_range), "");
    EXPECT_EQ(TouchTwoBlocks(false, __tsan_write_range), "");
    const std::string strRead = TouchTwoBlocks(true, __tsan_read_range);
    EXPECT_EQ(strRead.substr(0, strRead.find(':')), "freed memory is read by thread 0");
    const std::string strWritten = TouchTwoBlocks(true, __tsan_write_range);
    EXPECT_EQ(strWritten.substr(0, strWritten.find(':')), "freed memory is written by thread 0");
}

TEST_F(SchedulerMemoryTest, StaticVariableIsToldFromALocalOne)
{
    m_stOptions.m_uiMostSteps = 100;
    const auto funBody = []
    {
        // Hides from clang that the variable is never written.
        const std::atomic<bool>* volatile pNever = &g_bNever;
        while (!*pNever)
        {
        }
    };
    EXPECT_EQ(RunRandom(funBody, 1), "livelock: 100 steps");
    EXPECT_EQ(m_stOutcome.m_vecPositions, (std::vector<std::string>{"thread 0: reads a static variable"}));
}

TEST_F(SchedulerMemoryTest, StackThatRunsOverDoesNotWriteElsewhere)
{
    const auto funBody = []
    {
        std::thread thrOther([] { std::this_thread::yield(); }); // its stack may lie below
        thrOther.join();
        FillStack();
    };
    EXPECT_EXIT(RunRandom(funBody, 1), ::testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(SchedulerMemoryTest, HashTellsMomentsAndObjectsApart)
{
    const auto funSleep = [](int _iLength)
    { return [_iLength] { std::this_thread::sleep_for(std::chrono::milliseconds(_iLength)); }; };
    EXPECT_EQ(GetHash(funSleep(1)), GetHash(funSleep(1)));
    EXPECT_NE(GetHash(funSleep(1)), GetHash(funSleep(2)));

    const auto funHeap = [](int _iWord)
    {
        return [_iWord]
        {
            const std::unique_ptr<std::atomic<int>[]> pWords(new std::atomic<int>[2]);
            ++pWords[static_cast<std::size_t>(_iWord)];
        };
    };
    EXPECT_EQ(GetHash(funHeap(0)), GetHash(funHeap(0)));
    EXPECT_NE(GetHash(funHeap(0)), GetHash(funHeap(1)));

    const auto funStack = [](int _iWord)
    {
        return [_iWord]
        {
            std::array<std::atomic<int>, 2> arrWords{};
            std::array<std::atomic<int>, 2>* volatile pWords = &arrWords;
            ++(*pWords)[static_cast<std::size_t>(_iWord)];
        };
    };
    EXPECT_EQ(GetHash(funStack(0)), GetHash(funStack(0)));
    EXPECT_NE(GetHash(funStack(0)), GetHash(funStack(1)));

    const auto funStatic = [](bool _bOther)
    {
        static std::array<std::atomic<int>, 2> s_arrWords{};
        return [_bOther] { ++s_arrWords[_bOther ? 1 : 0]; };
    };
    EXPECT_EQ(GetHash(funStatic(false)), GetHash(funStatic(false)));
    EXPECT_NE(GetHash(funStatic(false)), GetHash(funStatic(true)));
}
