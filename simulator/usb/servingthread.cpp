#include "simulator/usb/servingthread.h"

#include <utility>

#include <sys/socket.h>

namespace VorelKestrel::Simulator {

ServingThread::ServingThread(ScopedDescriptor socket, std::function<void(int socket)> serve)
    : m_socket(std::move(socket)), m_thread([this, serve = std::move(serve)] {
          serve(m_socket.get());
          shutdown(m_socket.get(), SHUT_RDWR); // so that the other side need not wait for the destructor
          m_ended = true;
      })
{}

ServingThread::~ServingThread()
{
    shutdown(m_socket.get(), SHUT_RDWR);
    m_thread.join();
}

} // namespace VorelKestrel::Simulator
