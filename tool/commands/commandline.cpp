#include "tool/commands/commandline.h"

#include <algorithm>
#include <ostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "tool/commands/arguments.h"
#include "tool/commands/configfile.h"
#include "tool/commands/nearest.h"
#include "tool/commands/repeatarguments.h"
#include "tool/commands/strayword.h"
#include "tool/commands/table.h"
#include "tool/commands/values.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// The exit statuses, from the table of causes.
std::string footer()
{
    constexpr std::size_t kWidth = 80;
    std::string lines;
    std::string line = "Exit status: 0 done";
    for (const CauseClass& row : causeClasses()) {
        const std::string status = std::to_string(static_cast<int>(row.status)) + " " + row.name;
        line += ",";
        if (line.size() + 1 + status.size() > kWidth) {
            lines += line + "\n";
            line = status;
        } else {
            line += " " + status;
        }
    }
    return lines + line +
           ".\n"
           "Standard output has only the answer. With --json it also has a failure, as a JSON object.\n"
           "Numbers are decimal (42) or hexadecimal (0x2a).";
}

class Parser
{
public:
    Parser(int argc, const char* const* argv) : m_words(argv + std::min(argc, 1), argv + argc)
    {
        addCommonOptions();
        m_app.require_subcommand(1);
        m_app.fallthrough(); // the common options may also follow the command
        for (const CommandRow& row : commandTable())
            add(row);
        declareConfigFile(m_app, [this] {
            for (Entry& entry : m_entries)
                make(entry);
        });
    }

