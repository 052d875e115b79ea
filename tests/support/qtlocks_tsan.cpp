// Qt's locks use futexes and are not instrumented, so ThreadSanitizer does not see the order that they create. Programs
// that link this file define the operations that the library under test uses; each calls Qt and tells the sanitizer
// what it did. Unlike with suppressions, accesses that the locks do not order are still reported.

#include <pthread.h>
#include <sanitizer/tsan_interface.h>

#include "tests/support/interposition.h"

namespace testsupport {

namespace {

char g_threadEnd = 0; // its address represents the end of every Qt thread

} // namespace

extern "C" {

void annotatedLock(void* mutex) SPELLING("_ZN6QMutex4lockEv");
bool annotatedTryLock(void* mutex, int timeout) SPELLING("_ZN6QMutex7tryLockEi");
void annotatedUnlock(void* mutex) SPELLING("_ZN6QMutex6unlockEv");
bool annotatedTryAcquire(void* semaphore, int tokens, int timeout) SPELLING("_ZN10QSemaphore10tryAcquireEii");
void annotatedRelease(void* semaphore, int tokens) SPELLING("_ZN10QSemaphore7releaseEi");

bool annotatedWait(void* thread, unsigned long time) SPELLING("_ZN7QThread4waitEm");
int annotatedBroadcast(pthread_cond_t* condition) SPELLING("pthread_cond_broadcast");

void annotatedLock(void* mutex)
{
    static auto* const next = nextDefinition<void(void*)>("_ZN6QMutex4lockEv");
    next(mutex);
    __tsan_acquire(mutex);
}

bool annotatedTryLock(void* mutex, int timeout)
{
    static auto* const next = nextDefinition<bool(void*, int)>("_ZN6QMutex7tryLockEi");
    const bool locked = next(mutex, timeout);
    if (locked)
        __tsan_acquire(mutex);
    return locked;
}

void annotatedUnlock(void* mutex)
{
    static auto* const next = nextDefinition<void(void*)>("_ZN6QMutex6unlockEv");
    __tsan_release(mutex);
    next(mutex);
}

bool annotatedTryAcquire(void* semaphore, int tokens, int timeout)
{
    static auto* const next = nextDefinition<bool(void*, int, int)>("_ZN10QSemaphore10tryAcquireEii");
    const bool acquired = next(semaphore, tokens, timeout);
    if (acquired)
        __tsan_acquire(semaphore);
    return acquired;
}

void annotatedRelease(void* semaphore, int tokens)
{
    static auto* const next = nextDefinition<void(void*, int)>("_ZN10QSemaphore7releaseEi");
    __tsan_release(semaphore);
    next(semaphore, tokens);
}

/// A Qt thread ends with a broadcast, under a mutex that the waiting thread also takes.
int annotatedBroadcast(pthread_cond_t* condition)
{
    static auto* const next = nextDefinition<int(pthread_cond_t*)>("pthread_cond_broadcast");
    __tsan_release(&g_threadEnd);
    return next(condition);
}

bool annotatedWait(void* thread, unsigned long time)
{
    static auto* const next = nextDefinition<bool(void*, unsigned long)>("_ZN7QThread4waitEm");
    const bool ended = next(thread, time);
    if (ended)
        __tsan_acquire(&g_threadEnd);
    return ended;
}

} // extern "C"

} // namespace testsupport
