/*
 * Hand-over and retirement. Two hosts queue three tasks. The dispatcher binds each task to a worker and hands it the
 * job. The worker runs the job and returns to the idle list, where the watchdog may retire it at any moment. One
 * attempt to get onto the idle list fails.
 *
 * Holds: a worker is on the idle list or bound to a task, never both; the idle worker with the lowest order id is
 * taken; no job replaces another job that was handed over; there are never more workers than the limit allows; no
 * process uses a freed worker; no worker is lost; each queued task runs once.
 *
 * Left out: see parts/workers.pml. Nothing ends the pool here (shutdown.pml), and no task is cancelled (stop.pml).
 */

#define TASKS    3
#define FAILURES 1
#define RUN_STEP atomic

#include "parts/workers.pml"

active proctype Host()
{
    CreateTask(0, TASK_STATUS_WAITING);
    AddToQueue(0);
    CreateTask(1, TASK_STATUS_WAITING);
    AddToQueue(1)
}

active proctype SecondHost()
{
    CreateTask(2, TASK_STATUS_WAITING);
    AddToQueue(2)
}

/* Registered, but never used or retired again. */
#define Lost(w) (known[w] && !IsIdle(w) && bound[w] == NO_TASK)

ltl handled
{
    []<> !Lost(0) && []<> !Lost(1) &&
    [] (queued[0] -> <> !queued[0]) && [] (queued[1] -> <> !queued[1]) && [] (queued[2] -> <> !queued[2])
}
