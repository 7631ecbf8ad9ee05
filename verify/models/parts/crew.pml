/*
 * Two workers that take tasks off the queue. This is a short form of the way from the queue to a worker, for models
 * about tasks alone; handover.pml has the full form. The workers must be processes 0 and 1, so include this before any
 * active process.
 *
 * A model includes this after task.pml. It may define FORGET_OWNER(t), which a worker calls after a run.
 */

#ifndef FORGET_OWNER
#define FORGET_OWNER(t)
#endif

bool busy; /* the first worker runs a task; the workers are alike, so the second takes a task only then */

active [2] proctype Worker() /* CLS_QuenTaskPool::FunRunTask */
{
    byte t;
    bool found, mayRun;

end_idle:
    do
    :: atomic {
            nempty(waitingTasks) && (_pid == 0 || busy);
            waitingTasks?t;
            busy = busy || _pid == 0
        };
        FindTask(t, found); /* RunRegisteredTask */
        if
        :: found -> Running(t, mayRun)
        :: else -> queued[t] = false
        fi;
        d_step {
            if
            :: found -> Release(t)
            :: else
            fi;
            FORGET_OWNER(t)
            assert(mayRun || cancelling[t]);
            busy = busy && _pid != 0;
            Forget3(t, found, mayRun)
        }
    od
}
