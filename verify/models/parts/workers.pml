/*
 * Queue, dispatcher, workers and watchdog, for the models of the hand-over and of the shutdown.
 *
 * Locks: what happens under one of the pool's locks is one step if no process waits under it, because every use of the
 * guarded members takes the lock. Two kinds of locks are modelled as locks. The dispatcher polls and goes to sleep
 * under the queue's lock, and a worker holds its job's lock throughout a job. The shutdown adds each gate's lock, under
 * which it polls and goes to sleep; the worker's steps at the gate use atomic words.
 *
 * Waits: a poll that finds nothing changes nothing, so only the poll that finds something is modelled. A timed wait
 * ends at a notification or at any other moment, which stands for its timeout and for spurious wake-ups. With
 * NEVER_EXPIRES, only a notification ends it, so that the search detects a lost one.
 *
 * A worker's slot is reused after the worker is freed, as memory is. If the dispatcher gets no worker, because there
 * are too many or a thread cannot start, it tries again. The limit allows two registered workers. With MAX_THREAD=0 it
 * allows one, so both slots are taken only while one of the two workers is retired.
 *
 * Left out: log records, ReportBusy, the second check of GetTaskThread, yields and their hints, the owner maps, and how
 * long a worker has been idle (any worker may have been idle for too long).
 *
 * A model that includes this defines what task.pml needs, and FAILURES: how many workers fail to get onto the idle
 * list. It may define POOL_ENDS. It may define RUN_STEP as atomic if only workers read tasks. With WATCHDOG_SLEEPS, no
 * worker is retired. With RUN_MAY_HANG, a run may never end, and a process that waits for it without a bound is stuck.
 */

#include "task.pml"

#define WORKERS    2
#define NO_WORKER  WORKERS
#ifndef MAX_THREAD
#define MAX_THREAD 1
#endif

/* Where a thread may wait for ever, unless the pool ends. */
#ifdef POOL_ENDS
#define END(label)
#else
#define END(label) label:
#endif

#ifndef RUN_STEP
#define RUN_STEP
#endif
#ifdef NEVER_EXPIRES
#define Wakes(bSleeps) !(bSleeps)
#else
#define Wakes(bSleeps) true
#endif

/* The pool. */
bool poolRuns = true;
bool poolFreed;               /* for assertions only */
bool queueLocked;
bool dispatcherSleeps;
byte idle[WORKERS];           /* by ascending order id */
byte idleCount;
bool known[WORKERS];          /* in the map of workers */
byte bound[WORKERS];          /* the id of its task there */

/* Each worker. */
bool alive[WORKERS];          /* created and not freed */
byte order[WORKERS];
bool goesOn[WORKERS];
bool functionLocked[WORKERS];
bool sleeps[WORKERS];
bool job[WORKERS];
bool finished[WORKERS];       /* the thread may be joined */
bool gateRunning[WORKERS];
bool gateClosed[WORKERS];
bool gateAbandoned[WORKERS];
bool gateLocked[WORKERS];
bool gateSleeps[WORKERS];     /* Close waits */

/* For assertions only. */

bool dispatcherEnded;
bool watchdogEnded;
byte failures;

#define UsePool()        assert(!poolFreed)
#define UseWorker(w)     assert(alive[w])
#define CountWorkers()   (known[0] + known[1])
#ifdef BROKEN_LIMIT_IGNORED
#define LimitAllows()    true
#else
#define LimitAllows()    (CountWorkers() <= MAX_THREAD)
#endif
#define IsIdle(w)        ((idleCount > 0 && idle[0] == (w)) || (idleCount > 1 && idle[1] == (w)))

/* If no other process knows the record yet, the step that creates it marks it as waiting. Otherwise, an earlier step
 * does. */
inline AddToQueue(t) /* CLS_QuenTaskPool::QueueTask */
{
    atomic {
        !queueLocked;
        UsePool();
        assert(!queued[t]);
        waitingTasks!t;
        queued[t] = true;
        dispatcherSleeps = false
    }
}

inline TakeFromFront(w) /* CLS_QuenTaskPool::TakeIdleWorker */
{
    w = idle[0];
    assert(idleCount < 2 || order[idle[0]] <= order[idle[1]]);
    idle[0] = idle[1];
    idle[1] = 0;
    idleCount--
}

inline AddIdleWorker(w) /* CLS_QuenTaskPool::AddIdleWorker */
{
    assert(!IsIdle(w));
    assert(bound[w] == NO_TASK);
    if
    :: idleCount == 1 && order[w] < order[idle[0]] ->
        idle[1] = idle[0];
        idle[0] = w
    :: else -> idle[idleCount] = w
    fi;
    idleCount++
}

inline CreateTaskThread(w) /* CLS_QuenTaskPool::CreateTaskThread */
{
    d_step {
        w = (alive[0] -> 1 : 0);
        assert(!alive[w]);
        goesOn[w] = true;
        gateClosed[w] = false;
        gateAbandoned[w] = false;
        bound[w] = NO_TASK;
        alive[w] = true
    };
    d_step { /* CLS_QuenTaskPool::RegisterWorker */
        UsePool();
        order[w] = CountWorkers();
        known[w] = true;
        assert(CountWorkers() <= MAX_THREAD + 1)
    }
}

