/*
 * A task's record and its registry: the part that all models share.
 *
 * A record consists of its status, its validity, its place in the registry and the number of strong references to it.
 * Each load, store and exchange of an atomic word is one step, in the order of the code. These words are sequentially
 * consistent; handshake/ shows that they must be. What happens under the registry's lock is one step, because every
 * process takes that lock to use the registry, and no process waits under it. Every use of a record asserts that the
 * record has not been destroyed.
 *
 * Left out: parameters, log records and their exceptions, and copies of the callable. A bounded wait may time out
 * whenever the task is executing.
 *
 * A model that includes this defines TASKS, the number of its tasks. It may define CALLABLE(t), which is what a run
 * does, and STORE_LAST_RUN(t), which notes the end of a run.
 */

#define NO_TASK TASKS

#define TASK_STATUS_IDLE    0
#define TASK_STATUS_WAITING 1
#define STATUS_EXECUTING    2
#define TASK_STATUS_RUNNING 3

#ifndef CALLABLE
#define CALLABLE(t)
#endif
#ifndef STORE_LAST_RUN
#define STORE_LAST_RUN(t)
#endif

chan waitingTasks = [TASKS] of { byte };

byte status[TASKS];
bool valid[TASKS];
bool registered[TASKS];
byte references[TASKS];

/* For assertions only: no modelled code reads these. */
bool queued[TASKS];     /* queued, and neither run nor dropped yet */
bool inRun[TASKS];      /* the callable is executing */
bool overran[TASKS];    /* the wait of a stop timed out */
bool cancelling[TASKS]; /* a stop or removal has begun */
bool cancelled[TASKS];  /* a stop or removal has returned in time: no further run begins */
bool mustNotRun[TASKS]; /* an owner's removal found it not executing: no further run begins */

/* Clears what a process will not read again, so that states do not differ in it. */
#define Forget3(a, b, c) a = 0; b = 0; c = 0

#define UseRecord(t) assert(references[t] > 0)

/* The caller shares the record with the registry. */
inline CreateTask(t, iStatus) /* CLS_Task::CreateTask */
{
    d_step {
        status[t] = iStatus;
        valid[t] = true;
        registered[t] = true;
        references[t] = 2
    }
}

/* In the code, the search and the strong reference to its result are two steps. A process that fails in the
 * second could also have failed in the first. A process that succeeds could have taken both steps at once. */
inline GetTask(t, found) /* CLS_Task::GetTask */
{
    d_step {
        found = registered[t];
        references[t] = references[t] + found
    }
}

/* The process that drops the last reference destroys the record. The record's destructor would wait for a run. */
inline Release(t)
{
    d_step {
        UseRecord(t);
        references[t]--;
        assert(references[t] > 0 || (!registered[t] && status[t] < STATUS_EXECUTING))
    }
}

/* The last reference must not be dropped here: the callable would be destroyed under the registry's lock. */
inline DeleteTask(t) /* CLS_Task::DeleteTask */
{
    atomic {
        if
        :: registered[t] ->
            registered[t] = false;
            references[t]--;
            assert(references[t] > 0)
        :: else
        fi
    }
}

/* A worker has a reference with the id, and searches the registry only if the reference is out of date. It finds the
 * same, as registry.pml shows. */
inline FindTask(t, found) /* CLS_Task::FindTask */
{
    GetTask(t, found)
}

inline StoreStatus(t, iStatus)
{
    d_step {
        UseRecord(t);
        status[t] = iStatus
    }
}

inline ReadValidity(t, bValid)
{
    d_step {
        UseRecord(t);
        bValid = valid[t]
    }
}

inline BeginRun(t) /* CLS_Task::InvokeCallable */
{
    d_step {
        UseRecord(t);
        assert(!cancelled[t]);
        assert(!mustNotRun[t]);
        assert(!inRun[t]);
        inRun[t] = true
    }
}

inline EndRun(t)
{
    d_step {
        UseRecord(t);
        assert(queued[t]);
        queued[t] = false;
        inRun[t] = false;
        status[t] = TASK_STATUS_IDLE
    }
}

inline Running(t, bValid) /* CLS_Task::Running */
{
#ifdef BROKEN_VALIDITY_BEFORE_STATUS
    ReadValidity(t, bValid);
    StoreStatus(t, TASK_STATUS_RUNNING);
#else
    StoreStatus(t, TASK_STATUS_RUNNING);
    ReadValidity(t, bValid);
#endif
    if
    :: bValid ->
        BeginRun(t);
        CALLABLE(t)
    :: else
    fi;
#ifdef BROKEN_IDLE_BEFORE_TIME
    EndRun(t);
    STORE_LAST_RUN(t)
#else
    STORE_LAST_RUN(t)
    EndRun(t)
#endif
}

/* Any step may happen between two polls, and only the result of the last poll matters. So one poll stands for all
 * polls. */
inline Stop(t, bStopped) /* CLS_Task::Stop */
{
    d_step {
        UseRecord(t);
        valid[t] = false
    };
    d_step {
        UseRecord(t);
        bStopped = status[t] < STATUS_EXECUTING;
        overran[t] = overran[t] || !bStopped
    }
}

inline StopTask(t, found, stopped) /* CLS_QuenTaskPool::StopTask */
{
    GetTask(t, found);
    if
    :: found ->
        Stop(t, stopped);
        Release(t)
    :: else
    fi
}

inline StopAndDelete(t, found, stopped) /* StopAndDelete */
{
    stopped = false;
    GetTask(t, found);
    if
    :: found -> Stop(t, stopped)
    :: else
    fi;
    DeleteTask(t);
    if
    :: found -> Release(t)
    :: else
    fi
}
