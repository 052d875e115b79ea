#include "tool/lock/systemlock.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <limits>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/scopeddescriptor.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

// The names that Qt gives: the file's is its word, then the letters of the lock's name, then the SHA-1 of that name.
constexpr char kKeyFileName[] = "qipc_systemsem_Wexfordmallowb528dc6704516c18d022877c1c01ebd38f99a27b";
constexpr int kProject = 'Q';
constexpr char kDefaultDirectory[] = "/tmp";
constexpr char kMark[] = "authchip lock seed, semaphore ";

/// What semctl() takes; the C library leaves the definition to its callers.
union SemaphoreArgument
{
    int value;
    semid_ds* status;
    unsigned short* values;
};

int control(int semaphore, int command, SemaphoreArgument argument = {})
{
    return semctl(semaphore, 0, command, argument);
}

bool isFile(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

/// Whether lock seed has made this very semaphore: the file names it, and outlives one that was removed.
bool isMarked(const LockState& state)
{
    std::ifstream file(state.keyFile);
    std::string line;
    std::getline(file, line);
    return line == kMark + std::to_string(state.semaphore);
}

/// Reads the rights in the kernel's list, which is open to users to whom the semaphore is not.
std::optional<LockRights> rightsOf(int semaphore)
{
    std::ifstream list("/proc/sysvipc/sem");
    constexpr auto kRestOfLine = std::numeric_limits<std::streamsize>::max();
    list.ignore(kRestOfLine, '\n'); // the names of the columns
    long long key = 0;
    int number = 0;
    unsigned semaphores = 0;
    LockRights rights;
    while (list >> key >> number >> std::oct >> rights.mode >> std::dec >> semaphores >> rights.owner >> rights.group) {
        if (number == semaphore)
            return rights;
        list.ignore(kRestOfLine, '\n');
    }
    return std::nullopt;
}

struct Counts
{
    int value = 0;
    int lastUser = 0;
    int waiting = 0;
    bool wasEverTaken = false;

    bool operator==(const Counts& other) const { return value == other.value && lastUser == other.lastUser; }
};

std::optional<Counts> countsOf(int semaphore)
{
    Counts counts;
    counts.value = control(semaphore, GETVAL);
    counts.lastUser = control(semaphore, GETPID);
    counts.waiting = control(semaphore, GETNCNT);
    semid_ds status = {};
    SemaphoreArgument whole = {};
    whole.status = &status;
    if (counts.value < 0 || counts.lastUser < 0 || counts.waiting < 0 || control(semaphore, IPC_STAT, whole) < 0)
        return std::nullopt;
    counts.wasEverTaken = status.sem_otime != 0;
    return counts;
}

LockCondition judge(const Counts& counts, bool lastUserIsAlive)
{
    if (counts.value > 1)
        return LockCondition::TooMany;
    if (counts.value == 1)
        return LockCondition::Free;
    // The kernel gives the token of a process that ends back: one that is gone after that does not come again. Nor does
    // one that was never there: Qt makes a semaphore without a token if the one that it found goes away meanwhile.
    return counts.wasEverTaken && lastUserIsAlive ? LockCondition::Held : LockCondition::Lost;
}

/// Value and last user are two calls; only a pair that stands still belongs together.
void readCounts(LockState& state)
{
    auto counts = countsOf(state.semaphore);
    while (counts) {
        const bool lastUserIsAlive = isAlive(counts->lastUser);
        const auto again = countsOf(state.semaphore);
        if (again && *again == *counts) {
            state.condition = judge(*again, lastUserIsAlive);
            state.value = again->value;
            state.lastUser = again->lastUser;
            state.waiting = again->waiting;
            return;
        }
        counts = again;
    }
    state.condition = errno == EACCES ? LockCondition::Unreadable : LockCondition::None; // or it has just gone
}

[[noreturn]] void fail(const std::string& tried, const std::string& next)
{
    const int error = errno;
    throw Failure(ExitStatus::Failed, tried, describeSystemError(error), next);
}

/// Opens the key file for the mark. A file without a semaphore is nobody's; another user's, who could take it away, is
/// made anew.
ScopedDescriptor openKeyFile(const std::string& path)
{
    struct stat status = {};
    const bool exists = lstat(path.c_str(), &status) == 0;
    if (exists && (!S_ISREG(status.st_mode) || status.st_uid != geteuid()))
        unlink(path.c_str());
    constexpr mode_t kForEverybodyToRead = 0644;
    ScopedDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kForEverybodyToRead));
    if (file.get() < 0 || fchmod(file.get(), kForEverybodyToRead) != 0)
        fail("make the key file " + path, "Run as root, and see that its folder exists and can be written.");
    return file;
}

