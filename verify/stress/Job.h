#pragma once

#include "verify/stress/World.h"

/// What a task does besides being counted.
enum n_Behaviour
{
    BEHAVIOUR_QUICK,
    BEHAVIOUR_PAUSE,   ///< takes a few milliseconds
    BEHAVIOUR_LONG,    ///< takes so long that a removal has to wait, and less than its limit
    BEHAVIOUR_OUTLAST, ///< outlasts the wait of a removal
    BEHAVIOUR_THROW,
    BEHAVIOUR_SUBMIT,     ///< submits another task for its owner
    BEHAVIOUR_REMOVE_SELF ///< a loop task that removes itself in its second run
};

/// The callable of every task.
class CLS_Job
{
public:
    /// _pOwner is null for tasks without one. The world outlives all tasks.
    CLS_Job(ST_World& _stWorld, const Entry& _pEntry, n_Behaviour _iBehaviour,
            ST_TaskOwner* _pOwner = nullptr);

    void operator()() const;

private:
    void Act() const;
    void CallPool() const;
    void RemoveSelf() const;

    ST_World* m_pWorld;
    Entry m_pEntry;
    CLS_LiveCopy m_clsCopy;
    n_Behaviour m_iBehaviour;
    ST_TaskOwner* m_pOwner;
};

/// Submits a one-shot task for an owner.
void SubmitTmp(ST_World& _stWorld, ST_TaskOwner& _stOwner, n_Behaviour _iBehaviour);
