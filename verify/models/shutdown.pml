/*
 * The shutdown. A host queues two tasks, may remove one without waiting for its run, and shuts the pool down at any
 * moment, while dispatcher, loop scheduler and watchdog work. The loop scheduler queues a third task. Each run takes
 * any time, and with RUN_MAY_HANG perhaps for ever. The shutdown may wait for the run or abandon its worker.
 *
 * Holds: no process uses the pool or a worker after it is freed; each worker is freed once, by the shutdown or, if it
 * was abandoned, by itself; no run begins after the shutdown; UnInit returns, all threads end, and each queued task
 * runs or is dropped by the shutdown.
 *
 * Left out: see parts/workers.pml; failures of UnInit, its call from a task, and the pinning of the library. A bounded
 * wait may time out at any moment.
 */

#define TASKS    3
#define FAILURES 0
#define POOL_ENDS

#include "parts/workers.pml"

bool loopEnded;
bool overrunWorkers[WORKERS];

/* The wait of a removal times out: the record leaves the registry while the run goes on. */
inline TimeOutRemoval(t) /* CLS_QuenTaskPool::RemoveTask */
{
    atomic {
        status[t] >= STATUS_EXECUTING ->
        valid[t] = false;
        overran[t] = true;
        DeleteTask(t)
    }
}

active proctype LoopScheduler() /* CLS_QuenTaskPool::FunLoopThread */
{
    if /* CLS_QuenTaskPool::LoopPass */
    :: poolRuns && registered[2] ->
        atomic {
            StoreStatus(2, TASK_STATUS_WAITING);
            AddToQueue(2)
        }
    :: true
    fi;
    !poolRuns;
    loopEnded = true
}

inline EndServiceThreads() /* CLS_QuenTaskPool::EndServiceThreads */
{
#ifdef BROKEN_FLAG_OUTSIDE_LOCK
    poolRuns = false;
#else
    atomic { !queueLocked -> poolRuns = false };
#endif
    dispatcherSleeps = false;
    dispatcherEnded && loopEnded && watchdogEnded
}

inline StopBoundTask(w, t)
{
    if
    :: t != NO_TASK ->
        GetTask(t, found);
        if
        :: found ->
            Stop(t, stopped);
            d_step {
                Release(t);
                overrunWorkers[w] = !stopped;
                found = false;
                stopped = false
            }
        :: else
        fi
    :: else
    fi
}

inline StopBoundTasks() /* CLS_QuenTaskPool::StopBoundTasks */
{
    d_step { /* CLS_QuenTaskPool::CopyBindings */
        first = (known[0] -> bound[0] : NO_TASK);
        second = (known[1] -> bound[1] : NO_TASK)
    };
    StopBoundTask(0, first);
    StopBoundTask(1, second);
    first = 0;
    second = 0
}

inline Close(w, closed) /* CLS_RunGate::Close */
{
    atomic {
        !gateLocked[w];
        UseWorker(w);
        gateLocked[w] = true;
        gateClosed[w] = true
    };
    if
    :: gateRunning[w] && !overrunWorkers[w] ->
        d_step {
            gateSleeps[w] = true;
            gateLocked[w] = false
        };
        atomic {
#ifdef BROKEN_CLOSE_WAITS_FOR_EVER
            !gateRunning[w];
#else
            Wakes(gateSleeps[w]);
#endif
            gateSleeps[w] = false;
            gateLocked[w] = true
        }
    :: else
    fi;
#ifdef BROKEN_ABANDONED_IN_TWO_STEPS
    closed = !gateRunning[w];
    d_step {
        gateAbandoned[w] = !closed;
        gateRunning[w] = !closed;
        gateLocked[w] = false
    }
#else
    d_step { /* CLS_RunGate::Abandon */
        gateAbandoned[w] = gateRunning[w];
        closed = !gateAbandoned[w];
        gateLocked[w] = false
    }
#endif
}

inline ForgetWorker(w) /* CLS_QuenTaskPool::ForgetWorker */
{
    d_step {
        UsePool();
        known[w] = false;
        bound[w] = 0;
        order[w] = 0
    };
    d_step {
        if
        :: idleCount > 0 && idle[0] == w ->
            idle[0] = idle[1];
            idle[1] = 0;
            idleCount--
        :: idleCount > 1 && idle[1] == w ->
            idle[1] = 0;
            idleCount--
        :: else
        fi
    }
}

inline EndWorkers() /* CLS_QuenTaskPool::EndWorkers */
{
    do
    :: known[0] || known[1] ->
        if /* CLS_QuenTaskPool::FindWorker */
        :: known[0] -> w = 0
        :: known[1] -> w = 1
        fi;
        Close(w, closed);
        if
        :: closed ->
            EndThread(w);
            ForgetWorker(w);
            FreeWorker(w)
        :: else -> ForgetWorker(w)
        fi
    :: !known[0] && !known[1] -> break
    od
}

active proctype Host()
{
    byte first, second, w, i;
    bool found, stopped, closed;

    atomic {
        CreateTask(0, TASK_STATUS_WAITING);
        CreateTask(1, TASK_STATUS_WAITING);
        CreateTask(2, TASK_STATUS_IDLE);
        AddToQueue(0);
        AddToQueue(1)
    };
    if
    :: TimeOutRemoval(0)
    :: true
    fi;
    EndServiceThreads(); /* CLS_QuenTaskPool::UnInit */
    StopBoundTasks();
    EndWorkers();
    atomic { /* CLS_QuenTaskPool::DestroyInstance */
        assert(idleCount == 0 && !known[0] && !known[1]);
        for (i : 0 .. TASKS - 1) {
            cancelled[i] = !overran[i]
        }
        poolFreed = true
    }
}

ltl ends
{
    <> (poolFreed && !alive[0] && !alive[1])
}
