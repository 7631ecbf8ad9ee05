#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

/// Decides which thread goes on. The same seed leads to the same decisions in the same situations.
class CLS_Strategy
{
public:
    CLS_Strategy() = default;
    virtual ~CLS_Strategy() = default;
    CLS_Strategy(const CLS_Strategy&) = delete;
    CLS_Strategy& operator=(const CLS_Strategy&) = delete;

    /// Begins a schedule. Threads are numbered from 0, which is the first thread.
    virtual void Begin(std::uint64_t _uiSeed) = 0;

    /// Notes that the next thread was started.
    virtual void AddThread() {}

    /// Chooses one of the threads that can go on.
    ///
    /// _vecReady is in ascending order, and never empty. _iCurrent ran last, and is in _vecReady unless it
    /// must wait.
    virtual int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) = 0;

    /// Draws a number below _uiCount for another random event. 0 is the ordinary case.
    virtual std::size_t Draw(std::size_t _uiCount) = 0;
};

/// Chooses any thread that can go on, with equal probability.
class CLS_RandomStrategy : public CLS_Strategy
{
public:
    void Begin(std::uint64_t _uiSeed) override { m_rngDice.seed(_uiSeed); }
    int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) override;
    std::size_t Draw(std::size_t _uiCount) override;

private:
    std::mt19937_64 m_rngDice;
};

/// Chooses the thread with the highest priority. The priorities are random.
///
/// At _iDepth - 1 random steps, the running thread drops below all others. So a fault that takes _iDepth
/// ordered steps is found with a guaranteed minimum probability. The random strategy has no such minimum.
class CLS_PriorityStrategy : public CLS_Strategy
{
public:
    /// _uiLength is the approximate number of steps in a schedule.
    CLS_PriorityStrategy(int _iDepth, std::size_t _uiLength) : m_iDepth(_iDepth), m_uiLength(_uiLength) {}

    void Begin(std::uint64_t _uiSeed) override;
    void AddThread() override;
    int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) override;
    std::size_t Draw(std::size_t _uiCount) override;

private:
    const int m_iDepth;
    const std::size_t m_uiLength;
    std::mt19937_64 m_rngDice;
    std::size_t m_uiStep = 0;
    std::vector<std::size_t> m_vecDrops;     ///< the steps at which the running thread drops
    std::vector<std::int64_t> m_vecPriority; ///< of each thread
};

/// Runs every schedule with at most _iDelays delays, one after the other.
///
/// Without a delay, the running thread goes on as long as it can. Then the next one in turn does. A delay
/// skips the thread whose turn it is.
///
/// There are no other random events: no wait ends spuriously, the first waiter is notified, and late stores
/// are as late as possible. The seed has no effect.
class CLS_ExhaustiveStrategy : public CLS_Strategy
{
public:
    explicit CLS_ExhaustiveStrategy(int _iDelays) : m_iDelays(_iDelays) {}

    void Begin(std::uint64_t _uiSeed) override;
    int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) override;
    std::size_t Draw(std::size_t) override { return 0; }

    /// Goes on to the next schedule. False if there is none.
    bool GoOn();

    /// The places and lengths of the present schedule's delays. With them, a new strategy repeats it.
    std::string GetDelays() const;
    void SetDelays(const std::string& _strDelays);

private:
    struct ST_Choice
    {
        int m_iTaken;
        int m_iCount;
    };

    const int m_iDelays;
    std::vector<ST_Choice> m_vecPath;
    std::size_t m_uiChoice = 0; ///< the index of the next choice in the path
    int m_iDelaysLeft = 0;
};