inline WaitForWorker(w) /* CLS_QuenTaskPool::WaitForWorker */
{
    if
    :: atomic { idleCount > 0 -> UsePool(); TakeFromFront(w) } /* CLS_QuenTaskPool::GetTaskThread */
    :: idleCount == 0 && LimitAllows() && !(alive[0] && alive[1]) -> CreateTaskThread(w)
    :: !poolRuns -> w = NO_WORKER
    fi
}

inline BindTask(w, t) /* CLS_QuenTaskPool::BindTask */
{
    d_step {
        UsePool();
        UseWorker(w);
        assert(known[w] && !IsIdle(w) && bound[w] == NO_TASK);
        bound[w] = t
    }
}

inline AddFunction(w) /* CLS_TaskThread::AddFunction */
{
    atomic {
        !functionLocked[w];
        UseWorker(w);
        assert(!job[w]);
        job[w] = true;
        sleeps[w] = false
    }
}

chan batch = [TASKS] of { byte };

/* Looks and goes to sleep under the lock; sleeping releases it. */
inline TakeWaitingTasks() /* CLS_QuenTaskPool::TakeWaitingTasks */
{
    atomic { !queueLocked -> queueLocked = true };
    if
    :: empty(waitingTasks) && poolRuns ->
        d_step {
            dispatcherSleeps = true;
            queueLocked = false
        };
END(end_nothing)
        atomic {
            Wakes(dispatcherSleeps) && !queueLocked && (nempty(waitingTasks) || !poolRuns);
            dispatcherSleeps = false;
            queueLocked = true
        }
    :: nempty(waitingTasks) || !poolRuns
    fi;
    atomic {
        UsePool();
        do
        :: waitingTasks?t -> batch!t
        :: empty(waitingTasks) -> break
        od;
        t = 0;
        queueLocked = false
    }
}

active proctype Dispatcher() /* CLS_QuenTaskPool::FunTaskingThread */
{
    byte t, w;

    do
    :: poolRuns ->
        TakeWaitingTasks();
        do /* CLS_QuenTaskPool::DispatchPass */
        :: nempty(batch) && poolRuns ->
            batch?t;
            WaitForWorker(w);
            if
            :: w != NO_WORKER ->
                BindTask(w, t);
                AddFunction(w)
            :: else
            fi;
            d_step {
                t = 0;
                w = 0
            }
        :: empty(batch) || !poolRuns -> break
        od
    :: !poolRuns -> break
    od;
    dispatcherEnded = true
}

/* The steps are coarser than those of Running in stop.pml, because only the shutdown cancels tasks here. */
inline RunRegisteredTask(t) /* RunRegisteredTask */
{
    atomic {
        FindTask(t, found);
        if
        :: found -> StoreStatus(t, TASK_STATUS_RUNNING)
        :: else
        fi
    };
    if
    :: found ->
        atomic { /* CLS_Task::Running */
            ReadValidity(t, mayRun);
            if
            :: mayRun -> BeginRun(t)
            :: else
            fi
        };
#ifdef RUN_MAY_HANG
        if
        :: mayRun ->
end_hung:
            false
        :: true
        fi;
#endif
        atomic {
            EndRun(t);
            Release(t)
        }
    :: else -> queued[t] = false
    fi;
    Forget3(t, found, mayRun)
}

inline EnterRun(w, mayGoOn) /* CLS_RunGate::Begin */
{
    d_step {
        gateRunning[w] = !gateClosed[w];
        mayGoOn = gateRunning[w]
    }
}

/* The step itself needs no lock. Only a closed gate needs a notification. */
inline LeaveRun(w, mayGoOn) /* CLS_RunGate::NotifyClose */
{
    d_step {
        gateRunning[w] = false;
        mayGoOn = !gateAbandoned[w]
    };
#ifdef POOL_ENDS
    if
    :: gateClosed[w] ->
#ifdef BROKEN_GATE_NOTIFIED_WITHOUT_LOCK
        gateSleeps[w] = false
#else
        atomic { !gateLocked[w] -> gateSleeps[w] = false }
#endif
    :: else
    fi
#endif
}

inline RunBoundTask(w, t, mayGoOn) /* CLS_QuenTaskPool::RunBoundTask */
{
    EnterRun(w, mayGoOn);
    if
    :: mayGoOn ->
        if
        :: t != NO_TASK -> RUN_STEP { RunRegisteredTask(t) }
        :: else
        fi;
        LeaveRun(w, mayGoOn)
    :: else
    fi;
#ifdef BROKEN_GATE_IGNORED
    mayGoOn = true
#endif
}

