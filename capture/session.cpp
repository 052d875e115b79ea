#include "capture/session.h"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

#include "capture/capturefile.h"
#include "common/preload.h"

namespace VorelKestrel::Capture {
namespace {

namespace fs = std::filesystem;

std::int64_t nanosecondsOf(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

[[noreturn]] void throwSystemError(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

Session::Session(const std::string& path, const std::string& program, const std::string& library, bool redact)
    : m_library(library), m_redact(redact)
{
    {
        const CaptureFile file(path, program);
    }
    m_path = fs::canonical(path);
    m_headLength = fs::file_size(m_path);
    m_memory = ScopedDescriptor(memfd_create("authchip-capture", MFD_CLOEXEC));
    if (m_memory.get() == -1 || ftruncate(m_memory.get(), sizeof(Tally)) != 0)
        throwSystemError("cannot share memory with the program");
    void* memory = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED, m_memory.get(), 0);
    if (memory == MAP_FAILED)
        throwSystemError("cannot share memory with the program");
    m_tally = static_cast<Tally*>(memory); // all zero
}

Session::~Session()
{
    munmap(m_tally, sizeof(Tally));
}

std::vector<std::string> Session::environment() const
{
    return {"LD_PRELOAD=" + preloadsWith(m_library.get()), std::string(kSettingsVariable) + "=" + settings()};
}

std::string Session::settings() const
{
    const std::int64_t offset = nanosecondsOf(CLOCK_REALTIME) - nanosecondsOf(CLOCK_MONOTONIC);
    return std::to_string(m_redact ? 1 : 0) + " " + std::to_string(offset) + " " + std::to_string(getpid()) + " " +
           std::to_string(m_memory.get()) + " " + m_path;
}

bool Session::hasRecorded() const
{
    std::error_code gone;
    const auto length = fs::file_size(m_path, gone);
    return gone || length > m_headLength;
}

} // namespace VorelKestrel::Capture
