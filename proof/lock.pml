/*
 * The lock between processes, as the library uses it: Qt's QSystemSemaphore on a System V semaphore, and the seed that
 * 'authchip lock seed' makes at boot. scripts/prove-lock has spin go through all states; docs/lock-proof.md says what is
 * proven.
 *
 * A row is one system call: the state of the process and what the call finds, then what it changes and the next state.
 * Each prints a line, "@ PROCESS CALL RESULT"; the tests compare these lines with the calls of real processes.
 */

/* How many hosts there are, how often each locks and unlocks, and how many seeds run. */
#ifndef HOSTS
#define HOSTS 2
#endif
#ifndef OPERATIONS
#define OPERATIONS 1
#endif
#ifndef SEEDS
#define SEEDS 2
#endif

/* What can happen. */
#ifndef SEED_FIRST
#define SEED_FIRST 1 /* a seed is complete before the first host begins */
#endif
#ifndef FIRST_STAYS
#define FIRST_STAYS 0 /* host 0 has made the lock before the others begin, and never runs its destructor */
#endif
#ifndef OLD_FILE
#define OLD_FILE (SEED_FIRST || FIRST_STAYS) /* a key file without a semaphore can be left of an earlier boot */
#endif
#ifndef KILLS
#define KILLS 1 /* any process is killed at any step, or ends without its destructors */
#endif
#ifndef OTHER_KEYS
#define OTHER_KEYS 1 /* a new key file can have another key than the one before; it can always have the same */
#endif

/* What can be broken on purpose: scripts/prove-lock shows that spin notices. */
#ifndef UNDO
#define UNDO 1 /* SEM_UNDO */
#endif
#ifndef OPEN_MODE
#define OPEN_MODE 1 /* 0: QSystemSemaphore::Create, with which every host counts as the creator */
#endif
#ifndef PLACES_LAST
#define PLACES_LAST 1 /* 0: the seed puts the key file in place before the semaphore has its token */
#endif

/* What must never be. */
#ifndef EXCLUSION
#define EXCLUSION 1 /* two hosts are inside */
#endif
#ifndef PROGRESS
#define PROGRESS 1 /* hosts wait, and nobody is left who could let them in */
#endif
#ifndef TOKENS
#define TOKENS 1 /* the seed's token is lost, or there is a second one */
#endif
#ifndef SINGLE
#define SINGLE 1 /* a semaphore has two tokens */
#endif
#ifndef LOCKED
#define LOCKED 1 /* a host is inside without having taken a token */
#endif

#define KEYS 2
#define SEMAPHORES (KEYS + HOSTS) /* one for each key, and a removed one for each host that has not noticed */
#define NONE 255

/* What the system keeps. */
bool fileIsThere = false; /* the key file */
byte keyOfFile = NONE;
bool fileIsOfSeed = false;
bool draftIsThere = false; /* what a seed makes before it puts it in place */
byte keyOfDraft = NONE;
byte ofKey[KEYS] = NONE; /* the semaphore of a key */
byte value[SEMAPHORES];

mtype = {
    /* states: what a process does next */
    asleep, open, stat, create, attach, fill, unlinkToReopen, take, enter, leave, give, unlink, remove, exit, gone,
    tidy, unlinkOld, look, draft, place, unlinkDraft, replace,
    /* aims: what a host opens the lock for */
    constructing, locking, unlocking
};

typedef Process {
    mtype state = asleep;
    mtype aim = constructing;
    byte operations = 0; /* begun */
    byte key = NONE; /* NONE: the lock is not open */
    byte semaphore = NONE; /* may have been removed meanwhile */
    bool ownsFile = false;
    bool ownsSemaphore = false;
    bool triesAgain = false; /* if the opening fails */
    bool hasToken = false;
    bool isInside = false;
    short undo[SEMAPHORES] /* what the kernel adds at its end */
}
Process host[HOSTS];
#define my host[me]

mtype seedState[2] = gone;
#define mySeedState seedState[me]
byte seedKey[2] = NONE;
bool seedFindsFile[2];
byte seedAtWork = NONE; /* a lock of their own keeps two seeds apart */
bool seedIsDone = false; /* one has put its lock in place, or found it there */
bool firstIsDone = false; /* host 0 has opened the lock */

