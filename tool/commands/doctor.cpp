#include "tool/commands/command.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "common/generations.h"
#include "common/hex.h"
#include "tool/chip/advice.h"
#include "tool/chip/i2cnode.h"
#include "tool/lock/names.h"
#include "tool/lock/processes.h"
#include "tool/lock/systemlock.h"
#include "tool/report/failure.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kLongestWaitForLock = 2000; // milliseconds
constexpr int kAttempts = 10;             // a chip that is busy or wakes up refuses some
constexpr auto kPause = std::chrono::milliseconds(10);

/// What came of a check.
struct Finding
{
    const char* check;
    const char* cause; // for programs; null: nothing is wrong
    std::string found; // empty: it was not looked at
    std::string next;  // what to do about the cause
};

std::string inOneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

Finding refusal(const char* check, const char* cause, const Failure& failure)
{
    return {check, cause, "cannot " + failure.tried() + ": " + failure.answer(), inOneLine(failure.next())};
}

/// The examination of one chip, check by check. A check that an earlier one makes pointless is not made.
class Examination
{
public:
    explicit Examination(const CommonOptions& options) : m_options(options), m_location(options.location) {}

    void run()
    {
        checkNode();
        checkAddress();
        checkLock();
        checkChip();
    }
    const std::vector<Finding>& findings() const { return m_findings; }
    bool isHealthy() const
    {
        return std::none_of(m_findings.begin(), m_findings.end(),
                            [](const auto& each) { return each.cause != nullptr; });
    }

private:
    void add(Finding finding) { m_findings.push_back(std::move(finding)); }
    void skip(const char* check) { add({check, nullptr, "", ""}); }

    void checkNode()
    {
        constexpr const char* kCheck = "node";
        struct stat status = {};
        if (stat(m_location.device.c_str(), &status) == 0 && !S_ISCHR(status.st_mode))
            return add({kCheck, "no I2C node", m_location.device + " is no character device",
                        "Name a node such as /dev/i2c-1; 'ls /dev/i2c-*' shows those there are."});
        m_mayBeBus = true;
        m_node = openNode(m_location.device);
        if (m_node.get() < 0) {
            const int error = errno;
            return add(refusal(kCheck, causeOfRefusal(Step::OpenNode, error),
                               explainRefusal(Step::OpenNode, error, m_location)));
        }
        add({kCheck, nullptr, m_location.device + " opens", ""});
    }

    void checkAddress()
    {
        constexpr const char* kCheck = "address";
        const std::string address = toHex(static_cast<std::uint32_t>(m_location.address), 2);
        if (m_location.address > kSevenBitMaximum)
            return add(eightBitAddress(kCheck, address + " has 8 bits"));
        if (m_node.get() < 0)
            return skip(kCheck);
        if (!selectAddress(m_node, m_location.address)) {
            const int error = errno;
            m_mayBeBus = error != ENOTTY;
            return add(refusal(kCheck, causeOfRefusal(Step::SelectAddress, error),
                               explainRefusal(Step::SelectAddress, error, m_location)));
        }
        if (m_options.busTimeout)
            setBusTimeout(m_location.device, *m_options.busTimeout);
        m_chipIsSelected = true;
        add({kCheck, nullptr, address + " is free of kernel drivers", ""});
    }

    Finding eightBitAddress(const char* check, const std::string& found) const
    {
        return {check, "8-bit address", found + ", the lowest being the read/write bit",
                "Leave that bit out: --address " + toHex(static_cast<std::uint32_t>(m_location.address / 2), 2) + "."};
    }

