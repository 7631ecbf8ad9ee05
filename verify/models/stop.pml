/*
 * Stop and removal. Two workers run tasks while hosts stop and remove them.
 *
 * Tasks 0 and 2 belong to an owner. One host submits them, and another host removes the owner at any moment. In
 * addition, either task 0 submits task 1 for the same owner while it runs, or a third host stops task 0 or removes task
 * 2 by its id.
 *
 * Holds: after a stop or removal whose wait did not time out, no run of the tasks that it covers is in progress, and no
 * further run begins; a removal of the owner covers what its tasks submit while it waits; while it waits for one task,
 * no other task of the owner begins; a task runs once, or is dropped because it was cancelled; no record is used after
 * it is destroyed; no record is destroyed during its run or under the registry's lock; every queued task is run or
 * dropped.
 *
 * Left out: see parts/task.pml and parts/crew.pml; the loop list, the limit of 30 rounds for an owner, and the wait for
 * the last reference. The later step that takes the callable out of the record is also left out, because no run may
 * begin by then. The references that InvalidateTasks takes for a moment are not counted.
 */

#define TASKS 3
#define CALLABLE(t) CallTask(t);
#define FORGET_OWNER(t) owned[t] = false; /* CLS_QuenTaskPool::RemoveTmpTask */

#include "parts/task.pml"

bool owned[TASKS];     /* the id is in the owner maps, which change under one lock */
bool submitted[TASKS]; /* AddTmpTask has returned */

bool nested;           /* chosen once: task 0 submits task 1, or a third host cancels a task */

/* No other process knows the record before it is queued, so one step creates, marks and queues it. */
inline AddTmpTask(t) /* CLS_QuenTaskPool::AddTmpTask */
{
    d_step {
        CreateTask(t, TASK_STATUS_WAITING);
        waitingTasks!t; /* CLS_QuenTaskPool::QueueTask */
        queued[t] = true
    };
    d_step {
        owned[t] = true; /* CLS_QuenTaskPool::AddOwnedTask */
        Release(t);
        submitted[t] = true
    }
}

inline CallTask(t)
{
    if
    :: t == 0 && nested -> AddTmpTask(1)
    :: else
    fi
}

#include "parts/crew.pml"

active proctype Submitter()
{
    if
    :: nested = true
    :: true
    fi;
    AddTmpTask(0);
    AddTmpTask(2)
}

active proctype Canceller()
{
    byte t;
    bool found, stopped;

end_nested:
    if
    :: !nested && submitted[0] ->
        cancelling[0] = true;
        StopTask(0, found, stopped)
    :: !nested && submitted[2] ->
        t = 2;
        cancelling[2] = true;
        StopAndDelete(2, found, stopped) /* CLS_QuenTaskPool::RemoveTask */
    fi;
    atomic {
        cancelled[t] = cancelled[t] || stopped;
        assert(!stopped || !inRun[t]);
        Forget3(t, found, stopped)
    }
}

inline TakeOwnedTasks() /* CLS_QuenTaskPool::TakeOwnedTasks */
{
    d_step {
        i = 0;
        do
        :: i < TASKS ->
            taken[i] = owned[i];
            cancelling[i] = cancelling[i] || owned[i];
            owned[i] = false;
            i++
        :: else -> break
        od;
        i = 0
    }
}

inline InvalidateTasks() /* InvalidateTasks */
{
    for (i : 0 .. TASKS - 1) {
        d_step {
            if
            :: taken[i] && registered[i] ->
                mustNotRun[i] = status[i] < STATUS_EXECUTING;
#ifndef BROKEN_NOT_INVALIDATED_FIRST
                valid[i] = false
#endif
            :: else
            fi
        }
    }
}

inline RemoveTasks() /* RemoveTasks */
{
    InvalidateTasks();
    for (i : 0 .. TASKS - 1) {
        if
        :: taken[i] ->
            StopAndDelete(i, found, stopped);
            d_step {
                late[i] = late[i] || (found && !stopped) || (!found && overran[i]);
                found = false;
                stopped = false;
                taken[i] = false
            }
        :: else
        fi
    };
    i = 0
}

active proctype OwnerRemover()
{
    bool taken[TASKS]; /* the ids in hand */
    byte i;
    bool found, stopped;
    bool covers0, covers2;
    bool late[TASKS];

    d_step {
        i = 0;
        covers0 = submitted[0];
        covers2 = submitted[2]
    };
    TakeOwnedTasks(); /* CLS_QuenTaskPool::RemoveTmpTask */
    do
    :: taken[0] || taken[1] || taken[2] ->
        RemoveTasks();
        TakeOwnedTasks()
    :: else -> break
    od;
    atomic {
        covers0 = covers0 && !late[0];
        covers2 = covers2 && !late[2];
        cancelled[0] = cancelled[0] || covers0;
        cancelled[1] = covers0 && !late[1];
        cancelled[2] = cancelled[2] || covers2;
        assert(!covers0 || !inRun[0]);
        assert(!cancelled[1] || !inRun[1]);
        assert(!covers2 || !inRun[2])
    }
}

ltl handled
{
    [] (queued[0] -> <> !queued[0]) && [] (queued[1] -> <> !queued[1]) && [] (queued[2] -> <> !queued[2])
}
