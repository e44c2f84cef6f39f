/*
 * condition.pml - the condition variable of src/thread/condition.cpp: three counters under a lock, a queue of
 * sleepers, and a gate that is closed while wake-ups are being delivered.
 *
 * Three waiters wait ROUNDS times each: the first without limit, the second with time-outs, the third
 * may be cancelled. Two wakers share CALLS calls, each a signal or a broadcast. A post may fail once.
 *
 * The ghost variables state what clients rely on, without a look at the algorithm's counters:
 *   waiting     threads that have begun a wait and not yet been accounted for as having left it
 *   owed        wake-ups that were promised to some of them and are not yet taken
 *   meant[w]    a wake-up was promised while w was waiting
 * Lost wake-up:     more wake-ups are owed than threads are waiting, or one is owed while everything sleeps.
 * Stolen wake-up:   a thread returns woken although none was promised since it began to wait.
 * Left-over post:   the queue holds a permit while no wake-up is owed.
 *
 * HOLE_... switches bring back one mistake each; the verifier must then report a violation.
 */
#ifndef ROUNDS
#define ROUNDS 2
#endif
#ifndef CALLS
#define CALLS 3
#endif
#ifndef FOLD
#define FOLD 2
#endif
#define WAITERS 3

#define TIMED(w) (w == 1)
#define CANCELLABLE(w) (w == 2)

/* The record. */
int blocked = 0;   /* changed with the gate closed */
int gone = 0;      /* changed under the lock */
int unblock = 0;   /* changed under the lock */
byte queue = 0;    /* permits of the queue's semaphore */
bool gateOpen = true;
bool lockHeld = false;

bool mutexHeld = false; /* the client's mutex */

byte waiting = 0;
byte owed = 0;
bool meant[WAITERS];
byte callsLeft = CALLS;
byte failuresLeft = 1;

#define LOCK(x) atomic { !x -> x = true }
#define UNLOCK(x) d_step { assert(x); x = false }
#define CLOSE_GATE() atomic { gateOpen -> gateOpen = false }
#define OPEN_GATE() d_step { assert(!gateOpen); gateOpen = true }

/* Holds at every release of the record's lock. */
#define CHECK_COUNTERS() \
    assert(blocked >= 0 && gone >= 0 && unblock >= 0 && gone <= blocked && blocked - gone + unblock == waiting && \
           (unblock == 0 || gone == 0) && unblock == owed && queue <= unblock)

mtype = { WOKEN, TIMEDOUT, CANCELLED };

inline Promise(count)
{
    owed = owed + count;
    meant[0] = true;
    meant[1] = true;
    meant[2] = true;
}

/* Leaves the wait: what the cleanup handler does. */
inline Account(w, result, last)
{
    LOCK(lockHeld);
    d_step {
        last = false;
        if
        :: unblock == 0 ->
            assert(result != WOKEN);
            waiting--;
            assert(waiting >= owed);
            gone++;
        :: unblock > 0 && result == WOKEN ->
            assert(owed > 0 && meant[w]);
            waiting--;
            owed--;
            unblock--;
            last = (unblock == 0)
#ifdef HOLE_LEFT_OVER
        /* Takes a wake-up without its permit. */
        :: unblock > 0 && result != WOKEN ->
            waiting--;
            owed--;
            unblock--;
            last = (unblock == 0)
#else
        :: unblock > 0 && result == TIMEDOUT && queue > 0 ->
            queue--;
            result = WOKEN;
            assert(owed > 0 && meant[w]);
            waiting--;
            owed--;
            unblock--;
            last = (unblock == 0)
        :: unblock > 0 && result == TIMEDOUT && queue == 0 ->
            /* Every permit has its taker, so this thread is one that no wake-up counts. */
            waiting--;
            assert(waiting >= owed);
            blocked--
#ifdef HOLE_CANCELLED_KEEPS
        :: unblock > 0 && result == CANCELLED && queue > 0 ->
#else
        :: unblock > 0 && result == CANCELLED && blocked > 0 ->
            /* Another thread waits that no wake-up counts: it inherits this one's. */
            waiting--;
            assert(waiting >= owed);
            blocked--
        :: unblock > 0 && result == CANCELLED && blocked == 0 ->
#endif
            assert(queue > 0);
            queue--;
            /* Dropping the wake-up is right only where nobody is there for it. */
            waiting--;
            owed--;
            assert(waiting == owed);
            unblock--;
            last = (unblock == 0)
#ifdef HOLE_CANCELLED_KEEPS
        :: unblock > 0 && result == CANCELLED && queue == 0 ->
            waiting--;
            blocked--
#endif
#endif
        fi
    }
    if
    :: gone >= FOLD ->
        CLOSE_GATE();
        d_step { blocked = blocked - gone; gone = 0; }
        OPEN_GATE()
    :: else
    fi;
    d_step { CHECK_COUNTERS(); assert(lockHeld); lockHeld = false; }
    if
    :: last -> OPEN_GATE()
    :: else
    fi
}