    void checkLock()
    {
        const std::size_t before = m_findings.size();
        const LockState state = lookAtLock(lockKeyFile());
        checkTokens(state);
        if (m_mayBeBus) {
            for (const BusUser& user : findBusUsers(m_location.device))
                checkUser(user, state);
        }
        m_lockIsSound = m_findings.size() == before;
        if (!m_lockIsSound)
            return;
        if (state.semaphore < 0)
            return lockIsFine("there is none; the next process that uses the library makes it");
        m_token.emplace(state.semaphore, kLongestWaitForLock);
        if (m_token->isHeld())
            return lockIsFine(
                "semaphore " + std::to_string(state.semaphore) + ", free; " +
                (state.stays ? "it stays, as it was seeded" : "it goes away with the process that has made it"));
        m_lockIsSound = false;
        const LockState now = lookAtLock(state.keyFile);
        checkTokens(now); // its holder may have died on the way
        if (now.condition != LockCondition::Lost && now.condition != LockCondition::TooMany)
            addLock("lock held",
                    "process " + describeProcess(now.lastUser) + " holds it, and did not give it back in 2 seconds",
                    "If that process hangs, end it: the system then gives the lock back.");
    }

    void lockIsFine(const std::string& found) { add({"lock", nullptr, found, ""}); }
    void addLock(const char* cause, const std::string& found, const std::string& next)
    {
        add({"lock", cause, found, next});
    }

    void checkTokens(const LockState& state)
    {
        const std::string semaphore = "semaphore " + std::to_string(state.semaphore);
        const std::string removal = "Stop the programs that use the library, remove it with 'ipcrm -s " +
                                    std::to_string(state.semaphore) + "', and run 'authchip lock seed'.";
        if (state.condition == LockCondition::Unreadable)
            addLock("lock of another user",
                    semaphore + " belongs to " + describe(state.rights) + "; this user's processes go on without it",
                    "As root, run 'authchip lock seed --group NAME' at boot, with a group of all who use the bus.");
        if (state.condition == LockCondition::Lost)
            addLock("token lost",
                    semaphore + " has no token, and its last user is process " + describeProcess(state.lastUser) +
                        "; waiting: " + std::to_string(state.waiting),
                    removal);
        if (state.condition == LockCondition::TooMany)
            addLock("too many tokens",
                    semaphore + " has " + std::to_string(state.value) + " tokens: as many processes get in at once",
                    removal);
    }

    /// A process that exits takes its key file away just before it is gone.
    static bool isStillRemoved(const BusUser& user)
    {
        constexpr auto kTimeToExit = std::chrono::milliseconds(100);
        std::this_thread::sleep_for(kTimeToExit);
        struct stat status = {};
        return stat(user.keyFile.c_str(), &status) != 0 && isThere(user);
    }

    /// Whether a process that is on the bus goes by the lock that this one sees.
    void checkUser(const BusUser& user, const LockState& state)
    {
        const std::string process = "process " + describeProcess(user.process);
        struct stat theirs = {};
        struct stat ours = {};
        if (!user.sharesSemaphores)
            return addLock("second lock", process + " lives in a container with semaphores of its own",
                           "Run it with the machine's ('--ipc=host'), or have one container alone use the bus.");
        const bool isRemoved = stat(user.keyFile.c_str(), &theirs) != 0;
        if (isRemoved && !isStillRemoved(user))
            return;
        if (isRemoved)
            return addLock("key file gone",
                           "the key file of " + process + " is removed: the next process gets a second lock",
                           "Stop the programs that use the library and run 'authchip lock seed'; keep clean-ups away "
                           "from the file.");
        const bool exists = stat(state.keyFile.c_str(), &ours) == 0;
        if (!exists || theirs.st_dev != ours.st_dev || theirs.st_ino != ours.st_ino)
            return addLock("second lock", process + " has its key file in another folder than " + state.keyFile,
                           "Start all with the same TMPDIR, and without systemd's PrivateTmp=.");
        if (state.semaphore >= 0 && !user.mayUse(state.rights))
            addLock("lock of another user",
                    process + " of user " + nameOfUser(user.user) + " goes on without the lock, which belongs to " +
                        describe(state.rights),
                    "As root, run 'authchip lock seed --group NAME' at boot, with a group of all who use the bus.");
    }

