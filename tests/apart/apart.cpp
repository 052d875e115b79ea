// Runs a test apart from the machine and from other tests, and leaves nothing of it behind.
// Usage: apart [--shares-locks] [NAME=VALUE...] COMMAND [ARGUMENT...]
//
// The command gets
//   - its own folder: HOME is this folder, TMPDIR is inside, and it is removed with its contents;
//   - an environment in which nothing is anybody's: PATH with the folders for root's programs, what the lists below
//     let pass, and the values that are named before the command;
//   - every signal as the system delivers it by default, umask 022, no standard input, no other open file;
//   - System V objects of its own, where the system allows that: mostly for root. Where it does not, those that share
//     locks take turns: the key of a lock has 16 bits of the number of a file, which two files can have in common;
//   - a session of its own. What it leaves running when it ends is killed.
// The exit status is the command's; a signal that ends the command ends this program too.

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int kCannotStart = 127;        // as a shell says it
constexpr std::size_t kLongestBase = 40; // the address of a local socket takes 107 characters, most are a test's own

/// What passes from the caller's environment: how sanitizers and the emulator work, and the figures of a long run.
constexpr const char* kPasses[] = {"ASAN_OPTIONS", "LSAN_OPTIONS",   "TSAN_OPTIONS",  "UBSAN_OPTIONS",
                                   "GCOV_PREFIX",  "QEMU_LD_PREFIX", "AUTHCHIP_TEST_"};
constexpr const char* kProgramFolders = "/usr/local/bin:/usr/bin:/bin:/usr/local/sbin:/usr/sbin:/sbin";

volatile sig_atomic_t g_command = 0; // the process of the command, once it runs

[[noreturn]] void giveUp(const std::string& what)
{
    std::cerr << "apart: " << what << ": " << std::strerror(errno) << '\n';
    _exit(kCannotStart);
}

bool everyUserMayEnter(fs::path folder)
{
    for (;; folder = folder.parent_path()) {
        struct stat status = {};
        if (stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0)
            return false;
        if (!folder.has_relative_path())
            return true;
    }
}

/// Some tests become another user, and some put sockets into it.
std::string folderForFolders()
{
    const char* const wanted = std::getenv("TMPDIR");
    if (wanted != nullptr && wanted[0] == '/' && std::strlen(wanted) <= kLongestBase && everyUserMayEnter(wanted) &&
        access(wanted, W_OK) == 0)
        return wanted;
    return "/tmp";
}

std::string makeFolder()
{
    std::string folder = folderForFolders() + "/authchip-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
        giveUp("no folder " + folder);
    const std::string temporary = folder + "/tmp";
    if (chmod(folder.c_str(), 0755) != 0 || mkdir(temporary.c_str(), 0755) != 0)
        giveUp("no folder " + temporary);
    return folder;
}

/// Without folders that this user may not enter: with these, a missing program is reported as forbidden.
std::string programFolders()
{
    const char* const path = std::getenv("PATH");
    std::istringstream wanted(path == nullptr ? "" : path);
    std::string folders;
    for (std::string folder; std::getline(wanted, folder, ':');) {
        if (folder.rfind('/', 0) == 0 && access(folder.c_str(), X_OK) == 0)
            folders += folder + ':';
    }
    return folders + kProgramFolders;
}

std::vector<std::string> environmentIn(const std::string& folder)
{
    std::vector<std::string> environment = {
        "PATH=" + programFolders(),
        "HOME=" + folder,
        "TMPDIR=" + folder + "/tmp",
        "LC_ALL=C",
        "TZ=UTC0",
        "AUTHCHIP_TEST_APART=" + folder,
        "AUTHCHIP_CONFIG=/dev/null",
    };
    for (char** variable = environ; *variable != nullptr; ++variable) {
        for (const char* const name : kPasses) {
            if (std::strncmp(*variable, name, std::strlen(name)) == 0)
                environment.emplace_back(*variable);
        }
    }
    return environment;
}

