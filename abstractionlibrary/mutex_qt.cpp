#include "abstractionlibrary/mutex.h"

#include <cassert>

#include <QMutex>

namespace VorelKestrel { namespace AL {

/// The Qt mutex itself, under a name that lets the header do without a Qt type.
class MutexPrivate : public QMutex
{
public:
    MutexPrivate() : QMutex(QMutex::NonRecursive) {}
};

Mutex::Mutex() : m_data(new MutexPrivate) {}

Mutex::~Mutex()
{
    assert(m_data);
    delete m_data;
}

void Mutex::lock()
{
    assert(m_data);
    m_data->lock();
}

bool Mutex::tryLock()
{
    assert(m_data);
    return m_data->tryLock(0);
}

void Mutex::unlock()
{
    assert(m_data);
    m_data->unlock();
}

}} // namespace VorelKestrel::AL
