/*
 * The reference that is kept with a queued id. A task was queued twice. Two workers look it up at any moment, each with
 * a reference that was kept when the task was queued. Meanwhile a host takes the record, or only a reference to it, and
 * then changes the registry: it deletes the task, replaces it, or erases it itself. Another host creates and deletes
 * other tasks.
 *
 * Holds: a worker finds what a search of the registry finds at that moment, although it searches only if the era
 * requires it; no record is used after it is destroyed.
 *
 * The registry's lock: a host changes the registry in one step, while no reader holds the lock. A change by the library
 * takes three steps, because a worker does not wait for it if the era shows that its reference is valid. Each access of
 * a reader to the era and to the size is a step of its own, because other readers hold the lock at the same time.
 *
 * Left out: everything else about tasks; a host that copies a reference out of the registry and then replaces the
 * record itself, so that the registry's size stays the same.
 */

#define OLD     0 /* the record that was queued */
#define NEW     1 /* the one that replaces it */
#define RECORDS 2
#define NONE    RECORDS
#define NEVER   0

byte entry = OLD;         /* the record that is registered under the id */
byte others;              /* how many other records are registered */
byte era = 1;
byte notedSize = 1;
byte eraOf[RECORDS] = 1;
byte references[RECORDS] = 1; /* strong ones; the registry or the host that creates the new record has one */
byte readers;
bool writing;
bool changing;            /* by the library, which has read the size */

#define RegistrySize()  ((entry != NONE) + others)
#define UseRecord(r)    assert(references[r] > 0)

#define LockIsFree()    (readers == 0 && !writing)

inline LookAtSize()
{
#ifdef BROKEN_SIZE_IGNORED
    skip
#else
    era = (notedSize == RegistrySize() -> era : era + 1);
    notedSize = RegistrySize()
#endif
}

inline BeginChange()
{
    atomic { LockIsFree() -> writing = true };
#ifdef BROKEN_ANNOUNCED_BEFORE_ERA
    changing = true;
    d_step { LookAtSize() }
#else
    d_step { LookAtSize() };
    changing = true
#endif
}

inline EndChange()
{
    notedSize = RegistrySize();
#ifndef BROKEN_END_NOT_ANNOUNCED
    changing = false;
#endif
    writing = false
}

inline ForgetEra(r) /* CLS_Task::ForgetEra */
{
    if
    :: r != NONE -> eraOf[r] = NEVER
    :: else
    fi
}

inline DropEntry()
{
    if
    :: entry != NONE -> references[entry]--
    :: else
    fi
}

inline DeleteTask() /* CLS_Task::DeleteTask */
{
    BeginChange();
    d_step {
#ifndef BROKEN_DELETION_KEEPS_ERA
        ForgetEra(entry);
#endif
        DropEntry();
        entry = NONE
    };
    EndChange()
}

/* The new record gets the id of the old one. */
inline ReplaceTask() /* CLS_Task::CreatePoolTask */
{
    BeginChange();
    d_step {
#ifndef BROKEN_DELETION_KEEPS_ERA
        ForgetEra(entry);
#endif
        DropEntry();
        entry = NEW;
        eraOf[NEW] = era;
        references[NEW] = 1
    };
    EndChange()
}

/* By the host itself, without a call of the library. */
inline EraseEntry()
{
    atomic {
        LockIsFree();
        DropEntry();
        entry = NONE
    }
}

inline AssignEntry()
{
    atomic {
        LockIsFree();
        DropEntry();
        entry = NEW;
        references[NEW] = 1
    }
}

inline GetTask(r) /* CLS_Task::GetTask */
{
    atomic {
        !writing;
        r = entry;
#ifndef BROKEN_LOOK_UP_KEEPS_ERA
        ForgetEra(r);
#endif
        references[r]++
    }
}

inline Release(r)
{
    UseRecord(r);
    references[r]--;
    r = NONE
}

active proctype Host()
{
    byte held;

    if
    :: GetTask(held);
        if
        :: DeleteTask()
        :: ReplaceTask()
        :: EraseEntry()
        :: AssignEntry()
        fi
    :: d_step { /* copies the reference, which the library does not notice */
            held = OLD;
            references[OLD]++
        };
        if
        :: DeleteTask()
        :: ReplaceTask()
        :: EraseEntry()
        fi
    fi;
    d_step { Release(held) }
}

active proctype OtherHost()
{
    BeginChange(); /* CLS_Task::CreateTask */
    others++;
    EndChange();
    BeginChange(); /* CLS_Task::DeleteTask */
    others--;
    EndChange()
}

/* The steps of a reader; the size cannot change meanwhile. */
inline GetEra(current)
{
#ifndef BROKEN_SIZE_IGNORED
    if
    :: notedSize != RegistrySize() ->
#ifdef BROKEN_SIZE_NOTED_FIRST
        notedSize = RegistrySize();
        era++
#else
        era++;
        notedSize = RegistrySize()
#endif
    :: else
    fi;
#endif
    current = era
}

inline FindTask(kept, found) /* CLS_Task::FindTask */
{
    d_step {
        kept = (references[OLD] > 0 -> OLD : NONE);
        if
        :: kept != NONE -> references[kept]++
        :: else
        fi
    };
    d_step { /* compares with what a search finds at this moment */
        announced = (kept != NONE && changing);
        found = (announced -> entry : NONE)
    };
    if
    :: announced ->
        current = era;
        serves = (eraOf[kept] == current);
        assert(!serves || found == kept)
    :: else
    fi;
    if
    :: serves -> references[kept]++
    :: else ->
        atomic { !writing -> readers++ };
        if
        :: kept != NONE ->
            GetEra(current);
#ifdef BROKEN_STALE_REFERENCE
            serves = true
#else
            serves = (eraOf[kept] == current)
#endif
        :: else
        fi;
        d_step {
            found = (serves -> kept : entry);
            assert(found == entry);
            if
            :: found != NONE ->
                UseRecord(found);
                references[found]++
            :: else
            fi;
            readers--
        }
    fi;
    d_step {
        announced = false;
        if
        :: kept != NONE -> Release(kept)
        :: else
        fi;
        current = 0;
        serves = false
    }
}

active [2] proctype Worker() /* CLS_QuenTaskPool::FunRunTask */
{
    byte current, kept, found;
    bool announced, serves;

    FindTask(kept, found);
    d_step {
        if
        :: found != NONE -> Release(found)
        :: else
        fi
    }
}

