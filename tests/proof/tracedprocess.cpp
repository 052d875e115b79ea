#include "tests/proof/tracedprocess.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/ipc.h>
#include <sys/ptrace.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "tests/support/observedthread.h"

using namespace testsupport;

namespace {

constexpr long kMarker = SYS_getppid;
constexpr std::uint64_t kEntryMark = 0x656e746572; // an argument that is not used otherwise
constexpr std::uint64_t kExitMark = 0x6c65617665;
constexpr int kNotTraceable = 77;
#ifdef SYS_renameat
constexpr std::uint64_t kRename = SYS_renameat;
#else
constexpr std::uint64_t kRename = SYS_renameat2;
#endif

constexpr int kSystemCallStop = SIGTRAP | 0x80;

void readMemory(pid_t process, std::uint64_t address, void* destination, std::size_t length)
{
    iovec here = {destination, length};
    iovec there = {reinterpret_cast<void*>(address), length}; // NOLINT(performance-no-int-to-ptr): another process's
    process_vm_readv(process, &here, 1, &there, 1, 0);
}

void writeMemory(pid_t process, std::uint64_t address, const void* source, std::size_t length)
{
    iovec here = {const_cast<void*>(source), length};
    iovec there = {reinterpret_cast<void*>(address), length}; // NOLINT(performance-no-int-to-ptr): another process's
    process_vm_writev(process, &here, 1, &there, 1, 0);
}

std::string fileName(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

[[noreturn]] void runTraced(const std::function<void()>& body)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(kNotTraceable);
    raise(SIGSTOP);
    body();
    _exit(0);
}

} // namespace

const char* nameOf(LockCall call)
{
    constexpr const char* kNames[] = {"open",  "stat",  "create",       "attach", "fill",   "take",
                                      "enter", "leave", "give",         "unlink", "remove", "exit",
                                      "draft", "place", "unlink-draft", "replace"};
    return kNames[static_cast<std::size_t>(call)];
}

void markEntry()
{
    syscall(kMarker, kEntryMark);
}

void markExit()
{
    syscall(kMarker, kExitMark);
}

bool TracedProcess::isTracingPossible()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : kNotTraceable);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TracedProcess::TracedProcess(const std::function<void()>& body, const std::string& keyFile, InodeOfFile inodeOf)
    : m_id(fork()), m_keyFile(fileName(keyFile)), m_inodeOf(std::move(inodeOf))
{
    if (m_id == 0)
        runTraced(body);
    int status = 0;
    waitpid(m_id, &status, 0);
    if (!WIFSTOPPED(status))
        throw std::runtime_error("a process cannot be traced");
    ptrace(PTRACE_SETOPTIONS, m_id, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
}

TracedProcess::~TracedProcess()
{
    if (!hasEnded())
        kill();
}

void TracedProcess::kill()
{
    ::kill(m_id, SIGKILL);
    waitpid(std::exchange(m_id, 0), nullptr, 0);
}

void TracedProcess::resume(bool toSystemCall) const
{
    ptrace(toSystemCall ? PTRACE_SYSCALL : PTRACE_CONT, m_id, nullptr, nullptr);
}

LockCall TracedProcess::next()
{
    while (!m_isStopped) {
        int status = 0;
        resume(true);
        waitpid(m_id, &status, 0);
        if (WIFEXITED(status) || WIFSIGNALED(status))
            throw std::runtime_error("a process has ended in another way than by a call");
        if (!WIFSTOPPED(status) || WSTOPSIG(status) != kSystemCallStop)
            continue; // it has executed a program
        __ptrace_syscall_info info = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, m_id, sizeof(info), &info);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        std::memcpy(m_arguments.data(), info.entry.args, sizeof(info.entry.args));
        m_isStopped = isFileCall(info.entry.nr) || isSemaphoreCall(info.entry.nr);
        const auto call = static_cast<long>(info.entry.nr);
        if ((call == SYS_newfstatat || call == SYS_fstat) && !m_isStopped) {
            resume(true);
            waitpid(m_id, &status, 0);
            ptrace(PTRACE_GET_SYSCALL_INFO, m_id, sizeof(info), &info);
            answerStat(call, info.exit.rval);
        }
    }
    return m_call;
}