void giveToken(int semaphore)
{
    SemaphoreArgument oneToken = {};
    oneToken.value = 1;
    if (control(semaphore, SETVAL, oneToken) < 0)
        fail("give semaphore " + std::to_string(semaphore) + " its token", "See the kernel's messages ('dmesg').");
}

void writeMark(const ScopedDescriptor& file, const std::string& path, int semaphore)
{
    const std::string mark = kMark + std::to_string(semaphore) + '\n';
    const bool written = ftruncate(file.get(), 0) == 0 &&
                         write(file.get(), mark.data(), mark.size()) == static_cast<ssize_t>(mark.size());
    if (!written)
        fail("write the key file " + path, "Look for a full disk.");
}

int change(int semaphore, short delta, const timespec* timeout)
{
    sembuf operation = {0, delta, SEM_UNDO};
    int result = -1;
    do {
        result = semtimedop(semaphore, &operation, 1, timeout);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? errno : 0;
}

timespec fromMilliseconds(int milliseconds)
{
    timespec time = {};
    time.tv_sec = milliseconds / 1000;
    time.tv_nsec = (milliseconds % 1000) * 1000000L;
    return time;
}

} // namespace

std::string lockKeyFile()
{
    const char* directory = std::getenv("TMPDIR");
    return lockKeyFile(directory == nullptr ? "" : directory);
}

std::string lockKeyFile(const std::string& temporaryDirectory)
{
    const std::filesystem::path directory(temporaryDirectory.empty() ? kDefaultDirectory : temporaryDirectory);
    return (directory / kKeyFileName).lexically_normal().string();
}

LockState lookAtLock(const std::string& keyFile)
{
    LockState state;
    state.keyFile = keyFile;
    state.keyFileExists = isFile(keyFile);
    state.key = state.keyFileExists ? ftok(keyFile.c_str(), kProject) : -1;
    state.semaphore = state.key == -1 ? -1 : semget(state.key, 0, 0);
    if (state.semaphore < 0)
        return state;
    state.stays = isMarked(state);
    state.rights = rightsOf(state.semaphore).value_or(LockRights{});
    readCounts(state);
    return state;
}

bool isAlive(pid_t process)
{
    return kill(process, 0) == 0 || errno == EPERM;
}

void makeLock(const std::string& keyFile, const LockRights& rights)
{
    constexpr int kForTheOwner = 0600; // until it has its count and its rights
    const ScopedDescriptor file = openKeyFile(keyFile);
    LockState state;
    state.semaphore = semget(ftok(keyFile.c_str(), kProject), 1, IPC_CREAT | IPC_EXCL | kForTheOwner);
    if (state.semaphore < 0)
        fail("make the semaphore of " + keyFile, "See 'authchip lock status'; 'ipcs -ls' shows the system's limits.");
    try {
        setRights(state, rights); // before there is a token to be taken
        giveToken(state.semaphore);
        writeMark(file, keyFile, state.semaphore);
    } catch (const Failure&) {
        control(state.semaphore, IPC_RMID); // without a token, the first process that comes would wait for ever
        throw;
    }
}

void setRights(const LockState& state, const LockRights& rights)
{
    semid_ds status = {};
    SemaphoreArgument argument = {};
    argument.status = &status;
    bool done = control(state.semaphore, IPC_STAT, argument) == 0;
    status.sem_perm.uid = rights.owner;
    status.sem_perm.gid = rights.group;
    status.sem_perm.mode = static_cast<unsigned short>(rights.mode);
    done = done && control(state.semaphore, IPC_SET, argument) == 0;
    if (!done)
        fail("set the rights of semaphore " + std::to_string(state.semaphore), "Run as its owner or as root.");
}

LockToken::LockToken(int semaphore, int milliseconds) : m_semaphore(semaphore)
{
    const timespec timeout = fromMilliseconds(milliseconds);
    m_error = change(semaphore, -1, &timeout);
}

LockToken::~LockToken()
{
    if (isHeld())
        change(m_semaphore, 1, nullptr);
}

} // namespace VorelKestrel::Tool
