#include "tool/commands/configfile.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <utility>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tool/commands/nearest.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kVariable[] = "AUTHCHIP_CONFIG";

/// None if the variable is empty or not set, or has no name.
std::optional<std::string> valueOf(const std::string& variable)
{
    const char* value = variable.empty() ? nullptr : std::getenv(variable.c_str());
    if (value == nullptr || *value == '\0')
        return std::nullopt;
    return value;
}

std::string chosenFile()
{
    return valueOf(kVariable).value_or(kConfigFile);
}

/// A variable that is set and may be the other one with a typing error; empty: none.
std::string misspelt(const std::string& variable)
{
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        std::string name = text.substr(0, text.find('=')); // which is returned
        if (name != variable && isNear(name, variable))
            return name;
    }
    return "";
}

/// The program or a command, and the words that lead to it.
struct NamedApp
{
    const CLI::App* app;
    std::vector<std::string> words;
};

/// The program, and then all commands.
std::vector<NamedApp> appsOf(const CLI::App& program)
{
    std::vector<NamedApp> apps = {{&program, {}}};
    for (std::size_t next = 0; next < apps.size(); ++next) {
        const NamedApp parent = apps[next]; // a copy, since the list grows
        for (const CLI::App* command : parent.app->get_subcommands([](const CLI::App*) { return true; })) {
            apps.push_back({command, parent.words});
            apps.back().words.push_back(command->get_name());
        }
    }
    return apps;
}

Failure unreadable(const std::string& path, const std::string& reason)
{
    return {kWrongUsage, "read the options in " + path, reason,
            std::string("Name a file that can be read with --config or ") + kVariable + "."};
}

/// Refuses what is no file before it is opened: that would wait for a pipe's other end, and a device may have no end.
/// /dev/null is a file without options.
std::string requireFile(const std::string& path)
{
    struct stat status = {};
    const bool exists = stat(path.c_str(), &status) == 0;
    const bool isNull = S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
    if (exists && !S_ISREG(status.st_mode) && !isNull)
        throw unreadable(path, "It is no regular file");
    if (path != chosenFile() && access(path.c_str(), R_OK) != 0) // that one is looked at when its origin is known
        throw unreadable(path, describeSystemError(errno));
    return ""; // nothing to complain about for CLI11
}

using Items = std::vector<CLI::ConfigItem>;

std::string pathOf(const CLI::App& app)
{
    const CLI::results_t& named = app.get_config_ptr()->results(); // empty unless somebody names a file
    return named.empty() ? chosenFile() : named.back();
}

bool isNamed(const std::string& line, const std::string& name)
{
    const auto begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line.compare(begin, name.size(), name) != 0)
        return false;
    const auto end = line.find_first_not_of(" \t\r", begin + name.size());
    return end == std::string::npos || line[end] == '=';
}

/// "line 2 of FILE": the first line that names the item, and its value if there is such a line.
std::string placeOf(const CLI::ConfigItem& item, const std::string& value, const std::string& text,
                    const std::string& path)
{
    std::istringstream lines(text);
    std::string line;
    int first = 0;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (!isNamed(line, item.name))
            continue;
        first = first == 0 ? number : first;
        if (line.find(value) != std::string::npos)
            return "line " + std::to_string(number) + " of " + path;
    }
    return (first == 0 ? "" : "line " + std::to_string(first) + " of ") + path;
}

/// Whether the text has the word, as a whole.
bool hasWord(const std::string& text, const std::string& word)
{
    const auto isPart = [&](std::size_t at) {
        return at < text.size() && (std::isalnum(static_cast<unsigned char>(text[at])) != 0 ||
                                    std::string("/_-").find(text[at]) != std::string::npos);
    };
    for (auto at = text.find(word); at != std::string::npos && !word.empty(); at = text.find(word, at + 1)) {
        if ((at == 0 || !isPart(at - 1)) && !isPart(at + word.size()))
            return true;
    }
    return false;
}

constexpr char kOneALine[] = "Write options without their dashes, one a line: issuer = /etc/authchip/issuers";

/// Those that a file may name.
std::vector<std::string> optionsOf(const CLI::App& program)
{
    std::vector<std::string> names;
    for (const NamedApp& each : appsOf(program)) {
        for (const CLI::Option* option : each.app->get_options()) {
            if (option->get_configurable() && !option->get_lnames().empty())
                names.push_back(option->get_lnames().front());
        }
    }
    return names;
}

/// Hands each line to the commands whose option it names. To CLI11 alone, it would be one of the program's own options.
class OptionsFile : public CLI::ConfigBase
{
public:
    OptionsFile(const CLI::App& app, std::function<void()> declareAll) : m_app(app), m_declareAll(std::move(declareAll))
    {}

    Items from_config(std::istream& input) const override
    {
        std::ostringstream text;
        text << input.rdbuf();
        requireText(text.str());
        std::istringstream again(text.str());
        Items found;
        m_settings.clear();
        for (const CLI::ConfigItem& line : CLI::ConfigBase::from_config(again)) {
            const std::string value = line.inputs.empty() ? "" : line.inputs.front();
            const std::string place = placeOf(line, value, text.str(), pathOf(m_app));
            if (add(line, found, place))
                continue;
            m_declareAll();
            if (!add(line, found, place))
                throw explainLine(line, place);
        }
        return found;
    }

    void requireText(const std::string& text) const
    {
        if (text.find('\0') != std::string::npos)
            throw Failure(kWrongUsage, "use " + pathOf(m_app), "It is no plain text: it has bytes of 0, as UTF-16 has",
                          "Save the file as UTF-8 without a byte order mark.");
    }

