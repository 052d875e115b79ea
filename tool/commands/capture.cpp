#include "tool/commands/command.h"

#include <cstring>
#include <iostream>
#include <vector>

#include "capture/capturefile.h"
#include "capture/obstacle.h"
#include "capture/session.h"
#include "common/childprogram.h"
#include "common/escaped.h"
#include "common/preload.h"
#include "tool/commands/arguments.h"
#include "tool/commands/output.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

// All other exit statuses come from the program.
constexpr auto kOwnFailure = static_cast<ExitStatus>(kExitOwnFailure);

constexpr char kTracePoints[] =
    "As root, let the kernel record it: 'echo 1 >/sys/kernel/tracing/events/i2c/enable', run the program, then 'cat "
    "/sys/kernel/tracing/trace'.\nSMBus transfers are under events/smbus.";

class CaptureCommand : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        arguments.add("-o,--output", m_file, "The capture file; an existing file is replaced")
            .required()
            .shownAs("FILE");
        arguments.addFlag("--redact", m_redact,
                          "Record only the lengths of challenges, certificates and signatures, not their bytes");
        arguments.addRest("PROGRAM", m_command, "The program and its arguments, after --").required();
        arguments.footer(
            "The capture contains challenges, certificates and signatures, except with --redact.\n"
            "Exit status: that of PROGRAM, or 128 + n if signal n killed it; otherwise 2 the command line is\n"
            "wrong, 125 the capture failed, 126 PROGRAM cannot be run, 127 PROGRAM is not found.");
    }

    ExitStatus run(const CommandContext& /*context*/) override
    {
        const std::string obstacle = Capture::obstacleToPreloading(m_command.front());
        if (!obstacle.empty())
            throw Failure("no capture possible", "capture what '" + m_command.front() + "' does",
                          obstacle + ", so no library can be preloaded into it", kTracePoints)
                .withStatus(kOwnFailure);
        ChildProgram program;
        const Capture::Session session = startSession();
        const int result = program.run(m_command, session.environment());
        if (result < 0) {
            std::cerr << "authchip: cannot run '" << escaped(m_command.front()) << "': " << std::strerror(-result)
                      << '\n';
            return static_cast<ExitStatus>(exitStatusOfNotStarted(-result));
        }
        warnAbout(session);
        return static_cast<ExitStatus>(result);
    }

private:
    Capture::Session startSession() const
    {
        try {
            return {m_file, "authchip " AUTHCHIP_VERSION, preloadLibrary(CAPTURE_BUILT, CAPTURE_INSTALLED), m_redact};
        } catch (const Capture::CaptureFileError& error) {
            throw Failure("no capture possible", "start the capture", error.what(), kNameAFile).withStatus(kOwnFailure);
        } catch (const PreloadError& error) {
            throw Failure("no capture possible", "start the capture", error.what(), "It is a part of authchip.")
                .withStatus(kOwnFailure);
        }
    }

    /// Warns if the capture is empty or incomplete.
    void warnAbout(const Capture::Session& session) const
    {
        if (session.error() != 0)
            std::cerr << "authchip: messages are missing in " << escaped(m_file) << ": "
                      << describeSystemError(session.error()) << '\n';
        else if (!session.hasRecorded())
            std::cerr << "authchip: nothing was captured: '" << escaped(m_command.front())
                      << "' used no i2c-dev node, or not through the C library\n";
    }

    std::string m_file;
    bool m_redact = false;
    std::vector<std::string> m_command;
};

} // namespace

std::unique_ptr<Command> makeCapture()
{
    return std::make_unique<CaptureCommand>();
}

} // namespace VorelKestrel::Tool
