/*
 * Loop tasks. Task 0 is a loop task, and task 2 runs once. The scheduler makes pass after pass, and two workers run
 * what it queues. Either task 0 is removed or stopped at any moment, and task 1 runs once. Or task 1 is a loop task,
 * too: its interval is changed at any moment, and one attempt to queue a task fails because memory is short. With
 * ONE_LOOP_TASK, task 0 runs once, and task 1 is the loop task. With ONE_TASK, task 0 is alone, and is removed or
 * stopped.
 *
 * Time: a tick passes at any moment. The interval of task 0 is one tick. The interval of task 1 never passes until it
 * is changed to one tick.
 *
 * Holds: a task never overlaps itself; it is not queued while it is queued, nor before its interval has passed; after a
 * stop or removal that returned in time, no run is in progress and none begins; no record is used after it is
 * destroyed. Under weak fairness (each thread that can go on does so in the end): each queued task is run or dropped;
 * the new interval of task 1 takes effect, and task 1 runs again and again; some time after its stop or removal, task 0
 * is no longer queued.
 *
 * Left out: see parts/task.pml and parts/crew.pml; the shutdown (shutdown.pml). The library's scheduler compares counts
 * of changes with the counts that it last saw. Here, one flag stands for each comparison, for lists and intervals
 * alike. The scheduler reads the clock once per poll. The time since a run counts only while the task is idle, because
 * no step reads it at other times. The first queueing of all tasks is one step.
 */

#define TASKS 3
#define STORE_LAST_RUN(t) age[t] = 0;

#include "parts/task.pml"

byte age[TASKS];      /* ticks since the last run ended; at most one */
byte interval[TASKS];
byte timeLeft[TASKS]; /* ticks until the moment before which the scheduler does not ask the task again */

#include "parts/crew.pml"

#define NEVER       2
#define MAX_AGE     1
#define LOOP_TASKS  2

bool listed[TASKS];
bool listChanged;
bool intervalsChanged;
bool cancels; /* chosen once: task 0 is cancelled, or task 1 is a loop task */

inline AddToQueue(t) /* CLS_QuenTaskPool::QueueTask */
{
    assert(!queued[t]);
    waitingTasks!t;
    queued[t] = true
}

inline AddToList(t) /* CLS_QuenTaskPool::AddLoopTask */
{
    listed[t] = true;
    listChanged = true;
    Release(t)
}

inline SetLoopInterval(t, iInterval) /* CLS_Task::SetLoopInterval */
{
#ifdef BROKEN_COUNT_BEFORE_INTERVAL
    intervalsChanged = true;
    interval[t] = iInterval
#else
    interval[t] = iInterval;
    intervalsChanged = true
#endif
}

active proctype Host()
{
    atomic {
        interval[0] = 1;
        interval[1] = NEVER;
#if defined(ONE_TASK)
        cancels = true;
#elif !defined(ONE_LOOP_TASK)
        if
        :: cancels = true
        :: true
        fi;
#endif
        CreateTask(0, TASK_STATUS_WAITING);
        AddToQueue(0);
#ifndef ONE_TASK
        CreateTask(1, TASK_STATUS_WAITING);
        CreateTask(2, TASK_STATUS_WAITING);
        Release(2);
        AddToQueue(1);
        AddToQueue(2)
#endif
    };
    atomic {
#ifdef ONE_LOOP_TASK
        Release(0);
#else
        AddToList(0);
#endif
#ifndef ONE_TASK
        if
        :: cancels -> Release(1)
        :: else -> AddToList(1)
        fi
#endif
    };
    if
    :: !cancels -> SetLoopInterval(1, 1)
    :: else
    fi
}

#ifndef ONE_LOOP_TASK
active proctype Canceller()
{
    bool found, stopped;

end_nothing:
    cancels;
    cancelling[0] = true;
    if
    :: true ->
        d_step { /* CLS_QuenTaskPool::ForgetLoopTask */
            listChanged = listChanged || listed[0];
            listed[0] = false
        };
        StopAndDelete(0, found, stopped) /* CLS_QuenTaskPool::RemoveTask */
    :: true -> StopTask(0, found, stopped)
    fi;
    atomic {
        cancelled[0] = stopped;
        assert(!stopped || !inRun[0]);
        Forget3(found, found, stopped)
    }
}
#endif