#define isThere(s) (s != NONE && (ofKey[0] == s || ofKey[1] == s))

#define anyHost(is) (is(0) || (HOSTS > 1 && is((1 % HOSTS))) || (HOSTS > 2 && is((2 % HOSTS))) || \
                     (HOSTS > 3 && is((3 % HOSTS))))
#define countHosts(is) (is(0) + (HOSTS > 1 && is((1 % HOSTS))) + (HOSTS > 2 && is((2 % HOSTS))) + \
                        (HOSTS > 3 && is((3 % HOSTS))))

#define isInside(h) (host[h].isInside)
#define isInsideWithoutToken(h) (host[h].isInside && !host[h].hasToken)
#define hasToken(h) (host[h].hasToken)
#define hasTwoTokens(s) (isThere(s) && value[s] > 1)
#define waits(h) (host[h].state == take && isThere(host[h].semaphore) && value[host[h].semaphore] == 0)
#define canMove(h) (host[h].state != gone && !waits(h))

/* The number of a semaphore is used again when nobody has it any more: that keeps the states few. */
#define hasNumber(h) (host[h].semaphore == number)

inline makeSemaphore(newKey)
{
    number = 0;
    do
    :: isThere(number) || anyHost(hasNumber) -> number++
    :: else -> break
    od;
    ofKey[newKey] = number;
    value[number] = 0;
    number = 0
}

inline forgetUndo(reset)
{
    number = 0;
    do
    :: number < HOSTS -> host[number].undo[reset] = 0; number++
    :: else -> break
    od;
    number = 0
}

inline removeSemaphore(removed)
{
    value[removed] = 0;
    forgetUndo(removed);
    if
    :: ofKey[0] == removed -> ofKey[0] = NONE
    :: else -> ofKey[1] = NONE
    fi
}

inline removeFile()
{
    fileIsThere = false;
    fileIsOfSeed = false;
    keyOfFile = NONE
}

inline makeFile(newKey)
{
    fileIsThere = true;
    keyOfFile = newKey
}

/* What the kernel does when a process ends, however it ends. */
inline endHost()
{
    number = 0;
    do
    :: number < SEMAPHORES ->
        if
        :: value[number] + my.undo[number] >= 0 -> value[number] = value[number] + my.undo[number]
        :: else -> value[number] = 0
        fi;
        my.undo[number] = 0;
        number++
    :: else -> break
    od;
    number = 0;
    my.key = NONE;
    my.semaphore = NONE;
    my.ownsFile = false;
    my.ownsSemaphore = false;
    my.triesAgain = false;
    my.hasToken = false;
    my.isInside = false;
    my.operations = 0;
    my.aim = constructing;
    my.state = gone
}

/* The next state, once the constructor or an unlock() has returned. */
inline goOn()
{
    if
    :: my.operations == OPERATIONS && FIRST_STAYS && me == 0 -> my.state = exit
    :: my.operations == OPERATIONS && !(FIRST_STAYS && me == 0) ->
        if
        :: my.ownsFile -> my.state = unlink
        :: !my.ownsFile && my.ownsSemaphore -> my.state = remove
        :: !my.ownsFile && !my.ownsSemaphore -> my.state = exit
        fi
    :: my.operations < OPERATIONS ->
        my.operations++;
        my.aim = locking;
        if
        :: my.key == NONE -> my.state = open
        :: else -> my.state = take
        fi
    fi
}

inline isOpen()
{
    my.triesAgain = false;
    if
    :: my.aim == constructing -> firstIsDone = firstIsDone || FIRST_STAYS && me == 0; goOn()
    :: my.aim == locking -> my.state = take
    :: my.aim == unlocking -> my.state = give
    fi
}

/* Nobody is told: lock() returns without a token, unlock() without having given one. */
inline cannotOpen()
{
    my.key = NONE;
    if
    :: my.triesAgain -> my.triesAgain = false; my.state = open
    :: !my.triesAgain && my.aim == locking -> my.state = enter
    :: !my.triesAgain && my.aim != locking -> goOn()
    fi
}