    void checkChip()
    {
        constexpr const char* kChip = "chip";
        constexpr const char* kGeneration = "generation";
        if (!m_chipIsSelected || !m_lockIsSound) {
            skip(kChip);
            return skip(kGeneration);
        }
        const VersionAnswer answer = ask();
        if (!answer.registerRead) {
            add(explainSilence(answer));
            return skip(kGeneration);
        }
        add({kChip, nullptr, "answers", ""});
        const std::string version = "device version " + std::to_string(answer.deviceVersion);
        if (const Generation* generation = findGeneration(answer.deviceVersion))
            return add({kGeneration, nullptr, version + ", protocol " + generation->protocol, ""});
        add(refusal(kGeneration, "version without driver", explainVersion(answer.deviceVersion, m_location)));
    }

    VersionAnswer ask() const
    {
        VersionAnswer answer = askVersion(m_node);
        for (int attempt = 1; attempt < kAttempts && isRefused(answer); ++attempt) {
            std::this_thread::sleep_for(kPause);
            answer = askVersion(m_node);
        }
        return answer;
    }

    static bool isRefused(const VersionAnswer& answer)
    {
        return !answer.registerSet && isNoAnswer(Step::SetRegister, answer.error);
    }

    Finding explainSilence(const VersionAnswer& answer) const
    {
        if (isRefused(answer) && mayBeEightBits(m_location.address) && chipAnswersAtHalfTheAddress())
            return eightBitAddress("chip", "nobody answers at " +
                                               toHex(static_cast<std::uint32_t>(m_location.address), 2) +
                                               ", and the chip does at half of it: it is an address of 8 bits");
        const Step step = answer.registerSet ? Step::ReadRegister : Step::SetRegister;
        return refusal("chip", causeOfRefusal(step, answer.error), explainRefusal(step, answer.error, m_location));
    }

    bool chipAnswersAtHalfTheAddress() const
    {
        if (!selectAddress(m_node, m_location.address / 2))
            return false;
        const VersionAnswer answer = askVersion(m_node);
        return answer.registerRead && findGeneration(answer.deviceVersion) != nullptr;
    }

    const CommonOptions& m_options;
    const ChipLocation m_location;
    std::vector<Finding> m_findings;
    ScopedDescriptor m_node;
    bool m_mayBeBus = false; // as far as the node tells
    bool m_chipIsSelected = false;
    bool m_lockIsSound = false;       // nothing speaks against the use of the bus
    std::optional<LockToken> m_token; // held to the end, if there is a lock
};

std::string textOf(const Finding& finding)
{
    if (finding.found.empty())
        return "not looked at";
    if (finding.cause == nullptr)
        return "ok: " + finding.found;
    return std::string(finding.cause) + ": " + finding.found + "; next: " + finding.next;
}

nlohmann::ordered_json jsonOf(const Finding& finding)
{
    using Json = nlohmann::ordered_json;
    const auto orNull = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    return {{"check", finding.check},
            {"cause", finding.cause == nullptr ? Json() : Json(finding.cause)},
            {"found", orNull(finding.found)},
            {"next", orNull(finding.next)}};
}

constexpr int kEightBitMaximum = 0xff; // of an address

/// Checks node, address, lock, bus and chip, in this order, and says what to do about what is wrong.
class Doctor : public Command
{
public:
    int largestAddress() const override { return kEightBitMaximum; } // a finding, and no usage error

    ExitStatus run(const CommandContext& context) override
    {
        Examination examination(context.options);
        examination.run();

        Report report;
        auto checks = nlohmann::ordered_json::array();
        for (const auto& finding : examination.findings()) {
            report.text(finding.check, textOf(finding));
            checks.push_back(jsonOf(finding));
        }
        report.json("device", context.options.location.device)
            .json("address", context.options.location.address)
            .json("healthy", examination.isHealthy())
            .json("checks", checks);
        report.print(context.options.json, context.answer);
        return examination.isHealthy() ? ExitStatus::Success : ExitStatus::Failed;
    }
};

} // namespace

std::unique_ptr<Command> makeDoctor()
{
    return std::make_unique<Doctor>();
}

} // namespace VorelKestrel::Tool