    CommandLine parse(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
    {
        try {
            return read(argc, argv, out, err);
        } catch (const Failure& failure) {
            throw withOrigin(failure, settingsOf(m_app));
        }
    }

private:
    struct Entry
    {
        const CommandRow* row;
        CLI::App* app;
        std::unique_ptr<Command> command;        // null until it is needed
        std::unique_ptr<RepeatArguments> repeat; // the same
    };

    CommandLine read(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
    {
        try {
            m_app.parse(argc, argv);
        } catch (const CLI::Success& request) {      // --help and --version
            m_app.get_config_ptr()->default_str(""); // the help already names the file
            m_app.exit(request, out, err);
            return {};
        } catch (const CLI::ParseError& error) {
            throw explain(error);
        }
        // A group has a row of its own, and its command comes after it.
        const auto chosen =
            std::find_if(m_entries.rbegin(), m_entries.rend(), [](const Entry& entry) { return entry.app->parsed(); });
        requireConfigFile(m_app);
        if (chosen->row->needs != Needs::Nothing)
            requireLocation();
        const std::vector<Setting> settings = settingsOf(m_app);
        m_options.location.origin = originOfLocation(settings);
        interpret(*chosen->command);
        chosen->repeat->interpret();
        return {chosen->row, std::move(chosen->command), m_options, chosen->repeat->options(), settings};
    }

    void addCommonOptions()
    {
        Arguments common(m_app);
        common.add("-d,--device", m_options.location.device, "The i2c-dev node of the bus, for example /dev/i2c-1")
            .elseFrom("AUTHCHIP_DEVICE")
            .shownAs("NODE");
        common.add("-a,--address", m_address, "The chip's 7-bit address on the bus, for example 0x2a")
            .elseFrom("AUTHCHIP_ADDRESS")
            .shownAs("ADDRESS");
        common
            .add("--bus-timeout", m_busTimeout,
                 "Abort a transfer after this time; applies to every program on the bus until it is set again")
            .shownAs("MILLISECONDS");
        common
            .add("--lock-timeout", m_lockTimeout, "Give up if another process holds the lock of the bus for this long")
            .shownAs("SECONDS");
        common.addFlag("--json", m_options.json, "Answer with one JSON object");
        common.addFlag("--stats", m_options.stats,
                       "For each operation, show refused messages, retries, longest wait and time on standard error");
        m_app
            .add_flag(
                "-v,--verbose", m_options.verbosity,
                "Show the library's console lines on standard error; with -vv also each message, its result and time")
            ->default_str(""); // which newer versions of CLI11 show
        common.add("--log-config", m_options.logConfig, "A log4cplus property file for the drivers' log")
            .mustBeAFile()
            .shownAs("FILE");
        m_app.set_version_flag("--version", "authchip " AUTHCHIP_VERSION);
        m_app.footer(footer());
    }

    void add(const CommandRow& row)
    {
        const std::string name = row.name;
        const auto blank = name.find(' ');
        CLI::App& parent = blank == std::string::npos ? m_app : *m_app.get_subcommand(name.substr(0, blank));
        CLI::App& app = *parent.add_subcommand(blank == std::string::npos ? name : name.substr(blank + 1), row.help);
        if (row.needs != Needs::Nothing)
            app.footer("Needs --device and --address, or AUTHCHIP_DEVICE and AUTHCHIP_ADDRESS.\n" + footer());
        if (row.make == nullptr) {
            app.require_subcommand(1);
            app.fallthrough();
            return;
        }
        m_entries.push_back({&row, &app, nullptr, nullptr});
        if (std::count(m_words.begin(), m_words.end(), app.get_name()) > 0)
            make(m_entries.back());
    }

    /// A command that nobody names is not made: that would load what it needs. Only its name and help are known.
    static void make(Entry& entry)
    {
        if (entry.command != nullptr)
            return;
        entry.command = entry.row->make();
        entry.repeat = std::make_unique<RepeatArguments>();
        Arguments arguments(*entry.app);
        entry.command->declare(arguments);
        if (entry.command->isRepeatable())
            entry.repeat->declare(arguments);
    }

    void requireLocation() const
    {
        for (const char* option : {"--device", "--address"}) {
            if (m_app.get_option(option)->count() == 0)
                throw explainMissing(option, m_app.get_option(option)->get_envname());
        }
        requirePlainPath(m_options.location.device);
    }

    void interpret(Command& command)
    {
        if (!m_address.empty() || m_app.get_option("--address")->count() > 0)
            setAddress(command);
        if (!m_busTimeout.empty())
            m_options.busTimeout = parseBusTimeout(m_busTimeout);
        if (!m_lockTimeout.empty())
            m_options.lockTimeout = std::chrono::seconds(parseLockTimeout(m_lockTimeout));
        if (!m_options.logConfig.empty())
            requireProperties(m_options.logConfig);
        command.interpret();
    }

    void setAddress(const Command& command)
    {
        m_options.location.address = parseAddress(m_address, command.largestAddress());
        m_options.location.inHexadecimal = addressInHexadecimal(m_address);
    }

    /// Where the command should be, CLI11 reports a missing command and not the unknown word.
    Failure explain(const CLI::ParseError& error) const
    {
        const std::string help = "'authchip --help' lists the commands and options.";
        const std::string text = error.what();
        const std::vector<std::string> strays = m_app.remaining(true);
        const auto program = std::find(strays.begin(), strays.end(), "--"); // with options of its own
        const bool hasOption = std::any_of(strays.begin(), program, [](const std::string& word) {
            return word.rfind('-', 0) == 0 || beginsWithADash(word);
        });
        if (hasOption || dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
            const StrayWord stray = explainStray(m_words, strays, optionsOfCommand());
            return {kWrongUsage, "", stray.found, stray.next};
        }
        if (text != "A subcommand is required")
            return {kWrongUsage, "", text, help};
        const CLI::App* group = &m_app;
        for (const CLI::App* parsed : m_app.get_subcommands())
            group = parsed;
        const std::string place = group == &m_app ? "authchip" : "authchip " + group->get_name();
        for (const std::string& word : strays) {
            if (word.rfind('-', 0) != 0)
                return {kWrongUsage, "", "unknown command '" + word + "'", adviseOn(word, *group, place)};
        }
        return {kWrongUsage, "", "no command given",
                "Name one: " + commaSeparated(commandsOf(*group)) + ". '" + place + " --help' explains them."};
    }

    /// The long options of the program and of the command that was named.
    std::vector<std::string> optionsOfCommand() const
    {
        std::vector<std::string> names;
        std::vector<const CLI::App*> apps = {&m_app};
        for (std::size_t next = 0; next < apps.size(); ++next) {
            for (const CLI::Option* option : apps[next]->get_options()) {
                if (!option->get_lnames().empty())
                    names.push_back("--" + option->get_lnames().front());
            }
            const CLI::App* app = apps[next]; // the list grows
            for (const CLI::App* command : app->get_subcommands())
                apps.push_back(command);
        }
        return names;
    }

    static std::vector<std::string> commandsOf(const CLI::App& group)
    {
        std::vector<std::string> names;
        for (const CLI::App* command : group.get_subcommands([](const CLI::App*) { return true; }))
            names.push_back(command->get_name());
        return names;
    }

    static std::string commaSeparated(const std::vector<std::string>& names)
    {
        std::string row;
        for (const std::string& name : names)
            row += (row.empty() ? "" : ", ") + name;
        return row;
    }

    static std::string adviseOn(const std::string& word, const CLI::App& group, const std::string& place)
    {
        return "Did you mean '" + place + " " + nearestWord(word, commandsOf(group)) + "'? '" + place +
               " --help' lists the commands.";
    }

    const std::vector<std::string> m_words; // of the command line
    CLI::App m_app{"Authenticates the accessory coprocessor on an I2C bus, and finds faults.", "authchip"};
    CommonOptions m_options;
    std::string m_address;
    std::string m_busTimeout;
    std::string m_lockTimeout;
    std::vector<Entry> m_entries; // without the groups
};

} // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
{
    return Parser(argc, argv).parse(argc, argv, out, err);
}

} // namespace VorelKestrel::Tool
