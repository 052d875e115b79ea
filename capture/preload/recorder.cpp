#include "capture/preload/recorder.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "capture/settings.h"
#include "common/next.h"

namespace VorelKestrel::Capture {
namespace {

constexpr int kFirstDescriptor = 200; // programs expect the small numbers

struct Settings
{
    bool redact = false;
    std::int64_t offset = 0; // added to times
    char path[PATH_MAX] = "";
};

Settings g_settings;
Tally g_ownTally; // if the shared one cannot be mapped
Tally* g_tally = &g_ownTally;
std::atomic<bool> g_isRecording{false};
std::atomic<int> g_file{-1};
dev_t g_device; // of the file, to recognize it
ino_t g_inode;

// The capture's own calls bypass other preloaded libraries.
int rawOpen(const char* path, int flags)
{
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC | O_LARGEFILE, 0));
}

void rawClose(int descriptor)
{
    syscall(SYS_close, descriptor);
}

void giveUp(int error)
{
    g_isRecording = false;
    AL::U32 none = 0;
    g_tally->error.compare_exchange_strong(none, static_cast<AL::U32>(error));
}

/// A copy of the descriptor with a large number; the descriptor itself if the limit is small.
int outOfTheWay(int descriptor)
{
    static Next<int(int, int, ...)> nextFcntl("fcntl");
    const int copy = nextFcntl(descriptor, F_DUPFD_CLOEXEC, kFirstDescriptor);
    if (copy == -1)
        return descriptor;
    rawClose(descriptor);
    return copy;
}

/// Whether the descriptor still refers to the capture file; the program may have closed it without us.
bool isIntact(int file, struct stat& status)
{
    return file != -1 && fstat(file, &status) == 0 && status.st_dev == g_device && status.st_ino == g_inode;
}

/// Returns a descriptor of the file, and its status; -1 if it cannot be opened.
int captureFile(struct stat& status)
{
    int file = g_file;
    if (isIntact(file, status))
        return file;
    int opened = rawOpen(g_settings.path, O_WRONLY | O_APPEND);
    if (opened == -1 || fstat(opened, &status) != 0)
        return -1;
    opened = outOfTheWay(opened);
    g_device = status.st_dev;
    g_inode = status.st_ino;
    if (g_file.compare_exchange_strong(file, opened))
        return opened;
    rawClose(opened); // another thread has opened it
    return g_file;
}

/// Writing beyond the file size limit would kill the program by a signal.
bool isWithinLimit(const struct stat& status, std::size_t length)
{
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
           static_cast<rlim_t>(status.st_size) + length <= limit.rlim_cur;
}

/// The memory shared with the process that runs the capture.
void shareTally(long process, long descriptor)
{
    char path[64];
    std::snprintf(path, sizeof(path), "/proc/%ld/fd/%ld", process, descriptor);
    const int memory = rawOpen(path, O_RDWR);
    if (memory == -1)
        return;
    void* shared = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0);
    rawClose(memory);
    if (shared != MAP_FAILED)
        g_tally = static_cast<Tally*>(shared);
}

} // namespace

void startRecorder()
{
    const char* text = std::getenv(kSettingsVariable);
    if (text == nullptr)
        return;
    char* rest = nullptr;
    g_settings.redact = std::strtol(text, &rest, 10) != 0;
    g_settings.offset = std::strtoll(rest, &rest, 10);
    const long process = std::strtol(rest, &rest, 10);
    const long descriptor = std::strtol(rest, &rest, 10);
    if (*rest != ' ' || rest[1] != '/' || std::strlen(rest + 1) >= sizeof(g_settings.path))
        return;
    std::memcpy(g_settings.path, rest + 1, std::strlen(rest + 1) + 1);
    shareTally(process, descriptor);
    ++g_tally->processes;
    g_isRecording = true;
}

bool isRecording()
{
    return g_isRecording.load(std::memory_order_relaxed);
}

std::uint64_t now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec + g_settings.offset);
}

void record(OpenNode& node, Record& record)
{
    record.facts.bus = node.bus;
    record.facts.process = static_cast<AL::U32>(getpid());
    record.facts.thread = static_cast<AL::U32>(syscall(SYS_gettid));
    record.redact = g_settings.redact;
    if (record.facts.call != Call::SelectAddress) {
        Conversation conversation = node.conversation;
        conversation.follow(record);
        node.conversation = conversation;
    }
    struct stat status = {};
    const int file = captureFile(status);
    if (file == -1)
        return giveUp(errno);
    const EncodedRecord encoded(record);
    if (!isWithinLimit(status, encoded.length()))
        return giveUp(EFBIG);
    const long written = syscall(SYS_writev, file, encoded.pieces(), encoded.pieceCount());
    if (written == -1)
        return giveUp(errno);
    if (static_cast<std::size_t>(written) != encoded.length())
        return giveUp(ENOSPC); // only a part was written: the disk is full
    ++g_tally->messages;
}

void openCapture()
{
    struct stat status = {};
    if (captureFile(status) == -1)
        giveUp(errno);
}

bool isCapture(int descriptor)
{
    struct stat status = {};
    return descriptor == g_file.load(std::memory_order_relaxed) && isIntact(descriptor, status);
}

void makeWay(int descriptor)
{
    if (isCapture(descriptor))
        g_file = outOfTheWay(descriptor);
}

} // namespace VorelKestrel::Capture
