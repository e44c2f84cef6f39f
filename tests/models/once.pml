/*
 * once.pml - the queue of src/thread/once.cpp: each caller hangs a node behind the last one and waits until its
 * predecessor hands the control on. A ready or linked word holds nothing, done, or the event that its thread
 * sleeps on.
 *
 * THREADS threads call once. The first that runs the routine may be cancelled inside it. Making an event may
 * fail FAILURES times.
 *
 * Checked: the routine completes once and is never run by two threads together; nobody returns before it is
 * complete; no node is touched after its thread has gone on, no event after it was closed; nobody sleeps for
 * ever.
 */
#ifndef THREADS
#define THREADS 3
#endif
#ifndef FAILURES
#define FAILURES 1
#endif

#define NONE 0
#define DONE 1
#define EVENT 2

byte tail = 0; /* the node of thread t is t + 1 */
bool done = false;

byte next[THREADS];
byte ready[THREADS];
byte linked[THREADS];
bool alive[THREADS];
bool eventExists[THREADS];
bool eventSet[THREADS];

byte running = 0;   /* ghost */
byte completed = 0; /* ghost */
byte failuresLeft = FAILURES;
byte cancelsLeft = 1;

inline Set(t)
{
    d_step { assert(eventExists[t]); eventSet[t] = true }
}

/* Waits until `word` says done. */
inline Await(word, me)
{
    if
    :: word == NONE ->
        if
        :: eventExists[me] = true;
            d_step {
                swapped = (word == NONE);
                if
                :: swapped -> word = EVENT
                :: else
                fi
            };
            if
            :: swapped -> eventSet[me]
            :: else
            fi;
            d_step { eventExists[me] = false; eventSet[me] = false }
        :: atomic { failuresLeft > 0 -> failuresLeft-- };
#ifndef HOLE_NO_EVENT_NO_WAIT
            /* Without an event the thread looks again and again. */
            word == DONE
#endif
        fi
    :: else
    fi
}

/* Says done to the thread whose word this is. */
inline Announce(word, t)
{
    d_step {
        assert(alive[t]);
        old = word;
        if
        :: word == NONE -> word = DONE
        :: else
        fi
    };
    if
    :: old == EVENT -> Set(t)
    :: else
    fi
}

proctype Caller(byte me)
{
    byte predecessor;
    byte successor;
    byte old;
    bool swapped;
    bool cancelled = false;

    if
    :: done -> goto ended
    :: !done
    fi;

    d_step { next[me] = 0; ready[me] = NONE; linked[me] = NONE; alive[me] = true };
    d_step { predecessor = tail; tail = me + 1 };
    if
    :: predecessor != 0 ->
        d_step { assert(alive[predecessor - 1]); next[predecessor - 1] = me + 1 };
        Announce(linked[predecessor - 1], predecessor - 1);
        Await(ready[me], me)
    :: else
    fi;

    if
    :: !done ->
        d_step { running++; assert(running == 1) };
        if
        :: running--; completed++; done = true
        :: atomic { cancelsLeft > 0 -> cancelsLeft--; running--; cancelled = true }
        fi
    :: else
    fi;

#ifdef HOLE_CANCELLED_KEEPS
    if
    :: cancelled -> goto ended
    :: else
    fi;
#endif

    if
    :: next[me] == 0 ->
        d_step {
            swapped = (tail == me + 1);
            if
            :: swapped -> tail = 0
            :: else
            fi
        }
#ifdef HOLE_NEXT_IS_ENOUGH
        ;if
        :: !swapped -> Await(linked[me], me)
        :: else
        fi;
        swapped = (next[me] == 0)
    :: else -> swapped = false
    fi;
#else
    :: else -> swapped = false
    fi;
    /* A successor that has stored itself as next still touches the linked word. */
    if
    :: !swapped -> Await(linked[me], me); swapped = false
    :: else
    fi;
#endif
    if
    :: !swapped ->
        successor = next[me];
        assert(successor != 0);
        Announce(ready[successor - 1], successor - 1)
    :: else
    fi;
    alive[me] = false;
    assert(done || cancelled);
ended:
    skip
}

init {
    byte i = 0;
    atomic {
        do
        :: i < THREADS -> run Caller(i); i++
        :: else -> break
        od
    };
    _nr_pr == 1;
    assert(completed == 1 && tail == 0)
}
