#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

/// Decides which thread goes on. The same seed makes the same decisions in the same situations.
class CLS_Strategy
{
public:
    CLS_Strategy() = default;
    virtual ~CLS_Strategy() = default;
    CLS_Strategy(const CLS_Strategy&) = delete;
    CLS_Strategy& operator=(const CLS_Strategy&) = delete;

    /// A schedule begins. Threads are numbered from 0, the one that is there at the beginning.
    virtual void Begin(std::uint64_t _uiSeed) = 0;

    /// The next thread was started.
    virtual void AddThread() {}

    /// One of the threads that can go on, in ascending order and never none. _iCurrent was the last one to
    /// run; it is among them unless it has to wait.
    virtual int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) = 0;

    /// A number below _uiCount: for what else is left to chance. 0 is the ordinary case.
    virtual std::size_t Draw(std::size_t _uiCount) = 0;
};

/// Any thread that can go on, each as likely as the other.
class CLS_RandomStrategy : public CLS_Strategy
{
public:
    void Begin(std::uint64_t _uiSeed) override { m_rngDice.seed(_uiSeed); }
    int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) override;
    std::size_t Draw(std::size_t _uiCount) override;

private:
    std::mt19937_64 m_rngDice;
};

/// Random priorities; the thread with the highest one goes on. At _iDepth - 1 steps, drawn by chance, the
/// running thread drops below all others. Finds each fault that takes _iDepth ordered steps with a
/// probability that has a lower bound, which plain chance has not.
class CLS_PriorityStrategy : public CLS_Strategy
{
public:
    /// _uiLength: about how many steps a schedule has.
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
    std::vector<std::int64_t> m_vecPriority; ///< by thread
};

/// Every schedule with at most _iDelays delays, one after the other. Without a delay the running thread goes
/// on as long as it can, then the next one in turn; a delay passes the one over whose turn it is. Whatever
/// else is left to chance takes its ordinary course: no wake-up without a reason, the first waiter is
/// notified, and late stores are as late as they can be. The seed counts for nothing.
class CLS_ExhaustiveStrategy : public CLS_Strategy
{
public:
    explicit CLS_ExhaustiveStrategy(int _iDelays) : m_iDelays(_iDelays) {}

    void Begin(std::uint64_t _uiSeed) override;
    int ChooseThread(const std::vector<int>& _vecReady, int _iCurrent) override;
    std::size_t Draw(std::size_t) override { return 0; }

    /// Turns to the next schedule; false when there is none.
    bool GoOn();

    /// The schedule in hand: where it has delays, and how many; what a new strategy needs to repeat it.
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
    std::size_t m_uiChoice = 0; ///< the place in the path
    int m_iDelaysLeft = 0;
};
