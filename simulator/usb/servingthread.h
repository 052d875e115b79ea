#ifndef SIMULATOR_USB_SERVINGTHREAD_H
#define SIMULATOR_USB_SERVINGTHREAD_H

#include <atomic>
#include <functional>
#include <thread>

#include "common/scopeddescriptor.h"

namespace VorelKestrel::Simulator {

/**
 * A thread that serves one socket until the function returns. The destructor shuts the socket down and waits for the
 * thread.
 *
 * Requires:  the function returns when the socket has been shut down.
 */
class ServingThread
{
public:
    ServingThread(ScopedDescriptor socket, std::function<void(int socket)> serve);
    ServingThread(const ServingThread&) = delete;
    ServingThread& operator=(const ServingThread&) = delete;
    ~ServingThread();

    int socket() const { return m_socket.get(); }
    bool ended() const { return m_ended; }

private:
    ScopedDescriptor m_socket;
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

} // namespace VorelKestrel::Simulator

#endif
