/*
 * rwlock.pml - the read-write lock of src/thread/rwlock.cpp: readers are counted in under one mutex and counted
 * out under another; a writer holds both and waits on a condition for the readers that are still inside.
 *
 * READERS readers and WRITERS writers lock ROUNDS times each, by waiting or by trying; the first writer may be
 * cancelled while it waits. A signal to the waiting writer may fail once: the reader then calls unlock again.
 * The counters fold at FOLD. The condition is an ideal one (condition.pml shows that it is).
 *
 * Checked: writers are alone, no reader counts more than once, the counters return to what they stand for, and
 * everybody comes to an end.
 */
#ifndef READERS
#define READERS 3
#endif
#ifndef WRITERS
#define WRITERS 2
#endif
#ifndef ROUNDS
#define ROUNDS 2
#endif
#ifndef FOLD
#define FOLD 3
#endif

/* The record. */
int shared = 0;      /* under exclusiveLock */
int exclusive = 0;   /* under both locks */
int completed = 0;   /* under completedLock */
bool exclusiveLock = false;
bool completedLock = false;
bool sleeping = false; /* a writer waits on the condition */
bool woken = false;

byte reading = 0; /* ghost */
byte writing = 0; /* ghost */
byte failuresLeft = 1;

#define LOCK(x) atomic { !x -> x = true }
#define UNLOCK(x) d_step { assert(x); x = false }

inline TryLock(x, held)
{
    atomic {
        if
        :: x -> held = false
        :: !x -> x = true; held = true
        fi
    }
}

proctype Reader()
{
    byte round = 0;
    bool held;
    bool failed;

    do
    :: round < ROUNDS ->
        round++;
        if
        :: atomic { !exclusiveLock -> exclusiveLock = true; held = true }
        :: TryLock(exclusiveLock, held)
        fi;
        if
        :: !held -> goto next
        :: else
        fi;
        shared++;
        if
        :: shared >= FOLD ->
            if
            :: LOCK(completedLock);
                d_step { shared = shared - completed; completed = 0 };
                UNLOCK(completedLock)
            :: atomic { failuresLeft > 0 -> failuresLeft-- };
                /* The lock could not be taken: the caller is told so and is not inside. */
#ifndef HOLE_FAILED_FOLD_COUNTS
                shared--;
#endif
                UNLOCK(exclusiveLock);
                goto next
            fi
        :: else
        fi;
        d_step { reading++; assert(writing == 0) };
        UNLOCK(exclusiveLock);

        assert(writing == 0);

again:
        assert(exclusive == 0);
        atomic { !completedLock -> completedLock = true; reading-- };
        completed++;
        failed = false;
        if
        :: completed == 0 ->
            atomic {
                if
                :: woken = sleeping
                :: failuresLeft > 0 -> failuresLeft--; failed = true
                fi
            }
        :: else
        fi;
        if
        :: failed ->
#ifndef HOLE_FAILED_SIGNAL_COUNTS
            d_step { completed--; reading++; completedLock = false };
            goto again
#else
            UNLOCK(completedLock)
#endif
        :: else -> UNLOCK(completedLock)
        fi;
next:
        skip
    :: else -> break
    od
}

proctype Writer(bool cancellable)
{
    byte round = 0;
    bool held;

    do
    :: round < ROUNDS ->
        round++;
        if
        :: LOCK(exclusiveLock);
            LOCK(completedLock);
            assert(exclusive == 0);
            if
            :: completed > 0 -> d_step { shared = shared - completed; completed = 0 }
            :: else
            fi;
            assert(shared >= 0 && completed == 0);
            if
            :: shared > 0 ->
                completed = -shared;
                do
                :: completed < 0 ->
                    d_step { sleeping = true; woken = false; completedLock = false };
                    atomic {
                        if
                        :: woken -> sleeping = false; woken = false
                        :: cancellable -> sleeping = false; woken = false; goto cancelled
                        fi
                    };
                    LOCK(completedLock)
                :: else -> break
                od;
                shared = 0
            :: else
            fi;
            exclusive++
        :: TryLock(exclusiveLock, held);
            if
            :: !held -> goto next
            :: else
            fi;
            TryLock(completedLock, held);
            if
            :: !held -> UNLOCK(exclusiveLock); goto next
            :: else
            fi;
            if
            :: completed > 0 -> d_step { shared = shared - completed; completed = 0 }
            :: else
            fi;
            if
            :: shared > 0 -> UNLOCK(completedLock); UNLOCK(exclusiveLock); goto next
            :: else -> exclusive = 1
            fi
        fi;
        d_step { writing++; assert(writing == 1 && reading == 0 && shared == 0 && completed == 0) };

        d_step { assert(writing == 1 && reading == 0); writing-- };
        exclusive--;
        UNLOCK(completedLock);
        UNLOCK(exclusiveLock);
next:
        skip
    :: else -> break
    od;
    goto ended;

cancelled:
    /* The condition's handler takes the mutex again, then the writer's own handler undoes the wait. */
    skip;
#ifndef HOLE_CANCELLED_WRITER_LEAVES
    LOCK(completedLock);
    d_step { shared = -completed; completed = 0 };
    UNLOCK(completedLock);
#endif
    UNLOCK(exclusiveLock);
ended:
    skip
}

init {
    byte i = 0;
    atomic {
        do
        :: i < READERS -> run Reader(); i++
        :: else -> break
        od;
        i = 0;
        do
        :: i < WRITERS -> run Writer(i == 0); i++
        :: else -> break
        od
    };
    _nr_pr == 1;
    assert(reading == 0 && writing == 0 && exclusive == 0 && shared == completed);
    assert(!exclusiveLock && !completedLock)
}
