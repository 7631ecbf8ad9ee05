/*
 * Two workers that take tasks off the queue: a short form of the way from the queue to a worker, for models about
 * tasks alone (handover.pml has it in full). The workers must be processes 0 and 1, so include this before anything
 * active.
 *
 * A model that includes this, after task.pml, may define FORGET_OWNER(t), what a worker does after a run.
 */

#ifndef FORGET_OWNER
#define FORGET_OWNER(t)
#endif

bool busy; /* the first worker is; they are alike, so that only then the second one takes a task */

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
