#include "tests/support/observedthread.h"

#include <fstream>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace testsupport {

namespace {

constexpr char kAsleep = 'S';

/// The state letter of a thread or process follows its name in parentheses.
bool isAsleep(const std::string& directory)
{
    std::ifstream file(directory + "/stat");
    std::string line;
    std::getline(file, line);
    const auto end = line.rfind(") ");
    return end != std::string::npos && line.at(end + 2) == kAsleep;
}

} // namespace

ObservedThread::ObservedThread(std::function<void()> body)
    : m_thread([this, body = std::move(body)] {
          m_id = static_cast<pid_t>(syscall(SYS_gettid));
          body();
          m_hasEnded = true;
      })
{}

void ObservedThread::waitUntilItSleeps() const
{
    while (!m_hasEnded && (m_id == 0 || !isAsleep("/proc/self/task/" + std::to_string(m_id))))
        std::this_thread::yield();
}

void ObservedThread::join()
{
    if (m_thread.joinable())
        m_thread.join();
}

void waitUntilProcessSleeps(pid_t process)
{
    while (!isProcessAsleep(process))
        std::this_thread::yield();
}

bool isProcessAsleep(pid_t process)
{
    return isAsleep("/proc/" + std::to_string(process));
}

} // namespace testsupport
