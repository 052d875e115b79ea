#include "tool/commands/command.h"

#include <charconv>

#include <grp.h>

#include "tool/commands/arguments.h"
#include "tool/commands/lockreport.h"
#include "tool/lock/lockseed.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// Accepts a name or a number.
gid_t groupNamed(const std::string& name)
{
    // cppcheck-suppress getgrnamCalled ; authchip has one thread
    const ::group* entry = getgrnam(name.c_str());
    if (entry != nullptr)
        return entry->gr_gid;
    gid_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    constexpr auto kNoGroup = static_cast<gid_t>(-1); // to the kernel
    if (!name.empty() && error == std::errc() && end == name.data() + name.size() && number != kNoGroup)
        return number;
    throw Failure(kWrongUsage, "create the lock for the group '" + name + "'", "There is no such group",
                  "'getent group' lists the groups. Use the one that owns the node of the bus ('ls -l /dev/i2c-*').");
}

/// A user needs both rights, read and write, to use the lock.
unsigned parseMode(const std::string& text)
{
    constexpr const char* kModes[] = {"0600", "0660", "0606", "0666"};
    for (const std::string mode : kModes) {
        if (text == mode || text == mode.substr(1))
            return static_cast<unsigned>(std::stoul(text, nullptr, 8));
    }
    throw Failure(kWrongUsage, "give the lock the mode '" + text + "'",
                  "Each digit is 6 (may use the lock) or 0 (may not), and the first is 6",
                  "Give 0600, 0660 or 0666, or omit --mode for 0660.");
}

struct SeedRow
{
    SeedResult result;
    const char* word; // for programs
    const char* text;
};

constexpr SeedRow kSeedResults[] = {
    {SeedResult::Made, "made", "created"},
    {SeedResult::TakenUp, "taken up", "reused: an earlier seed created it, and its key file was lost"},
    {SeedResult::RightsChanged, "rights changed", "rights changed"},
    {SeedResult::Unchanged, "unchanged", "already there; nothing changed"},
};

const SeedRow& rowOf(SeedResult result)
{
    for (const auto& row : kSeedResults) {
        if (row.result == result)
            return row;
    }
    return kSeedResults[0];
}

class LockSeed : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        arguments.add("--group", m_group, "The group whose users may also use the lock (the caller's own)")
            .shownAs("GROUP");
        arguments.add("--mode", m_modeText, "Who may use the lock, as for a file: 0600, 0660 or 0666 (0660)")
            .shownAs("MODE");
    }

    void interpret() override
    {
        if (!m_modeText.empty())
            m_mode = parseMode(m_modeText);
    }

    ExitStatus run(const CommandContext& context) override
    {
        WantedRights wanted;
        if (m_group)
            wanted.group = groupNamed(*m_group);
        wanted.mode = m_mode;
        const std::string keyFile = lockKeyFile();
        const SeedRow& result = rowOf(seedLock(keyFile, wanted));
        Report report;
        report.text("seed", result.text).json("seed", result.word);
        addLock(report, lookAtLock(keyFile));
        context.print(report);
        return ExitStatus::Success;
    }

private:
    std::optional<std::string> m_group; // a name or a number
    std::string m_modeText;
    std::optional<unsigned> m_mode;
};

} // namespace

std::unique_ptr<Command> makeLockSeed()
{
    return std::make_unique<LockSeed>();
}

} // namespace VorelKestrel::Tool