/* After a call that found the semaphore removed. */
inline openAnew()
{
    my.key = NONE;
    my.semaphore = NONE;
    my.ownsSemaphore = false;
    my.triesAgain = true;
    if
    :: my.ownsFile -> my.state = unlinkToReopen
    :: else -> my.state = open
    fi
}

/* For a walk in which somebody is killed at a certain step and somebody gets in afterwards. */
#ifdef WITNESS
mtype killedHost = asleep;
mtype killedSeed = asleep;
#define noteKilledHost() killedHost = my.state
#define noteKilledSeed() killedSeed = mySeedState
bool hasReplaced = false;
#define noteReplacement() hasReplaced = true
#else
#define WITNESS false
#define noteKilledHost()
#define noteKilledSeed()
#define noteReplacement()
#endif

proctype Host(byte me)
{
    byte number = 0;

endAsleep:
    d_step { (seedIsDone || !SEED_FIRST) && (firstIsDone || !FIRST_STAYS || me == 0) -> my.state = open };
endGone:
    do
    /* The constructor; lock() and unlock() too, while the lock is not open. */
    :: d_step { my.state == open && !fileIsThere -> /* a new file with the number of an earlier one ... */
        makeFile(0); my.ownsFile = true; my.state = stat;
        printf("@ %d open made-0\n", me) }
    :: d_step { my.state == open && !fileIsThere && OTHER_KEYS -> /* ... or another */
        makeFile(1); my.ownsFile = true; my.state = stat;
        printf("@ %d open made-1\n", me) }
    :: d_step { my.state == open && fileIsThere ->
        my.ownsFile = false; my.state = stat;
        printf("@ %d open found\n", me) }
    :: d_step { my.state == stat && fileIsThere ->
        my.key = keyOfFile; my.state = create;
        printf("@ %d stat key-%d\n", me, my.key) }
    :: d_step { my.state == stat && !fileIsThere ->
        cannotOpen();
        printf("@ %d stat missing\n", me) }
    :: d_step { my.state == create && ofKey[my.key] == NONE ->
        makeSemaphore(my.key); my.semaphore = ofKey[my.key];
        my.ownsSemaphore = true; my.ownsFile = true; my.state = fill;
        printf("@ %d create made-%d\n", me, my.semaphore) }
    :: d_step { my.state == create && ofKey[my.key] != NONE ->
        my.state = attach;
        printf("@ %d create exists\n", me) }
    :: d_step { my.state == attach && ofKey[my.key] != NONE ->
        my.semaphore = ofKey[my.key];
        printf("@ %d attach found-%d\n", me, my.semaphore);
        if
        :: OPEN_MODE -> isOpen()
        :: else -> my.ownsSemaphore = true; my.ownsFile = true; my.state = fill
        fi }
    :: d_step { my.state == attach && ofKey[my.key] == NONE -> /* it has gone meanwhile; the new one gets no token */
        makeSemaphore(my.key); my.semaphore = ofKey[my.key];
        printf("@ %d attach made-%d\n", me, my.semaphore);
        isOpen() }
    :: d_step { my.state == fill ->
        value[my.semaphore] = 1; forgetUndo(my.semaphore);
        printf("@ %d fill %d value-%d\n", me, my.semaphore, value[my.semaphore]);
        isOpen() }
    :: d_step { my.state == unlinkToReopen ->
        removeFile(); my.ownsFile = false; my.state = open;
        printf("@ %d unlink\n", me) }

    /* lock() */
    :: d_step { my.state == take && isThere(my.semaphore) && value[my.semaphore] > 0 -> /* waits until there is one */
        value[my.semaphore]--; my.undo[my.semaphore] = my.undo[my.semaphore] + UNDO;
        my.hasToken = true; my.state = enter;
        printf("@ %d take %d value-%d\n", me, my.semaphore, value[my.semaphore]) }
    :: d_step { my.state == take && !isThere(my.semaphore) ->
        openAnew();
        printf("@ %d take gone\n", me) }
    :: d_step { my.state == enter ->
        my.isInside = true; my.state = leave;
        printf("@ %d enter\n", me) }
    :: d_step { my.state == leave ->
        my.isInside = false; my.aim = unlocking;
        if
        :: my.key == NONE -> my.state = open
        :: else -> my.state = give
        fi;
        printf("@ %d leave\n", me) }

    /* unlock() */
    :: d_step { my.state == give && isThere(my.semaphore) ->
        value[my.semaphore]++; my.undo[my.semaphore] = my.undo[my.semaphore] - UNDO;
        my.hasToken = false;
        printf("@ %d give %d value-%d\n", me, my.semaphore, value[my.semaphore]);
        goOn() }
    :: d_step { my.state == give && !isThere(my.semaphore) ->
        openAnew();
        printf("@ %d give gone\n", me) }

    /* The destructor; a process may end without it. */
    :: d_step { my.state == unlink ->
        removeFile(); my.ownsFile = false;
        printf("@ %d unlink\n", me);
        if
        :: my.ownsSemaphore -> my.state = remove
        :: else -> my.state = exit
        fi }
    :: d_step { my.state == remove && isThere(my.semaphore) ->
        removeSemaphore(my.semaphore); my.ownsSemaphore = false; my.state = exit;
        printf("@ %d remove done\n", me) }
    :: d_step { my.state == remove && !isThere(my.semaphore) ->
        my.ownsSemaphore = false; my.state = exit;
        printf("@ %d remove gone\n", me) }
    :: d_step { my.state == exit ->
        endHost();
        printf("@ %d exit\n", me) }
    :: d_step { KILLS && my.state != gone ->
        noteKilledHost();
        endHost();
        printf("@ %d killed\n", me) }
    od
}


