#include "tool/commands/command.h"

#include "tool/commands/lockreport.h"

namespace VorelKestrel::Tool {
namespace {

class LockStatus : public Command
{
public:
    ExitStatus run(const CommandContext& context) override
    {
        Report report;
        addLock(report, lookAtLock(lockKeyFile()));
        context.print(report);
        return ExitStatus::Success;
    }
};

} // namespace

std::unique_ptr<Command> makeLockStatus()
{
    return std::make_unique<LockStatus>();
}

} // namespace VorelKestrel::Tool