active proctype Clock()
{
    byte i;

    do
    :: d_step {
            i = 0;
            do
            :: i < LOOP_TASKS ->
                age[i] = (status[i] == TASK_STATUS_IDLE -> MAX_AGE : age[i]);
                timeLeft[i] = (timeLeft[i] == 1 -> 0 : timeLeft[i]);
                i++
            :: else -> break
            od;
            i = 0
        }
    od
}

bool entries[TASKS]; /* the rest belongs to the scheduler alone */
bool pushFailed;

inline RefreshLoopSchedule() /* CLS_LoopSchedule::Refresh */
{
    d_step {
        if
        :: listChanged ->
            listChanged = false;
            t = 0;
            do
            :: t < LOOP_TASKS ->
                timeLeft[t] = (listed[t] && entries[t] -> timeLeft[t] : 0);
                entries[t] = listed[t];
                t++
            :: else -> break
            od;
            t = 0
        :: else
        fi
    };
    d_step {
        if
        :: intervalsChanged -> /* CLS_Task::GetIntervalChanges */
            intervalsChanged = false;
            timeLeft[0] = 0;
            timeLeft[1] = 0
        :: else
        fi
    }
}

/* The weak reference of an entry is valid while the record exists. */
inline FindEntryTask(t, found) /* CLS_LoopSchedule::CLS_Entry::FindTask */
{
    d_step {
        found = references[t] > 0;
        references[t] = references[t] + found
    }
}

#ifdef BROKEN_VALIDITY_IGNORED
#define MayRunAgain(t) (status[t] == TASK_STATUS_IDLE)
#else
#define MayRunAgain(t) (status[t] == TASK_STATUS_IDLE && valid[t])
#endif
#ifdef BROKEN_INTERVAL_IGNORED
#define IntervalOf(t) 1
#else
#define IntervalOf(t) interval[t]
#endif

inline GetEarliestRun(t) /* CLS_Task::GetEarliestRun */
{
    d_step {
        UseRecord(t);
        if
        :: MayRunAgain(t) && IntervalOf(t) > age[t] ->
            timeLeft[t] = (IntervalOf(t) == NEVER -> NEVER : IntervalOf(t) - age[t])
        :: else -> timeLeft[t] = 0
        fi
    }
}

inline IsUseRun(t, due) /* CLS_Task::IsUseRun */
{
    d_step {
        UseRecord(t);
        due = MayRunAgain(t)
    };
    due = due && age[t] >= IntervalOf(t)
}

inline IsDue(t, found, due) /* CLS_LoopSchedule::CLS_Entry::IsDue */
{
    atomic {
        FindEntryTask(t, found);
        if
        :: found -> GetEarliestRun(t)
        :: else
        fi
    };
    if
    :: found ->
        IsUseRun(t, due);
        d_step {
            Release(t);
            found = false
        }
    :: else
    fi
}

inline QueueTask(t, found) /* CLS_QuenTaskPool::QueueTask */
{
    atomic {
        FindTask(t, found);
        if
        :: found && !cancels && !pushFailed ->
            /* No memory for the entry: the task stays as it was. */
            pushFailed = true;
            Release(t);
            found = false
        :: found ->
#ifndef BROKEN_QUEUED_BEFORE_WAITING
            StoreStatus(t, TASK_STATUS_WAITING)
#else
            skip
#endif
        :: else
        fi
    };
    if
    :: found ->
        assert(age[t] >= interval[t]);
        atomic { AddToQueue(t) };
#ifdef BROKEN_QUEUED_BEFORE_WAITING
        StoreStatus(t, TASK_STATUS_WAITING);
#endif
        d_step {
            Release(t);
            found = false
        }
    :: else
    fi
}

active proctype LoopScheduler() /* CLS_QuenTaskPool::FunLoopThread */
{
    byte t;
    bool found, due;

    do
    :: RefreshLoopSchedule();
        do /* CLS_QuenTaskPool::LoopPass */
        :: t < LOOP_TASKS ->
            if
            :: entries[t] && timeLeft[t] == 0 ->
                IsDue(t, found, due);
                if
                :: due ->
                    QueueTask(t, found);
                    due = false
                :: else
                fi
            :: else
            fi;
            t++
        :: else -> break
        od;
        t = 0
    od
}

#ifdef ONE_TASK
ltl ends
{
    <> [] !queued[0]
}
#else
ltl goes_on
{
    [] <> inRun[1] && [] (queued[0] -> <> !queued[0]) && [] (queued[2] -> <> !queued[2])
}
#endif
