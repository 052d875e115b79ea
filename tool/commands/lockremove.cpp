#include "tool/commands/command.h"

#include "tool/lock/lockseed.h"
#include "tool/lock/systemlock.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

class LockRemove : public Command
{
public:
    ExitStatus run(const CommandContext& context) override
    {
        const std::string keyFile = lockKeyFile();
        const bool removed = removeLock(keyFile);
        Report report;
        report.text("lock", removed ? "removed" : "none found").json("removed", removed);
        report.row("key file", "keyFile", keyFile);
        context.print(report);
        return ExitStatus::Success;
    }
};

} // namespace

std::unique_ptr<Command> makeLockRemove()
{
    return std::make_unique<LockRemove>();
}

} // namespace VorelKestrel::Tool
