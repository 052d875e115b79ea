#include "abstractionlibrary/queue.h"

#include <algorithm>
#include <cassert>
#include <limits>

#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QSemaphore>
#include <QTime>

#include "abstractionlibrary/timedtake.h"

namespace VorelKestrel { namespace AL {
namespace {

/// What is left of @p timeout after @p elapsed milliseconds.
int remainingTime(int timeout, int elapsed)
{
    using Limits = std::numeric_limits<int>;
    const long long remaining = static_cast<long long>(timeout) - elapsed;
    // Deliberate: a negative timeout shrinks instead of staying as it was; passed again it still means no limit.
    const int least = timeout >= 0 ? 0 : Limits::min();
    return static_cast<int>(std::clamp<long long>(remaining, least, Limits::max()));
}

} // namespace

class QueueVoidPrivate
{
public:
    QMutex m_mutex{QMutex::NonRecursive};
    QSemaphore m_semaphore{0}; // counts the values in m_list
    QList<void*> m_list;       // oldest first; guarded by m_mutex
};

QueueVoid::QueueVoid() : m_data(new QueueVoidPrivate) {}

QueueVoid::~QueueVoid()
{
    assert(m_data);
    delete m_data;
}

void QueueVoid::push(void* value)
{
    assert(m_data);
    assert(value);
    const QMutexLocker locker(&m_data->m_mutex);
    m_data->m_list.append(value);
    m_data->m_semaphore.release();
}

void* QueueVoid::pop(int& timeout)
{
    assert(m_data);
    // The time of day, not a monotonic clock: callers are told so.
    const QTime start = QTime::currentTime();
    void* result = nullptr;
    if (takeWithin(timeout, [this](int time) { return m_data->m_semaphore.tryAcquire(1, time); })) {
        const QMutexLocker locker(&m_data->m_mutex);
        result = m_data->m_list.first();
        assert(result);
        m_data->m_list.removeFirst();
    }
    timeout = remainingTime(timeout, start.msecsTo(QTime::currentTime()));
    return result;
}

}} // namespace VorelKestrel::AL