inline discardDraft()
{
    number = ofKey[keyOfDraft];
    semaphoreOfDraft = number;
    removeSemaphore(semaphoreOfDraft);
    semaphoreOfDraft = 0
}

/* How the seed puts the key file in place. */
#define howToPlace (seedFindsFile[me] -> replace : place)

inline endSeed()
{
    seedKey[me] = NONE;
    seedFindsFile[me] = false;
    if
    :: seedAtWork == me -> seedAtWork = NONE
    :: else
    fi;
    mySeedState = gone
}

/* Makes a lock that nobody can find yet, and puts it in place when it is complete. */
proctype Seed(byte me)
{
    byte number = 0;
    byte semaphoreOfDraft = 0;

    mySeedState = asleep;
endGone:
    do
    :: d_step { mySeedState == asleep && seedAtWork == NONE ->
        seedAtWork = me;
        if
        :: draftIsThere -> mySeedState = tidy
        :: else -> mySeedState = look
        fi }
    /* What a dead seed has left: the draft's semaphore, unless it is in place already, and the draft. */
    :: d_step { mySeedState == tidy ->
        if
        :: keyOfDraft != keyOfFile && ofKey[keyOfDraft] != NONE ->
            printf("@ seed%d tidy removed-%d\n", me, ofKey[keyOfDraft]);
            discardDraft()
        :: else -> printf("@ seed%d tidy nothing\n", me)
        fi;
        mySeedState = unlinkOld }
    :: d_step { mySeedState == unlinkOld ->
        draftIsThere = false; keyOfDraft = NONE; mySeedState = look;
        printf("@ seed%d unlink-old\n", me) }
    :: d_step { mySeedState == look && fileIsThere && ofKey[keyOfFile] != NONE -> /* its own, or it refuses */
        seedIsDone = seedIsDone || fileIsOfSeed; endSeed();
        printf("@ seed%d look there\n", me) }
    :: d_step { mySeedState == look && !(fileIsThere && ofKey[keyOfFile] != NONE) ->
        seedFindsFile[me] = fileIsThere; mySeedState = draft;
        printf("@ seed%d look none\n", me) }
    /* A key that is in use it does not take. */
    :: d_step { mySeedState == draft && ofKey[0] == NONE && keyOfFile != 0 ->
        draftIsThere = true; keyOfDraft = 0; seedKey[me] = 0; mySeedState = create;
        printf("@ seed%d draft made-0\n", me) }
    :: d_step { mySeedState == draft && ofKey[1] == NONE && keyOfFile != 1 ->
        draftIsThere = true; keyOfDraft = 1; seedKey[me] = 1; mySeedState = create;
        printf("@ seed%d draft made-1\n", me) }
    :: d_step { mySeedState == create && ofKey[seedKey[me]] == NONE ->
        makeSemaphore(seedKey[me]);
        if
        :: PLACES_LAST -> mySeedState = fill
        :: else -> mySeedState = howToPlace
        fi;
        printf("@ seed%d create made-%d\n", me, ofKey[seedKey[me]]) }
    :: d_step { mySeedState == create && ofKey[seedKey[me]] != NONE -> /* takes another file */
        mySeedState = draft;
        printf("@ seed%d create exists\n", me) }
    :: d_step { mySeedState == fill ->
        value[ofKey[seedKey[me]]] = 1;
        if
        :: PLACES_LAST -> mySeedState = howToPlace
        :: else -> mySeedState = unlinkDraft
        fi;
        printf("@ seed%d fill %d value-1\n", me, ofKey[seedKey[me]]) }
    :: d_step { mySeedState == place && !fileIsThere ->
        makeFile(seedKey[me]); fileIsOfSeed = true;
        if
        :: PLACES_LAST -> mySeedState = unlinkDraft
        :: else -> mySeedState = fill
        fi;
        printf("@ seed%d place done\n", me) }
    :: d_step { mySeedState == place && fileIsThere ->
        discardDraft(); draftIsThere = false; keyOfDraft = NONE; mySeedState = look;
        printf("@ seed%d place exists\n", me) }
    :: d_step { mySeedState == replace -> /* the draft is renamed, whatever stands there by now */
        makeFile(seedKey[me]); fileIsOfSeed = true; draftIsThere = false; keyOfDraft = NONE;
        noteReplacement();
        if
        :: PLACES_LAST -> seedIsDone = true; endSeed()
        :: else -> mySeedState = fill
        fi;
        printf("@ seed%d replace\n", me) }
    :: d_step { mySeedState == unlinkDraft ->
        draftIsThere = false; keyOfDraft = NONE; seedIsDone = true; endSeed();
        printf("@ seed%d unlink-draft\n", me) }
    :: d_step { KILLS && mySeedState != gone ->
        noteKilledSeed();
        endSeed();
        printf("@ seed%d killed\n", me) }
    od
}

