#ifndef ABSTRACTIONLIBRARY_TIMEDTAKE_H
#define ABSTRACTIONLIBRARY_TIMEDTAKE_H

#include <ctime>

#include <QElapsedTimer>
#include <QThread>

namespace VorelKestrel { namespace AL {

/// Takes a mutex or semaphore of Qt within @p timeout milliseconds; @p take is the call that waits, tryLock() or
/// tryAcquire(). Qt 5.15, as Debian 13 has it for 32-bit ARM, hands the kernel a time of 64 bits where that expects one
/// of 32: the fraction of the second is lost, and the call ends early. The rest is waited for here.
template<typename Take>
bool takeWithin(int timeout, Take take)
{
    if constexpr (sizeof(std::time_t) == sizeof(long)) {
        return take(timeout);
    } else {
        QElapsedTimer timer;
        timer.start();
        bool isTaken = take(timeout);
        for (qint64 rest = timeout - timer.elapsed(); !isTaken && rest > 0; rest = timeout - timer.elapsed()) {
            QThread::msleep(1);
            isTaken = take(static_cast<int>(rest));
        }
        return isTaken;
    }
}

}} // namespace VorelKestrel::AL

#endif