std::string TracedProcess::readText(std::uint64_t address) const
{
    std::string text;
    for (char letter = 1; letter != 0; ++address) {
        letter = 0;
        readMemory(m_id, address, &letter, 1);
        if (letter != 0)
            text += letter;
    }
    return text;
}

bool TracedProcess::isFileCall(std::uint64_t number)
{
    const auto isOn = [this](std::uint64_t address, bool draft) {
        m_path = readText(address);
        const std::string name = fileName(m_path);
        return draft ? name.rfind(m_keyFile + ".seed-", 0) == 0 : name == m_keyFile;
    };
    const auto is = [this](LockCall call) {
        m_call = call;
        return true;
    };
    switch (number) {
    case SYS_openat:
        if ((m_arguments[2] & O_CREAT) == 0)
            return false;
        if (isOn(m_arguments[1], true))
            return is(LockCall::Draft);
        return isOn(m_arguments[1], false) && is(LockCall::Open);
    case SYS_newfstatat: // a seed's are relative to the folder; it looks more than once
        return static_cast<int>(m_arguments[0]) == AT_FDCWD && isOn(m_arguments[1], false) && is(LockCall::Stat);
#ifdef SYS_unlink
    case SYS_unlink:
        return isOn(m_arguments[0], false) && is(LockCall::Unlink);
#endif
    case SYS_unlinkat:
        if (isOn(m_arguments[1], true))
            return is(LockCall::UnlinkDraft);
        return isOn(m_arguments[1], false) && is(LockCall::Unlink);
    case SYS_linkat:
        return isOn(m_arguments[3], false) && is(LockCall::Place);
    case kRename:
        return isOn(m_arguments[3], false) && is(LockCall::Replace);
    case SYS_exit_group:
        return is(LockCall::Exit);
    default:
        return false;
    }
}

bool TracedProcess::isSemaphoreCall(std::uint64_t number)
{
    constexpr std::uint64_t kWidth = ~std::uint64_t{0x100}; // some architectures add the version of the structures
    const auto is = [this](LockCall call) {
        m_call = call;
        return true;
    };
    switch (number) {
    case SYS_semget:
        if ((m_arguments[2] & IPC_CREAT) == 0)
            return false;
        return is((m_arguments[2] & IPC_EXCL) != 0 ? LockCall::Create : LockCall::Attach);
    case SYS_semctl:
        if ((m_arguments[2] & kWidth) == IPC_RMID)
            return is(LockCall::Remove);
        if ((m_arguments[2] & kWidth) == SETALL || ((m_arguments[2] & kWidth) == SETVAL && m_arguments[1] == 0))
            return is(LockCall::Fill);
        return false;
    case SYS_semop:
    case SYS_semtimedop: {
        sembuf operation = {};
        readMemory(m_id, m_arguments[1], &operation, sizeof(operation));
        return is(operation.sem_op < 0 ? LockCall::Take : LockCall::Give);
    }
    case static_cast<std::uint64_t>(kMarker):
        if (m_arguments[0] == kEntryMark)
            return is(LockCall::Enter);
        return m_arguments[0] == kExitMark && is(LockCall::Leave);
    default:
        return false;
    }
}

/// Normally the file system chooses the number of a new file; here the model does.
void TracedProcess::answerStat(long number, long result) const
{
    if (result != 0)
        return;
    const std::uint64_t answer = m_arguments.at(number == SYS_fstat ? 1 : 2);
    struct stat status = {};
    readMemory(m_id, answer, &status, sizeof(status));
    const std::uint64_t inode = m_inodeOf(status.st_ino);
    writeMemory(m_id, answer + offsetof(struct stat, st_ino), &inode, sizeof(inode));
}

long TracedProcess::perform()
{
    m_isStopped = false;
    int status = 0;
    resume(true);
    waitpid(m_id, &status, 0);
    if (WIFEXITED(status) || WIFSIGNALED(status)) {
        m_id = 0;
        return 0;
    }
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, m_id, sizeof(info), &info);
    const long result = info.exit.rval;
    if (m_call == LockCall::Stat)
        answerStat(SYS_newfstatat, result);
    return result;
}

void TracedProcess::sleepIn()
{
    resume(false);
    waitUntilProcessSleeps(m_id);
}