/* The one token that the seed, or the first host, has made is in its semaphore or with one host. */
#define tokenIsRight (fileIsThere && ofKey[keyOfFile] != NONE && value[ofKey[keyOfFile]] + countHosts(hasToken) == 1)
#define seedsAreGone (seedState[0] == gone && seedState[1] == gone)

proctype Watch()
{
endWatch:
    if
    :: atomic { EXCLUSION && (SEEDS == 0 || seedIsDone) && countHosts(isInside) > 1 -> assert(false) }
    :: atomic { PROGRESS && seedsAreGone && anyHost(waits) && !anyHost(canMove) -> assert(false) }
    :: atomic { SINGLE && (hasTwoTokens(ofKey[0]) || hasTwoTokens(ofKey[1])) -> assert(false) }
    :: atomic { LOCKED && anyHost(isInsideWithoutToken) -> assert(false) }
    :: atomic { TOKENS && (seedIsDone || FIRST_STAYS && firstIsDone) && !tokenIsRight -> assert(false) }
    :: atomic { WITNESS && anyHost(isInside) -> assert(false) }
    fi
}

init
{
    byte number;
    atomic {
        if
        :: OLD_FILE -> makeFile(0); printf("@ before file-0\n")
        :: true
        fi;
        run Watch();
        number = 0;
        do
        :: number < HOSTS -> run Host(number); number++
        :: else -> break
        od;
        number = 0;
        do
        :: number < SEEDS -> run Seed(number); number++
        :: else -> break
        od
    }
}
