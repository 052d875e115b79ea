// Runs a test apart from the machine and from other tests, and leaves nothing of it behind.
// Usage: apart [NAME=VALUE...] COMMAND [ARGUMENT...]
//
// The command gets
//   - a folder of its own: TMPDIR is in it, HOME is it, and it is removed with all that is in it;
//   - an environment in which nothing is anybody's: PATH with the folders for root's programs, what the lists below
//     let pass, and the values that are named before the command;
//   - every signal as the system delivers it by default, umask 022, no standard input, no other open file;
//   - System V objects of its own, where the system allows that: as root, or as a user who may make a namespace;
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
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/stat.h>
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

std::vector<std::string> environmentIn(const std::string& folder)
{
    const char* const path = std::getenv("PATH");
    std::vector<std::string> environment = {
        "PATH=" + (path == nullptr || path[0] == '\0' ? "" : path + std::string(":")) + kProgramFolders,
        "HOME=" + folder,
        "TMPDIR=" + folder + "/tmp",
        "LC_ALL=C",
        "TZ=UTC0",
        "AUTHCHIP_TEST_APART=" + folder,
    };
    for (char** variable = environ; *variable != nullptr; ++variable) {
        for (const char* const name : kPasses) {
            if (std::strncmp(*variable, name, std::strlen(name)) == 0)
                environment.emplace_back(*variable);
        }
    }
    return environment;
}

void write(const char* file, const std::string& text)
{
    std::ofstream stream(file);
    stream << text << std::flush;
    if (!stream)
        throw std::system_error(errno, std::generic_category(), file);
}

/// An ordinary user makes one as the root of a namespace of users in which everybody keeps the own number.
void makeOwnObjectsAsUser()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0)
        throw std::system_error(errno, std::generic_category(), "unshare");
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", user + ' ' + user + " 1");
    write("/proc/self/gid_map", group + ' ' + group + " 1");
}

/// Whether the last attempt would go well is only known when it has been made, and there is no way back.
bool mayMakeOwnObjectsAsUser()
{
    const pid_t attempt = fork();
    if (attempt == 0) {
        try {
            makeOwnObjectsAsUser();
        } catch (const std::system_error&) {
            _exit(1);
        }
        _exit(0);
    }
    int status = 1;
    return waitpid(attempt, &status, 0) == attempt && status == 0;
}

void makeOwnObjects()
{
    if (unshare(CLONE_NEWIPC) == 0)
        return;
    // Not for root, who could not become another user in there.
    if (geteuid() != 0 && mayMakeOwnObjectsAsUser())
        makeOwnObjectsAsUser();
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
    umask(022);
    const rlimit noCore = {0, RLIM_INFINITY};
    setrlimit(RLIMIT_CORE, &noCore);
}

[[noreturn]] void becomeCommand(const std::string& folder, char** arguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // if this program is killed before it can clean up
    setsid();
    resetSignals();
    resetFiles();
    makeOwnObjects();
    std::vector<std::string> environment = environmentIn(folder);
    for (; *arguments != nullptr && std::strchr(*arguments, '=') != nullptr; ++arguments)
        environment.emplace_back(*arguments);
    if (*arguments == nullptr) {
        errno = EINVAL;
        giveUp("no command");
    }
    std::vector<char*> variables;
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

/// The status of the command; what it left behind has ended too, and so has what that had left.
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

/// The semaphores that the test programs have written down, if they were nobody's but this test's (ownsemaphores.cpp).
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
        std::cerr << "usage: apart [NAME=VALUE...] COMMAND [ARGUMENT...]\n";
        return 2;
    }
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
        becomeCommand(folder, argv + 1);
    g_command = command;
    sigprocmask(SIG_UNBLOCK, &ends, nullptr);
    const int status = statusOf(command);
    removeSemaphores(folder);
    removeFolder(folder);
    endAs(status);
}
