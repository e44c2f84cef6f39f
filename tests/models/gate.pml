/*
 * gate.pml - the gate of a condition variable (src/thread/condition_gate.cpp) and the end of the record behind
 * it. The gate is a word; the semaphore is only there for threads that have to sleep, and holds one permit from
 * the start.
 *
 * Two waiters come in, leave their mark and go. Each passes the gate to be counted, and again as one that was
 * woken by the last wake-up of a delivery opens it. A third thread may be cancelled while it sleeps at the
 * gate. A destroyer may come at any time: it either answers "busy" or frees the record.
 *
 * Checked: one thread at a time has the gate; nobody sleeps at an open gate; nobody touches a freed record.
 */
#define OPEN 0
#define CLOSED 1
#define SLEEPERS 2

byte word = OPEN;
byte permits = 1;
byte inside = 0;    /* ghost: threads that have closed the gate */
byte visitors = 0;  /* threads that will touch the record again */
byte arriving = 0;  /* waiters that are not counted yet */
byte blocked = 0;   /* waiters counted and not yet accounted for */
bool freed = false;
bool variable = true; /* the client's handle variable still holds the record */
byte callers = 0;     /* ghost: waits that the client has begun and that have not returned */

#define TOUCH assert(!freed)

/* cancelled is set where the thread ends at the gate. */
inline CloseGate(cancellable, old, cancelled)
{
    atomic {
        TOUCH;
        old = word;
        if
        :: word == OPEN -> word = CLOSED
        :: else
        fi
    };
    do
    :: old == OPEN -> break
    :: old != OPEN ->
        d_step { TOUCH; old = word; word = SLEEPERS };
        if
        :: old == OPEN -> break
        :: else
        fi;
        atomic {
            if
            :: permits > 0 -> TOUCH; permits--
            :: cancellable && permits == 0 -> cancelled = true; break
            fi
        }
    od;
    if
    :: !cancelled -> d_step { inside++; assert(inside == 1) }
    :: else
    fi
}

inline OpenGate(old)
{
    d_step {
        TOUCH;
        assert(inside == 1);
        inside--;
        old = word;
        word = OPEN
    };
    if
#ifdef HOLE_SLEEPERS_FORGOTTEN
    :: old == SLEEPERS && false
#else
    :: old == SLEEPERS -> d_step { TOUCH; permits++ }
#endif
    :: else
    fi
}

proctype Waiter(bool cancellable)
{
    byte old;
    bool cancelled = false;

    /* A client begins no wait on a condition that it destroys or has destroyed. */
    atomic {
        if
        :: variable -> callers++; visitors++; arriving++
        :: !variable -> goto ended
        fi
    };
    CloseGate(cancellable, old, cancelled);
    if
    :: cancelled ->
        d_step { TOUCH; arriving-- };
        d_step { TOUCH; visitors-- };
        goto ended
    :: else
    fi;
    blocked++;
    OpenGate(old);
    d_step { TOUCH; arriving-- };
    /* Woken: the delivery had closed the gate, and this thread is the one that opens it. */
    CloseGate(false, old, cancelled);
    d_step { TOUCH; blocked-- };
    OpenGate(old);
#ifndef HOLE_NO_VISITORS
    d_step { TOUCH; visitors-- };
#endif
ended:
    skip
}

proctype Destroyer()
{
    byte old;
    bool cancelled = false;

    visitors++;
    CloseGate(false, old, cancelled);
    if
    :: atomic { blocked > 0 || arriving > 0 ->
        skip };
        OpenGate(old);
        visitors--
    :: atomic { blocked == 0 && arriving == 0 ->
        variable = false };
#ifndef HOLE_NO_VISITORS
        visitors == 1; /* waits for those on their way out */
#endif
        freed = true
    fi
}

init {
    atomic {
        run Waiter(false);
        run Waiter(false);
        run Waiter(true);
        run Destroyer()
    }
}