    Failure explainLine(const CLI::ConfigItem& line, const std::string& place) const
    {
        constexpr char kByteOrderMark[] = "\xef\xbb\xbf";
        constexpr char kBeginOfSection[] = "++"; // CLI11's word
        const std::string tried = "use " + place;
        if (line.name == kBeginOfSection)
            return {kWrongUsage, tried, "'[" + line.parents.front() + "]' begins a section",
                    std::string("Remove that line. ") + kOneALine};
        if (line.name.rfind(kByteOrderMark, 0) == 0)
            return {kWrongUsage, tried, "The file begins with a byte order mark",
                    "Save the file as UTF-8 without a byte order mark."};
        return {kWrongUsage, tried, "'" + line.fullname() + "' is no option of any command",
                "Did you mean '" + nearestWord(line.name, optionsOf(m_app)) + "'? " + kOneALine};
    }

    const std::vector<Setting>& settings() const { return m_settings; }

private:
    /// Returns whether the program, or a command of it, has the option.
    bool add(const CLI::ConfigItem& line, Items& found, const std::string& place) const
    {
        bool isKnown = false;
        for (const NamedApp& each : appsOf(m_app)) {
            const CLI::Option* option =
                line.parents.empty() ? each.app->get_option_no_throw("--" + line.name) : nullptr;
            if (option == nullptr || !option->get_configurable())
                continue;
            isKnown = true;
            if (valueOf(option->get_envname()))
                continue;
            found.push_back(line);
            found.back().parents = each.words;
            if (option->count() > 0) // on the command line
                continue;
            for (const std::string& value : line.inputs)
                m_settings.push_back({"--" + line.name, value, place});
        }
        return isKnown;
    }

    const CLI::App& m_app;
    const std::function<void()> m_declareAll;
    mutable std::vector<Setting> m_settings; // found by the last from_config(), which CLI11 calls on a constant
};

/// The options whose value is that of their variable.
std::vector<Setting> settingsOfEnvironment(const CLI::App& app)
{
    std::vector<Setting> settings;
    for (const NamedApp& each : appsOf(app)) {
        for (const CLI::Option* option : each.app->get_options()) {
            const auto value = valueOf(option->get_envname());
            // Older versions of CLI11 have no results of the file of options yet when they check its name.
            const bool isUnset = option == each.app->get_config_ptr() && option->results().empty();
            if (value && (isUnset || option->results() == CLI::results_t{*value}))
                settings.push_back({option->get_name(), *value, "in " + option->get_envname()});
        }
    }
    return settings;
}

} // namespace

void declareConfigFile(CLI::App& app, std::function<void()> declareAll)
{
    app.set_config("--config", chosenFile(), std::string("A file with options (") + kConfigFile + ")")
        ->envname(kVariable)
        ->check(requireFile)
        ->type_name("FILE");
    app.config_formatter(std::make_shared<OptionsFile>(app, std::move(declareAll)));
}

std::vector<Setting> settingsOf(const CLI::App& app)
{
    const auto file = std::dynamic_pointer_cast<const OptionsFile>(app.get_config_formatter());
    std::vector<Setting> settings = settingsOfEnvironment(app);
    if (file != nullptr)
        settings.insert(settings.end(), file->settings().begin(), file->settings().end());
    return settings;
}

std::string originOfLocation(const std::vector<Setting>& settings)
{
    constexpr std::pair<const char*, const char*> kNames[] = {{"--device", "node"}, {"--address", "address"}};
    std::string origin;
    for (const auto& [option, name] : kNames) {
        const std::string wanted = option;
        const auto setting =
            std::find_if(settings.begin(), settings.end(), [&](const Setting& each) { return each.option == wanted; });
        if (setting == settings.end())
            continue;
        const std::string in = setting->place.rfind("in ", 0) == 0 ? "" : "in ";
        origin += (origin.empty() ? "The " + std::string(name) + " was given " : ", the " + std::string(name) + " ") +
                  in + setting->place;
    }
    return origin.empty() ? "" : origin + ".";
}

Failure withOrigin(const Failure& failure, const std::vector<Setting>& settings)
{
    Failure told = failure;
    const std::string text = failure.tried() + " " + failure.answer();
    const auto isMeant = [&](const Setting& setting) {
        const std::string& value = setting.value;
        const bool isNumber = std::isdigit(static_cast<unsigned char>(value[0])) != 0; // a text has others, too
        return hasWord(text, isNumber ? "'" + value + "'" : value) || hasWord(text, setting.option);
    };
    const auto setting = std::find_if(settings.begin(), settings.end(), isMeant);
    if (failure.status() == ExitStatus::Usage && setting != settings.end())
        told.withPlace(setting->place);
    return told;
}

Failure explainMissing(const std::string& option, const std::string& variable)
{
    const std::string other = misspelt(variable);
    const std::string found = option + " is required";
    if (!other.empty())
        return {kWrongUsage, "", found + ", and " + other + " is no variable of authchip",
                "Did you mean " + variable + "?"};
    return {kWrongUsage, "", found,
            "Give it, set " + variable + ", or write it into " + kConfigFile +
                ". (sudo drops variables, unless it has\n" + "'--preserve-env=" + variable + "'.)"};
}

void requireConfigFile(const CLI::App& app)
{
    const std::string path = pathOf(app);
    errno = 0;
    if (access(path.c_str(), R_OK) != 0 && (errno != ENOENT || path != kConfigFile))
        throw unreadable(path, describeSystemError(errno));
}

} // namespace VorelKestrel::Tool