proctype Waiter(byte w)
{
    byte round = 0;
    mtype result;
    bool last;

    do
    :: round < ROUNDS ->
        round++;
        LOCK(mutexHeld);
#ifndef HOLE_NO_GATE
endGate:
        atomic {
            if
            :: gateOpen -> gateOpen = false
            /* Nothing is counted yet, and the client's own handler gives the mutex back. */
            :: CANCELLABLE(w) && !gateOpen -> mutexHeld = false; goto ended
            fi
        }
#endif
        d_step { blocked++; waiting++; meant[w] = false; }
#ifndef HOLE_NO_GATE
        OPEN_GATE();
#endif
        UNLOCK(mutexHeld);
endSleep:
        atomic {
            if
            :: queue > 0 -> queue--; result = WOKEN
            :: TIMED(w) -> result = TIMEDOUT
            :: CANCELLABLE(w) -> result = CANCELLED
            fi
        }
#ifdef HOLE_UNACCOUNTED
        if
        :: result == CANCELLED -> waiting--; goto ended
        :: else
        fi;
#endif
        Account(w, result, last);
        !mutexHeld; /* takes the client's mutex again, and gives it back at once */
        if
        :: result == CANCELLED -> break
        :: else
        fi
    :: else -> break
    od;
ended:
    skip
}

/* One call of signal or broadcast. */
proctype Waker()
{
    byte count;
    bool started;
    bool all;

    do
    :: atomic { callsLeft > 0 -> callsLeft-- };
        if
        :: all = false
        :: all = true
        fi;
        count = 0;
        started = false;
        if
        :: atomic { blocked == 0 ->
            /* Everybody who waits is promised a wake-up: the call returns without the lock. */
            assert(waiting == owed) };
            goto next
        :: atomic { blocked > 0 -> skip }
        fi;
        LOCK(lockHeld);
        if
        :: atomic { unblock > 0 ->
            assert((blocked > 0) == (waiting > owed));
            if
            :: blocked == 0
            :: blocked > 0 -> count = (all -> blocked : 1)
            fi }
        :: atomic { unblock == 0 && blocked > gone -> assert(waiting > 0) };
#ifdef HOLE_WAKER_KEEPS_LOCK
            if
            :: !gateOpen -> goto cancelled
            :: gateOpen
            fi;
#endif
            CLOSE_GATE();
            d_step {
                started = true;
                blocked = blocked - gone;
                gone = 0;
                count = (all -> blocked : 1)
            }
        :: atomic { unblock == 0 && blocked <= gone -> assert(waiting == 0) }
        fi;
#ifdef HOLE_POST_AFTER_UNLOCK
        d_step { Promise(count); unblock = unblock + count; blocked = blocked - count };
        UNLOCK(lockHeld);
        queue = queue + count;
#else
        if
        :: count > 0 ->
            if
            :: d_step { Promise(count); queue = queue + count };
                d_step { unblock = unblock + count; blocked = blocked - count }
            :: atomic { failuresLeft > 0 -> failuresLeft-- };
                /* Nobody was woken, and nothing was promised. */
#ifdef HOLE_FAILED_POST_COUNTS
                d_step { Promise(count); unblock = unblock + count; blocked = blocked - count }
#else
                if
                :: started -> OPEN_GATE()
                :: else
                fi
#endif
            fi
        :: else
        fi;
        d_step { CHECK_COUNTERS(); assert(lockHeld); lockHeld = false };
#endif
next:
        skip
    :: callsLeft == 0 -> break
    od;
cancelled:
    skip
}

init {
    atomic {
        run Waiter(0);
        run Waiter(1);
        run Waiter(2);
        run Waker();
        run Waker()
    };
    /* Nothing can move any more: whoever still sleeps does so by right. */
    timeout ->
    assert(owed == 0 && queue == 0 && unblock == 0 && gateOpen && !lockHeld && !mutexHeld &&
           blocked - gone == waiting)
}
