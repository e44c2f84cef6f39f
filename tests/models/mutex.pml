/*
 * mutex.pml - the lock word of src/thread/mutex.cpp in its three kinds (KIND 0 normal, 1 recursive, 2
 * error-checking) and the auto-reset event behind it.
 *
 * THREADS threads lock ROUNDS times each, by waiting or by trying; with a kind that knows its owner they lock a
 * second time inside. Any thread may, while it does not hold the mutex, try to unlock it (owner kinds).
 *
 * Checked: one holder at a time; a second lock by the owner is counted or refused, and never refused to anybody
 * else; nobody sleeps for ever.
 */
#ifndef KIND
#define KIND 0
#endif
#ifndef THREADS
#define THREADS 3
#endif
#ifndef ROUNDS
#define ROUNDS 2
#endif

#define FREE 0
#define HELD 1
#define CONTENDED 2
#define NOBODY 255

byte word = FREE;
bool event = false;
byte owner = NOBODY;  /* the stated field; the error-checking kind leaves it after an unlock */
byte holder = NOBODY; /* the owner while it holds the mutex, and nobody otherwise */
byte count = 0;       /* recursive kind */

byte holding = 0; /* ghost */

inline Exchange(value, old) { d_step { old = word; word = value } }

inline CompareExchange(old)
{
    d_step {
        old = word;
        if
        :: word == FREE -> word = HELD
        :: else
        fi
    }
}

inline SleepUntilFree(old)
{
    do
    :: Exchange(CONTENDED, old);
        if
        :: old == FREE -> break
        :: else -> atomic { event -> event = false }
        fi
    od
}

/* The word was found as `old`, not free. Looks at it a bounded number of times before it sleeps; one look stands
 * for all of them. An exchange that replaced the mark of sleepers puts it back first, and from then on the thread
 * takes the word only as contended. */
inline LockContended(old)
{
#ifdef HOLE_SPINS_UNMARKED
    marked = false;
#else
    marked = (old == CONTENDED);
#endif
    taken = false;
    if
    :: marked -> Exchange(CONTENDED, old); taken = (old == FREE)
    :: else
    fi;
    if
    :: !taken && word == FREE ->
        if
        :: marked -> Exchange(CONTENDED, old)
        :: !marked -> CompareExchange(old)
        fi;
        taken = (old == FREE)
    :: true
    fi;
    if
    :: !taken -> SleepUntilFree(old)
    :: else
    fi
}

inline Acquired(me)
{
    d_step { holding++; assert(holding == 1) };
#if KIND == 1
    count = 1;
    owner = me;
#endif
#if KIND == 2
    owner = me;
    holder = me;
#endif
    skip
}

inline Release(old)
{
    d_step { assert(holding == 1); holding-- };
    Exchange(FREE, old);
    if
#ifdef HOLE_NO_SIGNAL
    :: false
#else
    :: old == CONTENDED -> event = true
#endif
    :: else
    fi
}

proctype Thread(byte me)
{
    byte round = 0;
    byte old;
    bool marked;
    bool taken;

    do
    :: round < ROUNDS ->
        round++;
        if
        :: /* Lock. */
#if KIND == 0
            Exchange(HELD, old);
            if
            :: old == FREE
            :: else -> LockContended(old)
            fi
#elif KIND == 1
            CompareExchange(old);
            if
            :: old == FREE
            :: else ->
                assert(owner != me);
                old = HELD; /* it was compared only: no mark was replaced */
                LockContended(old)
            fi
#else
#ifdef HOLE_WIPES_MARK
            Exchange(HELD, old);
#else
            CompareExchange(old);
#endif
            if
            :: old == FREE
            :: else ->
#ifdef HOLE_STALE_OWNER
                assert(owner != me); /* it would be refused though it holds nothing */
#else
                assert(holder != me);
#endif
                old = HELD;
                LockContended(old)
            fi
#endif
        :: /* Try. */
            CompareExchange(old);
            if
            :: old == FREE
            :: else ->
#if KIND != 0
                /* An unlock by somebody else is refused. */
                assert(holder != me && (KIND == 2 || owner != me));
#endif
                goto next
            fi
        fi;
        Acquired(me);

#if KIND == 1
        /* A second lock by the owner only counts. */
        CompareExchange(old);
        assert(old != FREE && owner == me);
        count++;
        count--;
        assert(count == 1);
#endif
#if KIND == 2
        /* A second lock by the owner is refused. */
#ifdef HOLE_WIPES_MARK
        Exchange(HELD, old);
#else
        CompareExchange(old);
#endif
        assert(old != FREE && owner == me && holder == me);
#endif

#if KIND == 1
        assert(owner == me);
        count--;
        owner = NOBODY;
#endif
#if KIND == 2
        assert(holder == me);
        holder = NOBODY;
#endif
        Release(old);
next:
        skip
    :: else -> break
    od
}

init {
    byte i = 0;
    atomic {
        do
        :: i < THREADS -> run Thread(i); i++
        :: else -> break
        od
    };
    _nr_pr == 1;
    assert(word == FREE && holding == 0 && holder == NOBODY)
}