/* When the idle list cannot grow, the job throws and stays. */
inline FunRunTask(w) /* CLS_QuenTaskPool::FunRunTask */
{
    d_step { /* CLS_QuenTaskPool::ReadBoundTask */
        UsePool();
        t = bound[w]
    };
    RunBoundTask(w, t, mayGoOn);
    if
    :: mayGoOn ->
#ifdef BROKEN_IDLE_BEFORE_UNBOUND
        d_step { AddIdleWorker(w) };
#endif
        d_step { /* CLS_QuenTaskPool::UnbindTask */
            UsePool();
            bound[w] = NO_TASK;
            mayGoOn = false
        };
        if
        :: atomic { poolRuns -> UsePool() };
            atomic {
                UsePool();
                if
#ifndef BROKEN_IDLE_BEFORE_UNBOUND
                :: AddIdleWorker(w)
#else
                :: true
#endif
                :: failures < FAILURES ->
                    failures++;
#ifdef BROKEN_JOB_FORGOTTEN
                    jobStays = false
#else
                    jobStays = true
#endif
                fi
            }
        :: atomic { !poolRuns -> UsePool() }
        fi
    :: else
    fi
}

/* Looks and goes to sleep under the lock; sleeping releases it. */
inline WaitForJob(w)
{
    atomic { !functionLocked[w] -> functionLocked[w] = true };
    if
    :: !job[w] && goesOn[w] ->
        d_step {
            sleeps[w] = true;
            functionLocked[w] = false
        };
END(end_idle)
        atomic {
            Wakes(sleeps[w]) && !functionLocked[w] && (job[w] || !goesOn[w]);
            sleeps[w] = false;
            functionLocked[w] = true
        }
    :: else
    fi
}

active [WORKERS] proctype Worker() /* CLS_TaskThread::WorkUntilEnd */
{
    byte t;
    bool found, mayRun, mayGoOn, jobStays;

    /* The dispatcher is process 0. */
#define me (_pid - 1)

end_unborn:
    do
    :: alive[me] && !finished[me] ->
        do /* CLS_TaskThread::FunTask */
        :: goesOn[me] && !gateAbandoned[me] ->
            WaitForJob(me); /* CLS_TaskThread::RunNextJob */
            if
            :: goesOn[me] ->
                FunRunTask(me); /* CLS_TaskThread::CallJob */
                d_step {
                    UseWorker(me);
                    t = 0;
                    job[me] = jobStays;
                    jobStays = false;
                    mayGoOn = false;
                    functionLocked[me] = false
                }
            :: !goesOn[me] ->
                d_step {
                    UseWorker(me);
                    functionLocked[me] = false
                };
                break
            fi
        :: !goesOn[me] || gateAbandoned[me] -> break
        od;
        atomic {
            UseWorker(me);
            job[me] = false;
            if
            :: gateAbandoned[me] ->
                assert(!IsIdle(me));
                alive[me] = false
            :: else -> finished[me] = true
            fi
        }
    od
}

inline EndThread(w) /* CLS_TaskThread::Exit */
{
    d_step { /* CLS_TaskThread::RequestEnd */
        UseWorker(w);
        goesOn[w] = false
    };
#ifdef BROKEN_END_NOTIFIED_WITHOUT_LOCK
    sleeps[w] = false;
#else
    atomic {
        !functionLocked[w];
        sleeps[w] = false
    };
#endif
#ifdef BROKEN_WORKER_NOT_JOINED
    skip
#else
    finished[w]
#endif
}

inline FreeWorker(w)
{
    d_step {
        UseWorker(w);
        assert(!known[w] && !IsIdle(w));
        finished[w] = false;
        alive[w] = false
    }
}

inline RetireWorker(w) /* CLS_QuenTaskPool::RetireWorker */
{
    d_step { /* CLS_QuenTaskPool::UnregisterWorker */
        UsePool();
        assert(known[w] && bound[w] == NO_TASK);
        known[w] = false;
        bound[w] = 0;
        order[w] = 0
    };
    EndThread(w);
    FreeWorker(w)
}

/* From the back of the idle list: the last worker, or both. */
inline TakeOverdueWorkers() /* CLS_QuenTaskPool::TakeOverdueWorkers */
{
    idleCount--;
    w = idle[idleCount];
    idle[idleCount] = 0;
    if
    :: idleCount > 0 ->
        idleCount--;
        w2 = idle[0];
        idle[0] = 0
    :: true
    fi
}

active proctype Watchdog() /* CLS_QuenTaskPool::FunTaskThreadWaitingOvertime */
{
    byte w;
    byte w2 = NO_WORKER;

END(end_nobody)
    do /* CLS_QuenTaskPool::OvertimePass */
#ifndef WATCHDOG_SLEEPS
    :: atomic { idleCount > 0 -> UsePool(); TakeOverdueWorkers() };
        RetireWorker(w);
        if
        :: w2 != NO_WORKER ->
            RetireWorker(w2)
        :: else
        fi;
        d_step {
            w = 0;
            w2 = NO_WORKER
        }
#endif
    :: !poolRuns -> break /* CLS_QuenTaskPool::SleepBetweenPasses */
    od;
    watchdogEnded = true
}
