#include "tool/lock/processes.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/scopeddescriptor.h"
#include "tests/support/anotheruser.h"
#include "tests/support/childprocess.h"
#include "tests/support/temporarydirectory.h"
#include "tool/lock/inwords.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;
using namespace testsupport;

namespace {

struct RightsCase
{
    const char* name;
    BusUser user;
    LockRights rights;
    bool mayUse;
};

BusUser userOf(uid_t user, std::set<gid_t> groups)
{
    BusUser result;
    result.user = user;
    result.groups = std::move(groups);
    return result;
}

BusUser privileged()
{
    BusUser result = userOf(7, {});
    result.mayUseAnySemaphore = true;
    return result;
}

TEST(BusUserTest, MayUseALockByTheRightsOfTheFirstClassThatItIsIn)
{
    const RightsCase cases[] = {
        {"owner", userOf(1, {5}), {1, 5, 0600}, true},
        {"owner without rights, in a group that has them", userOf(1, {5}), {1, 5, 0060}, false},
        {"in the group", userOf(2, {4, 5}), {1, 5, 0660}, true},
        {"in the group, which may not", userOf(2, {5}), {1, 5, 0606}, false},
        {"other", userOf(2, {4}), {1, 5, 0660}, false},
        {"other, who may", userOf(2, {4}), {1, 5, 0666}, true},
        {"may look only", userOf(2, {5}), {1, 5, 0640}, false},
        {"with root's right", privileged(), {1, 5, 0600}, true},
    };
    for (const auto& each : cases)
        EXPECT_EQ(each.mayUse, each.user.mayUse(each.rights)) << each.name;
}

/// The processes of this program have the library; the bus is a file.
class ProcessesTest : public testing::Test
{
protected:
    ProcessesTest() { m_bus = open(); }

