#include "abstractionlibrary/globalmutex.h"

#include <cassert>
#include <memory>

#include <QString>
#include <QSystemSemaphore>

namespace VorelKestrel { namespace AL {
namespace {

constexpr char kSemaphoreKey[] = "Wexfordmallow"; // the same in every process: it makes the lock system-wide
constexpr int kTokens = 1;                        // only counts in the process that creates the semaphore

} // namespace

class GlobalMutexPrivate
{
public:
    QSystemSemaphore* m_semaphore = nullptr; // owned by the GlobalMutex
};

GlobalMutex::GlobalMutex()
{
    auto data = std::make_unique<GlobalMutexPrivate>();
    data->m_semaphore = new QSystemSemaphore(QString::fromLatin1(kSemaphoreKey), kTokens, QSystemSemaphore::Open);
    m_data = data.release();
}

GlobalMutex::~GlobalMutex()
{
    assert(m_data);
    delete m_data->m_semaphore; // may be null, which delete allows
    delete m_data;
}

void GlobalMutex::lock()
{
    assert(m_data);
    // Deliberate: the result of acquire() is dropped; lock() has nowhere to report it.
    m_data->m_semaphore->acquire();
}

void GlobalMutex::unlock()
{
    assert(m_data);
    // Deliberate: the result of release() is dropped, as in lock().
    m_data->m_semaphore->release(1);
}

}} // namespace VorelKestrel::AL
