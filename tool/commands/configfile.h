#ifndef TOOL_COMMANDS_CONFIGFILE_H
#define TOOL_COMMANDS_CONFIGFILE_H

#include <functional>
#include <string>
#include <vector>

#include "tool/report/failure.h"

namespace CLI {
class App;
}

namespace VorelKestrel::Tool {

/// A value from a line of the file of options, or from a variable. Nothing overrides it.
struct Setting
{
    std::string option; // "--address"
    std::string value;
    std::string place; // "line 2 of /etc/authchip.conf" or "in AUTHCHIP_DEVICE"
};

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
/// The lines of the file and the variables that count in this command line. Requires: the command line has been parsed,
/// or failed so.
std::vector<Setting> settingsOf(const CLI::App& app);
/// Where device and address come from: "The address was given in AUTHCHIP_ADDRESS."; empty: from the command line.
std::string originOfLocation(const std::vector<Setting>& settings);
/// The same failure, with its origin if it is about what one of the settings says.
Failure withOrigin(const Failure& failure, const std::vector<Setting>& settings);
/// An option that is required, and not given. A variable that may be its own with a typing error is named.
Failure explainMissing(const std::string& option, const std::string& variable);
/// Throws Failure (ExitStatus::Usage) if there is a file of options that cannot be read.
/// Requires: the command line has been parsed.
void requireConfigFile(const CLI::App& app);

} // namespace VorelKestrel::Tool

#endif
