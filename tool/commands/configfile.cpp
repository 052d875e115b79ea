#include "tool/commands/configfile.h"

#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kVariable[] = "AUTHCHIP_CONFIG";

bool isSet(const std::string& variable)
{
    const char* value = variable.empty() ? nullptr : std::getenv(variable.c_str());
    return value != nullptr && *value != '\0';
}

std::string chosenFile()
{
    return isSet(kVariable) ? std::getenv(kVariable) : kConfigFile;
}

using Items = std::vector<CLI::ConfigItem>;

/// Hands each line to the commands whose option it names. To CLI11 alone, it would be one of the program's own options.
class OptionsFile : public CLI::ConfigBase
{
public:
    OptionsFile(const CLI::App& app, std::function<void()> declareAll) : m_app(app), m_declareAll(std::move(declareAll))
    {}

    Items from_config(std::istream& input) const override
    {
        Items found;
        for (const CLI::ConfigItem& line : CLI::ConfigBase::from_config(input)) {
            if (addFor(m_app, line, {}, found))
                continue;
            m_declareAll();
            if (!addFor(m_app, line, {}, found))
                throw Failure(kWrongUsage, "use the file of options",
                              "'" + line.fullname() + "' is no option of any command",
                              "Write options without their dashes, one a line: issuer = /etc/authchip/issuers");
        }
        return found;
    }

private:
    /// Returns whether the app, or a command of it, has the option.
    static bool addFor(const CLI::App& app, const CLI::ConfigItem& line, const std::vector<std::string>& parents,
                       Items& found)
    {
        const CLI::Option* option = line.parents.empty() ? app.get_option_no_throw("--" + line.name) : nullptr;
        bool isKnown = option != nullptr && option->get_configurable();
        if (isKnown && !isSet(option->get_envname())) {
            found.push_back(line);
            found.back().parents = parents;
        }
        for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
            std::vector<std::string> path = parents;
            path.push_back(command->get_name());
            isKnown = addFor(*command, line, path, found) || isKnown;
        }
        return isKnown;
    }

    const CLI::App& m_app;
    const std::function<void()> m_declareAll;
};

} // namespace

void declareConfigFile(CLI::App& app, std::function<void()> declareAll)
{
    app.set_config("--config", chosenFile(), std::string("A file with options (") + kConfigFile + ")")
        ->envname(kVariable)
        ->type_name("FILE");
    app.config_formatter(std::make_shared<OptionsFile>(app, std::move(declareAll)));
}

void requireConfigFile(const CLI::App& app)
{
    const auto path = app.get_config_ptr()->as<std::string>();
    errno = 0;
    if (access(path.c_str(), R_OK) != 0 && (errno != ENOENT || path != kConfigFile))
        throw Failure(kWrongUsage, "read the options in " + path, describeSystemError(errno),
                      std::string("Name a file that can be read with --config or ") + kVariable + ".");
}

} // namespace VorelKestrel::Tool
