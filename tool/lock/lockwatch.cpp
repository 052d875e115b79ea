#include "tool/lock/lockwatch.h"

#include <cstdlib>
#include <iostream>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "common/escaped.h"
#include "common/i2cdevice.h"
#include "tool/lock/conditions.h"
#include "tool/lock/inwords.h"
#include "tool/lock/otherlocks.h"
#include "tool/lock/processes.h"
#include "tool/report/indented.h"

namespace VorelKestrel::Tool {
namespace {

constexpr auto kPause = std::chrono::milliseconds(100);
constexpr auto kPatience = std::chrono::seconds(2); // of a user, before a wait is explained

void say(const std::string& text, const std::string& next)
{
    const std::string lead = "  next: ";
    std::cerr << "authchip: " + escapedLines(text) + "\n" + lead + indented(escapedLines(next), lead.size()) + "\n";
}

/// Whether a process waits for a token that another process than this one holds.
bool isWaitedFor(const LockState& state)
{
    const bool isTaken = state.condition == LockCondition::Held || state.condition == LockCondition::Lost;
    return isTaken && state.waiting > 0 && state.lastUser != getpid();
}

std::string describeHolder(const LockState& state)
{
    if (state.condition == LockCondition::Lost)
        return "the lock between processes, whose token is lost";
    return "process " + describeProcess(state.lastUser) + ", which holds the lock between processes";
}

} // namespace

WithoutLock findWithoutLock(const LockState& state, const std::string& device)
{
    if (state.condition == LockCondition::Unreadable)
        return {"semaphore " + std::to_string(state.semaphore) + " belongs to " + describe(state.rights),
                howToShare(state.rights)};
    if (state.semaphore < 0 && state.obstacle != LockObstacle::None)
        return {"no lock can be created: " + reasonOf(state.obstacle), adviceAbout(state.obstacle)};
    if (lacksSemaphoreOfSeed(state))
        return {"the semaphore of 'authchip lock seed' is not here", "'authchip doctor' tells more."};
    const KeyFolder folder(state.keyFile);
    if (isOfOneService(folder))
        return {folder.path() + " is this service's own (systemd's PrivateTmp=), and so is the lock", kHowToShareTmp};
    struct stat node = {};
    if (stat(device.c_str(), &node) != 0 || !mayBeI2cNode(device, node))
        return {}; // unrelated processes may have such a file open
    for (const BusUser& user : findBusUsers(device)) {
        if (user.process != getpid() && !(user.sharesSemaphores && folder.isOf(user.keyFile)))
            return {"process " + describeProcess(user.process) + " also uses the bus, but has another lock",
                    "Start all programs with the same TMPDIR, and without systemd's PrivateTmp=. 'authchip doctor' "
                    "tells more."};
    }
    return {};
}

LockWatch::LockWatch(const std::string& device, std::optional<std::chrono::seconds> limit, Ending ending)
    : m_limit(limit), m_ending(std::move(ending)), m_thread([this] { watch(); })
{
    const WithoutLock without = findWithoutLock(lookAtLock(m_keyFile), device);
    if (!without.reason.empty())
        say("warning: other processes can use the bus at the same time: " + without.reason, without.next);
}

LockWatch::~LockWatch()
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_ends = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

void LockWatch::setInCall(bool inCall)
{
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_isInCall = inCall;
    }
    m_changed.notify_one();
}

void LockWatch::watch()
{
    std::unique_lock<std::mutex> guard(m_mutex);
    while (!m_ends) {
        m_changed.wait(guard, [this] { return m_isInCall || m_ends; });
        if (m_changed.wait_for(guard, kPause, [this] { return !m_isInCall || m_ends; })) {
            m_waitingSince.reset();
            continue;
        }
        look(); // under the mutex, so that the call cannot end before this has printed
    }
}

void LockWatch::look()
{
    const LockState state = lookAtLock(m_keyFile);
    if (!isWaitedFor(state))
        return m_waitingSince.reset();
    const auto now = Clock::now();
    m_waitingSince = m_waitingSince.value_or(now);
    const auto waited = now - *m_waitingSince;
    if (!m_hasTold && waited >= kPatience) {
        m_hasTold = true;
        say("waiting for " + describeHolder(state), "'authchip doctor' shows what is wrong with the lock. Ctrl-C stops "
                                                    "waiting; --lock-timeout limits the wait.");
    }
    const bool isOver = m_limit && waited >= *m_limit;
    const bool isWanted = m_ending.isWanted();
    if (!(isOver || isWanted) || !isWaitedFor(lookAtLock(m_keyFile)))
        return;
    if (isWanted)
        std::_Exit(static_cast<int>(m_ending.leave()));
    const Failure failure(state.condition == LockCondition::Lost ? "token lost" : "lock held", "use the bus",
                          "Waited " + std::to_string(m_limit->count()) + " seconds for " + describeHolder(state),
                          howToEnd(state.lastUser) + " 'authchip doctor' tells more.");
    std::_Exit(static_cast<int>(m_ending.giveUp(failure)));
}

} // namespace VorelKestrel::Tool
