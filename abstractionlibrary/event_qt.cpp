#include "abstractionlibrary/event.h"

#include <cassert>
#include <cstddef>

#include <QMutex>

#include "abstractionlibrary/timedtake.h"

namespace VorelKestrel { namespace AL {

/// Two mutexes used as binary semaphores: each is taken by one thread and released by another. One of them is held at
/// any time between two operations.
class EventVoidPrivate
{
public:
    ~EventVoidPrivate()
    {
        // Deliberate: both are unlocked first. One of them is always locked, and Qt warns on the console about a mutex
        // that is destroyed locked.
        letGo(m_setMutex);
        letGo(m_waitMutex);
    }

    QMutex m_waitMutex{QMutex::NonRecursive}; // held while the slot is empty
    QMutex m_setMutex{QMutex::NonRecursive};  // held while the slot is full

private:
    static void letGo(QMutex& mutex)
    {
        mutex.tryLock(0); // whether held before or only now, it is held after this line
        mutex.unlock();
    }
};

EventVoid::EventVoid() : m_data(new EventVoidPrivate)
{
    m_data->m_waitMutex.lock();
}

EventVoid::~EventVoid()
{
    assert(m_data);
    delete m_data;
}

void* EventVoid::wait(int timeout)
{
    assert(m_data);
    if (!takeWithin(timeout, [this](int time) { return m_data->m_waitMutex.tryLock(time); }))
        return nullptr;
    assert(m_value);
    void* const value = m_value;
    m_value = nullptr;
    m_data->m_setMutex.unlock();
    return value;
}

bool EventVoid::set(void* value)
{
    assert(m_data);
    assert(value);
    if (!m_data->m_setMutex.tryLock(0))
        return false;
    assert(m_value == NULL); // NOLINT(modernize-use-nullptr): the text of the assertion is part of the interface.
    m_value = value;
    m_data->m_waitMutex.unlock();
    return true;
}

}} // namespace VorelKestrel::AL
