#pragma once

#include "verify/stress/Job.h"

#include <cstdint>
#include <random>

/// One thread of the host, which performs random operations. With a single thread, the seed determines every
/// operation.
class CLS_Operations
{
public:
    CLS_Operations(ST_World& _stWorld, std::uint64_t _uiSeed) : m_stWorld(_stWorld), m_rngDice(_uiSeed) {}

    void DoOne();

private:
    std::uint64_t Draw(std::uint64_t _uiSides) { return m_rngDice() % _uiSides; }
    n_Behaviour DrawBehaviour();
    void RemoveTasksOf(ST_TaskOwner& _stOwner);

    void AddTmp();
    void AddWithoutOwner();
    void RemoveOwner();
    void AddAndRemove();
    void AddLoop();
    void StopLoop();
    void RemoveLoop();
    void AddHeld();
    void QueueHeld();
    void RemoveHeld();
    void SetThreshold();
    void CountWorkers();
    void Sweep();
    void FillPool();

    ST_World& m_stWorld;
    std::mt19937_64 m_rngDice;
};