    ScopedDescriptor open() const
    {
        return ScopedDescriptor(::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    }
    static bool contains(const std::vector<BusUser>& users, pid_t process)
    {
        return std::any_of(users.begin(), users.end(), [&](const auto& user) { return user.process == process; });
    }

    const TemporaryDirectory m_directory;
    const std::string m_path = m_directory.path() + "/i2c-7";
    ScopedDescriptor m_bus;
};

TEST_F(ProcessesTest, FindsThoseThatHaveTheBusOpen)
{
    EXPECT_TRUE(contains(findBusUsers(m_path), getpid()));
    m_bus = ScopedDescriptor();
    EXPECT_TRUE(findBusUsers(m_path).empty());
}

TEST_F(ProcessesTest, FindsNobodyOnABusThatDoesNotExist)
{
    EXPECT_TRUE(findBusUsers(m_path + "0").empty());
}

TEST_F(ProcessesTest, FindsNoProcessWithoutTheLibrary)
{
    const pid_t child = fork();
    if (child == 0) {
        dup2(m_bus.get(), STDIN_FILENO); // not closed by the exec
        execlp("sh", "sh", "-c", "kill -STOP $$", nullptr);
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    EXPECT_TRUE(WIFSTOPPED(status));
    EXPECT_FALSE(contains(findBusUsers(m_path), child));
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
}

TEST_F(ProcessesTest, TellsWhereAProcessHasItsKeyFileAndWhoItIs)
{
    const auto users = findBusUsers(m_path);
    ASSERT_EQ(1U, users.size());
    EXPECT_EQ("/proc/" + std::to_string(getpid()) + "/root" + lockKeyFile(), users[0].keyFile);
    EXPECT_EQ(geteuid(), users[0].user);
    EXPECT_EQ(1U, users[0].groups.count(getegid()));
    EXPECT_TRUE(users[0].sharesSemaphores);
    EXPECT_EQ(hasRight(CAP_IPC_OWNER), users[0].mayUseAnySemaphore);
    EXPECT_TRUE(isThere(users[0]));
}

TEST_F(ProcessesTest, SeesThatAProcessOfAnotherUserMayNotUseTheLock)
{
    if (!canBecomeNobody())
        GTEST_SKIP() << "this process cannot become one of another user";
    if (!hasRight(CAP_SYS_PTRACE))
        GTEST_SKIP() << "this process may not look into those of other users";
    const Channel changed;
    const Channel mayEnd;
    BusUser other;
    {
        ChildProcess child([&] {
            becomeNobody();
            changed.say();
            mayEnd.hear();
        });
        changed.hear();
        for (const auto& user : findBusUsers(m_path)) {
            if (user.process != getpid())
                other = user;
        }
        EXPECT_EQ(kNobody, other.user);
        EXPECT_FALSE(other.mayUseAnySemaphore);
        EXPECT_FALSE(other.mayUse({0, 0, 0600}));
        EXPECT_TRUE(isThere(other));
        mayEnd.say();
    }
    EXPECT_FALSE(isThere(other));
}

/// A child that stops when it is told to.
class HaltedProcessTest : public testing::Test
{
protected:
    /// Waits until the child has stopped itself, in front of its debugger if it asks for one.
    std::string describeAfter(bool isDebugged)
    {
        m_child = fork();
        if (m_child == 0) {
            if (isDebugged && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
                _exit(kNoDebugger);
            raise(SIGSTOP);
            _exit(0);
        }
        int status = 0;
        waitpid(m_child, &status, WUNTRACED);
        m_isStopped = WIFSTOPPED(status);
        return m_isStopped ? describeProcess(m_child) : "";
    }
    ~HaltedProcessTest() override
    {
        if (!m_isStopped)
            return;
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }

    static constexpr int kNoDebugger = 7;
    pid_t m_child = 0;
    bool m_isStopped = false;
};

TEST_F(HaltedProcessTest, AStoppedProcessHasToBeContinuedOrEnded)
{
    EXPECT_NE(std::string::npos, describeAfter(false).find(", stopped)"));
    EXPECT_EQ("Continue it, as after Ctrl-Z ('fg' in its shell, or 'kill -CONT " + std::to_string(m_child) +
                  "'), or end it ('kill -KILL " + std::to_string(m_child) + "'): the system then releases the lock.",
              howToEnd(m_child));
}

TEST_F(HaltedProcessTest, AProcessAtABreakpointHasToBeContinuedInItsDebugger)
{
    const std::string text = describeAfter(true);
    if (!m_isStopped)
        GTEST_SKIP() << "no process can be debugged here";
    EXPECT_NE(std::string::npos, text.find(", stopped by its debugger)")) << text;
    EXPECT_EQ("Continue it in the debugger, process " + describeProcess(getpid()) + ", or end it ('kill -KILL " +
                  std::to_string(m_child) + "'): the system then releases the lock.",
              howToEnd(m_child));
}

TEST_F(HaltedProcessTest, ARunningProcessIsEndedOnlyIfItHangs)
{
    EXPECT_EQ(std::string::npos, describeProcess(getpid()).find("stopped"));
    EXPECT_EQ("If that process hangs, end it: the system then releases the lock.", howToEnd(getpid()));
}

/// A process that waits in the kernel for a child that does not end.
class ProcessInKernelTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_child = fork();
        if (m_child == 0) {
            alignas(16) static char stack[16384];
            // With CLONE_VFORK alone, the child has its own memory.
            clone(waitForEver, stack + sizeof(stack), CLONE_VFORK | SIGCHLD, nullptr);
            _exit(0);
        }
    }
    void TearDown() override
    {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }
    static int waitForEver(void* /*unused*/)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        return pause();
    }

    pid_t m_child = 0;
};

TEST_F(ProcessInKernelTest, IsNotToBeEnded)
{
    while (describeProcess(m_child).find(", waiting in the kernel)") == std::string::npos)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ("If it stays so, its bus controller does not answer, and no signal ends it: 'dmesg' and '/proc/" +
                  std::to_string(m_child) + "/stack' tell more.",
              howToEnd(m_child));
}

TEST(NamesTest, AProcessOutsideOfTheContainerHasNoNumber)
{
    EXPECT_EQ("0 (outside of this container)", describeProcess(0));
    EXPECT_EQ(0U, howToEnd(0).find("Run 'authchip doctor' outside of the container"));
}

TEST(NamesTest, AProcessCannotWriteToTheTerminalByItsName)
{
    char before[16] = {};
    prctl(PR_GET_NAME, before);
    prctl(PR_SET_NAME, "\x1b]2;x\x07\n\xff)");
    EXPECT_EQ(std::to_string(getpid()) + " (\\x1b]2;x\\x07\\x0a\\xff))", describeProcess(getpid()));
    prctl(PR_SET_NAME, before);
}

} // namespace