/// Waits until no other command on this machine has the turn. It is over when the descriptor is closed: the name is one
/// of a socket without a file, which nobody can leave behind. Whoever waits is connected to whoever has the turn.
int takeTurn()
{
    sockaddr_un address = {AF_UNIX, "\0authchip: a test with locks of the system"};
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    while (true) {
        const int turn = socket(AF_UNIX, SOCK_STREAM, 0);
        if (bind(turn, name, sizeof(address)) == 0 && listen(turn, SOMAXCONN) == 0)
            return turn;
        char nothing = 0;
        if (connect(turn, name, sizeof(address)) == 0) [[maybe_unused]]
            const ssize_t end = read(turn, &nothing, 1); // none comes, but the end
        close(turn);
    }
}

void resetSignals()
{
    for (int signal = 1; signal < NSIG; ++signal)
        std::signal(signal, SIG_DFL); // fails for some that always are
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

void resetFiles()
{
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(output, F_GETFD) == -1)
            dup2(nothing, output);
    }
    closefrom(STDERR_FILENO + 1);
    const rlimit noCore = {0, RLIM_INFINITY};
    setrlimit(RLIMIT_CORE, &noCore);
}

[[noreturn]] void becomeCommand(const std::string& folder, char** arguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // if this program is killed before it can clean up
    setsid();
    resetSignals();
    resetFiles();
    std::vector<std::string> environment = environmentIn(folder);
    for (; *arguments != nullptr && std::strchr(*arguments, '=') != nullptr; ++arguments)
        environment.emplace_back(*arguments);
    if (*arguments == nullptr) {
        errno = EINVAL;
        giveUp("no command");
    }
    std::vector<char*> variables;
    variables.reserve(environment.size() + 1);
    for (std::string& variable : environment)
        variables.push_back(variable.data());
    variables.push_back(nullptr);
    environ = variables.data(); // where execvp looks for PATH
    execvp(*arguments, arguments);
    giveUp(*arguments);
}

void forward(int signal)
{
    if (g_command != 0)
        kill(-g_command, signal);
}

/// The status of the command, after it and all processes that it left running have ended.
int statusOf(pid_t command)
{
    int result = 0;
    for (int status = 0; waitpid(command, &status, 0) == command || errno == EINTR;) {
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            result = status;
            break;
        }
    }
    g_command = 0;
    const std::string children = "/proc/self/task/" + std::to_string(getpid()) + "/children";
    while (true) {
        kill(-command, SIGKILL);
        std::ifstream list(children);
        for (pid_t child = 0; list >> child;)
            kill(child, SIGKILL);
        if (waitpid(-1, nullptr, 0) == -1 && errno == ECHILD)
            return result;
    }
}

/// The semaphores that the test programs have written down and that belong to this test alone (ownsemaphores.cpp).
void removeSemaphores(const std::string& folder)
{
    std::ifstream numbers(folder + "/semaphores");
    for (int number = 0; numbers >> number;) {
        semid_ds state = {};
        if (semctl(number, 0, IPC_STAT, &state) == 0 && state.sem_perm.__key == IPC_PRIVATE)
            semctl(number, 0, IPC_RMID);
    }
}

void removeFolder(const std::string& folder)
{
    std::error_code error;
    fs::remove_all(folder, error);
    if (error)
        std::cerr << "apart: " << folder << " is left behind: " << error.message() << '\n';
}

[[noreturn]] void endAs(int status)
{
    if (WIFSIGNALED(status)) {
        const rlimit noCore = {0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        resetSignals();
        raise(WTERMSIG(status));
    }
    _exit(WEXITSTATUS(status));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0) {
        std::cerr << "usage: apart [--shares-locks] [NAME=VALUE...] COMMAND [ARGUMENT...]\n";
        return 2;
    }
    const bool sharesLocks = std::strcmp(argv[1], "--shares-locks") == 0;
    const bool hasOwnObjects = unshare(CLONE_NEWIPC) == 0;
    if (sharesLocks && !hasOwnObjects)
        takeTurn(); // until this program ends
    umask(022);
    const std::string folder = makeFolder();
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t ends;
    sigset_t before;
    sigemptyset(&ends);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&ends, signal);
        std::signal(signal, forward);
    }
    sigprocmask(SIG_BLOCK, &ends, &before);
    const pid_t command = fork();
    if (command == -1)
        giveUp("no process");
    if (command == 0)
        becomeCommand(folder, argv + (sharesLocks ? 2 : 1));
    g_command = command;
    sigprocmask(SIG_UNBLOCK, &ends, nullptr);
    const int status = statusOf(command);
    removeSemaphores(folder);
    removeFolder(folder);
    endAs(status);
}
