#include "abstractionlibrary/thread.h"

#include <cassert>
#include <limits>

#include <QThread>

/// The Qt thread that runs a Thread's run(). It declares no signals and no slots, so it needs no meta-object.
class KestrelAlMyQThread : public QThread
{
public:
    using Entry = void (VorelKestrel::AL::Thread::*)();

    KestrelAlMyQThread(VorelKestrel::AL::Thread* owner, Entry entry) : m_owner(owner), m_entry(entry) {}
    ~KestrelAlMyQThread() override = default;

    void run() override { (m_owner->*m_entry)(); }

private:
    VorelKestrel::AL::Thread* m_owner; // not owned: it owns this object
    Entry m_entry;                     // called virtually, so it reaches the most derived run()
};

namespace VorelKestrel { namespace AL {

Thread::Thread() : m_data(new KestrelAlMyQThread(this, &Thread::run)) {}

Thread::~Thread()
{
    assert(m_data);
    delete m_data;
}

void Thread::start()
{
    assert(m_data);
    m_data->start(QThread::InheritPriority);
}

bool Thread::isRunning() const
{
    assert(m_data);
    return m_data->isRunning();
}

void Thread::join()
{
    assert(m_data);
    m_data->wait(std::numeric_limits<unsigned long>::max());
}

}} // namespace VorelKestrel::AL
