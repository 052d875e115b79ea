#include "tests/support/qtcalls.h"

#include <QDeadlineTimer>
#include <QString>

#include "tests/support/interposition.h"

namespace testsupport {

namespace {

thread_local QtCalls* t_calls = nullptr;
thread_local int t_depth = 0; // in Qt's functions: only calls from outside are recorded

constexpr char kMutex[] = "mutex";
constexpr char kSemaphore[] = "semaphore";
constexpr char kSystemSemaphore[] = "system semaphore";
constexpr char kThread[] = "thread";

class InsideQt
{
public:
    InsideQt() { ++t_depth; }
    ~InsideQt() { --t_depth; }
    InsideQt(const InsideQt&) = delete;
    InsideQt& operator=(const InsideQt&) = delete;
};

/// Records a call and lets Qt execute it. Constructors and destructors are called like other member functions; on some
/// machines they return the object.
template<typename Result = void*, typename... Arguments>
Result pass(const char* symbol, const char* kind, const std::string& what, const void* object, Arguments... arguments)
{
    if (t_calls != nullptr && t_depth == 0)
        t_calls->take(kind, object, what);
    const InsideQt inside;
    return nextDefinition<Result(const void*, Arguments...)>(symbol)(object, arguments...);
}

std::string number(long long value)
{
    return " " + std::to_string(value);
}

std::string made(int recursion)
{
    return recursion == 0 ? "made" : "made recursive";
}

} // namespace

QtCalls::QtCalls(Journal& journal) : m_journal(journal)
{
    t_calls = this;
}

QtCalls::~QtCalls()
{
    t_calls = nullptr;
}

void QtCalls::take(const char* kind, const void* object, const std::string& what)
{
    if (what.rfind("made", 0) == 0)
        m_numbers[object] = ++m_made[kind];
    const std::string call = kind + number(m_numbers[object]) + " " + what;
    m_journal.add(Journal::Kind::Call, call);
    const auto action = m_actions.extract(call);
    if (!action.empty())
        action.mapped()();
}

extern "C" {

void* mutexMade(void* mutex, int recursion) SPELLING("_ZN6QMutexC1ENS_13RecursionModeE");
void* mutexPartMade(void* mutex, int recursion) SPELLING("_ZN6QMutexC2ENS_13RecursionModeE");
void* mutexDestroyed(void* mutex) SPELLING("_ZN6QMutexD1Ev");
void* mutexPartDestroyed(void* mutex) SPELLING("_ZN6QMutexD2Ev");
void mutexLock(void* mutex) SPELLING("_ZN6QMutex4lockEv");
bool mutexTryLock(void* mutex, int timeout) SPELLING("_ZN6QMutex7tryLockEi");
void mutexUnlock(void* mutex) SPELLING("_ZN6QMutex6unlockEv");
void* semaphoreMade(void* semaphore, int tokens) SPELLING("_ZN10QSemaphoreC1Ei");
void* semaphoreDestroyed(void* semaphore) SPELLING("_ZN10QSemaphoreD1Ev");
bool semaphoreTryAcquire(void* semaphore, int tokens, int timeout) SPELLING("_ZN10QSemaphore10tryAcquireEii");
void semaphoreRelease(void* semaphore, int tokens) SPELLING("_ZN10QSemaphore7releaseEi");
void* systemSemaphoreMade(void* semaphore, const QString& key, int tokens, int mode)
    SPELLING("_ZN16QSystemSemaphoreC1ERK7QStringiNS_10AccessModeE");
void* systemSemaphoreDestroyed(void* semaphore) SPELLING("_ZN16QSystemSemaphoreD1Ev");
bool systemSemaphoreAcquire(void* semaphore) SPELLING("_ZN16QSystemSemaphore7acquireEv");
bool systemSemaphoreRelease(void* semaphore, int tokens) SPELLING("_ZN16QSystemSemaphore7releaseEi");
void* threadPartMade(void* thread, void* parent) SPELLING("_ZN7QThreadC2EP7QObject");
void* threadPartDestroyed(void* thread) SPELLING("_ZN7QThreadD2Ev");
void threadStart(void* thread, int priority) SPELLING("_ZN7QThread5startENS_8PriorityE");
bool threadWait(void* thread, unsigned long time) SPELLING("_ZN7QThread4waitEm");
bool threadWaitUntil(void* thread, QDeadlineTimer deadline) SPELLING("_ZN7QThread4waitE14QDeadlineTimer");
bool threadIsRunning(const void* thread) SPELLING("_ZNK7QThread9isRunningEv");

void* mutexMade(void* mutex, int recursion)
{
    return pass("_ZN6QMutexC1ENS_13RecursionModeE", kMutex, made(recursion), mutex, recursion);
}

void* mutexPartMade(void* mutex, int recursion)
{
    return pass("_ZN6QMutexC2ENS_13RecursionModeE", kMutex, made(recursion), mutex, recursion);
}

void* mutexDestroyed(void* mutex)
{
    return pass("_ZN6QMutexD1Ev", kMutex, "destroyed", mutex);
}

void* mutexPartDestroyed(void* mutex)
{
    return pass("_ZN6QMutexD2Ev", kMutex, "destroyed", mutex);
}

void mutexLock(void* mutex)
{
    pass<void>("_ZN6QMutex4lockEv", kMutex, "lock", mutex);
}

bool mutexTryLock(void* mutex, int timeout)
{
    return pass<bool>("_ZN6QMutex7tryLockEi", kMutex, "tryLock" + number(timeout), mutex, timeout);
}

void mutexUnlock(void* mutex)
{
    pass<void>("_ZN6QMutex6unlockEv", kMutex, "unlock", mutex);
}

void* semaphoreMade(void* semaphore, int tokens)
{
    return pass("_ZN10QSemaphoreC1Ei", kSemaphore, "made with" + number(tokens), semaphore, tokens);
}

void* semaphoreDestroyed(void* semaphore)
{
    return pass("_ZN10QSemaphoreD1Ev", kSemaphore, "destroyed", semaphore);
}

bool semaphoreTryAcquire(void* semaphore, int tokens, int timeout)
{
    return pass<bool>("_ZN10QSemaphore10tryAcquireEii", kSemaphore, "tryAcquire" + number(tokens) + number(timeout),
                      semaphore, tokens, timeout);
}

void semaphoreRelease(void* semaphore, int tokens)
{
    pass<void>("_ZN10QSemaphore7releaseEi", kSemaphore, "release" + number(tokens), semaphore, tokens);
}

void* systemSemaphoreMade(void* semaphore, const QString& key, int tokens, int mode)
{
    const std::string how = mode == 0 ? " open" : " create";
    return pass<void*, const QString&, int, int>("_ZN16QSystemSemaphoreC1ERK7QStringiNS_10AccessModeE",
                                                 kSystemSemaphore, "made " + key.toStdString() + number(tokens) + how,
                                                 semaphore, key, tokens, mode);
}

void* systemSemaphoreDestroyed(void* semaphore)
{
    return pass("_ZN16QSystemSemaphoreD1Ev", kSystemSemaphore, "destroyed", semaphore);
}

bool systemSemaphoreAcquire(void* semaphore)
{
    return pass<bool>("_ZN16QSystemSemaphore7acquireEv", kSystemSemaphore, "acquire", semaphore);
}

bool systemSemaphoreRelease(void* semaphore, int tokens)
{
    return pass<bool>("_ZN16QSystemSemaphore7releaseEi", kSystemSemaphore, "release" + number(tokens), semaphore,
                      tokens);
}

void* threadPartMade(void* thread, void* parent)
{
    return pass("_ZN7QThreadC2EP7QObject", kThread, parent == nullptr ? "made" : "made with a parent", thread, parent);
}

void* threadPartDestroyed(void* thread)
{
    return pass("_ZN7QThreadD2Ev", kThread, "destroyed", thread);
}

void threadStart(void* thread, int priority)
{
    pass<void>("_ZN7QThread5startENS_8PriorityE", kThread, "start" + number(priority), thread, priority);
}

bool threadWait(void* thread, unsigned long time)
{
    return pass<bool>("_ZN7QThread4waitEm", kThread, "wait " + std::to_string(time), thread, time);
}

bool threadWaitUntil(void* thread, QDeadlineTimer deadline)
{
    return pass<bool>("_ZN7QThread4waitE14QDeadlineTimer", kThread, "wait until a deadline", thread, deadline);
}

bool threadIsRunning(const void* thread)
{
    return pass<bool>("_ZNK7QThread9isRunningEv", kThread, "isRunning", thread);
}

} // extern "C"

} // namespace testsupport
