#ifndef TOOL_COMMANDS_CONFIGFILE_H
#define TOOL_COMMANDS_CONFIGFILE_H

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace VorelKestrel::Tool {

constexpr char kConfigFile[] = "/etc/authchip.conf"; // read if it is there

/**
 * Gives a program a file of options: a line "issuer = /etc/authchip/issuers" stands for --issuer, in every command that
 * has this option. What is on the command line or in the environment wins.
 *
 * @p declareAll  declares the options of all commands; called for a line that is an option of none that has any yet.
 *
 * Requires: all commands are declared, and @p app outlives the reading. Reading throws Failure (ExitStatus::Usage) for
 * what is no option.
 */
void declareConfigFile(CLI::App& app, std::function<void()> declareAll);
/// Throws Failure (ExitStatus::Usage) if there is a file of options that cannot be read.
/// Requires: the command line has been parsed.
void requireConfigFile(const CLI::App& app);

} // namespace VorelKestrel::Tool

#endif
