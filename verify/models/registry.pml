/*
 * The reference beside a queued id. A task was queued twice, and two workers look it up at any moment, each with a
 * reference that was kept when it was queued. Meanwhile a host takes the record, or only a reference to it, and then
 * changes the registry: it deletes the task, replaces it, or takes it out itself. Another host creates and deletes
 * other tasks.
 *
 * Holds: a worker finds what a search of the registry finds at that moment, although it searches only when the era
 * says so; no record is used after it is destroyed.
 *
 * The registry's lock: a writer changes the registry in one step while no reader is inside. Each access of a reader to
 * the era and to the size is a step of its own, because other readers are inside at the same time.
 *
 * Left out: everything else about tasks; a host that copies a reference out of the registry and then replaces the
 * record itself, so that the registry is as large as before.
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
byte references[RECORDS] = 1; /* strong ones, with that of the registry or of the host that makes the new record */
byte readers;

#define RegistrySize()  ((entry != NONE) + others)
#define UseRecord(r)    assert(references[r] > 0)

/* What a writer does at once, under the registry's lock. */
inline LookAtSize()
{
#ifdef BROKEN_SIZE_IGNORED
    skip
#else
    era = (notedSize == RegistrySize() -> era : era + 1);
    notedSize = RegistrySize()
#endif
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
    atomic {
        readers == 0;
        LookAtSize();
#ifndef BROKEN_DELETION_KEEPS_ERA
        ForgetEra(entry);
#endif
        DropEntry();
        entry = NONE;
        notedSize = RegistrySize()
    }
}

/* The new record gets the id of the old one. */
inline ReplaceTask() /* CLS_Task::CreatePoolTask */
{
    atomic {
        readers == 0;
        LookAtSize();
#ifndef BROKEN_DELETION_KEEPS_ERA
        ForgetEra(entry);
#endif
        DropEntry();
        entry = NEW;
        eraOf[NEW] = era;
        references[NEW] = 1;
        notedSize = RegistrySize()
    }
}

/* The host itself, without a call of the library. */
inline EraseEntry()
{
    atomic {
        readers == 0;
        DropEntry();
        entry = NONE
    }
}

inline AssignEntry()
{
    atomic {
        readers == 0;
        DropEntry();
        entry = NEW;
        references[NEW] = 1
    }
}

inline GetTask(r) /* CLS_Task::GetTask */
{
    atomic {
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
    :: d_step { /* copies the reference, and no call of the library tells */
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
    atomic { /* CLS_Task::CreateTask */
        readers == 0;
        LookAtSize();
        others++;
        notedSize = RegistrySize()
    };
    atomic { /* CLS_Task::DeleteTask */
        readers == 0;
        LookAtSize();
        others--;
        notedSize = RegistrySize()
    }
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
    readers++;
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
    };
    d_step {
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
    bool serves;

    FindTask(kept, found);
    d_step {
        if
        :: found != NONE -> Release(found)
        :: else
        fi
    }
}

