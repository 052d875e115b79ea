#include "tool/commands/commandline.h"

#include <algorithm>
#include <ostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "common/escaped.h"
#include "tool/commands/configfile.h"
#include "tool/commands/table.h"
#include "tool/commands/values.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kFooter[] = "Exit status: 0 done, 1 the chip, the bus or a file failed, 2 the command line is wrong,\n"
                           "3 not authentic. Standard output carries the answer only.\n"
                           "Numbers are decimal (42) or hexadecimal (0x2a).";

class Parser
{
public:
    Parser()
    {
        addCommonOptions();
        m_app.require_subcommand(1);
        m_app.fallthrough(); // the common options may stand behind the command, too
        for (const CommandRow& row : commandTable())
            add(row);
        declareConfigFile(m_app);
    }

    CommandLine parse(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
    {
        try {
            m_app.parse(argc, argv);
        } catch (const CLI::Success& request) {      // --help and --version
            m_app.get_config_ptr()->default_str(""); // the help names the file already
            m_app.exit(request, out, err);
            return {};
        } catch (const CLI::ParseError& error) {
            err << "authchip: " << escapedLines(describe(error))
                << "\n  next: 'authchip --help' lists the commands and options.\n";
            return {nullptr, nullptr, {}, ExitStatus::Usage};
        }
        // A group is a row of its own: its command comes after it.
        const auto chosen =
            std::find_if(m_entries.rbegin(), m_entries.rend(), [](const Entry& entry) { return entry.app->parsed(); });
        interpret(*chosen->command);
        return {chosen->row, std::move(chosen->command), m_options, ExitStatus::Success};
    }

private:
    struct Entry
    {
        const CommandRow* row;
        CLI::App* app;
        std::unique_ptr<Command> command;
    };

    void addCommonOptions()
    {
        m_app
            .add_option("-d,--device", m_options.location.device, "The i2c-dev node of the bus, for example /dev/i2c-1")
            ->envname("AUTHCHIP_DEVICE")
            ->required()
            ->type_name("NODE");
        m_app.add_option("-a,--address", m_address, "The chip's 7-bit address on the bus, for example 0x2a")
            ->envname("AUTHCHIP_ADDRESS")
            ->required()
            ->type_name("ADDRESS");
        m_app
            .add_option(
                "--bus-timeout", m_busTimeout,
                "Abort a transfer after this many milliseconds; applies to every program on the bus, and stays set")
            ->type_name("MILLISECONDS");
        m_app
            .add_option("--lock-timeout", m_lockTimeout,
                        "Give up after SECONDS if another process holds the lock of the bus")
            ->type_name("SECONDS");
        m_app.add_flag("--json", m_options.json, "Answer with one JSON object");
        m_app.add_flag("--stats", m_options.stats,
                       "Show refused messages, retries, longest wait and time of each operation on standard error");
        m_app
            .add_flag("-v,--verbose", m_options.verbosity,
                      "Show the library's console lines on standard error; -vv: each message, its result and time, too")
            ->default_str(""); // which newer versions of CLI11 show
        m_app.add_option("--log-config", m_options.logConfig, "A log4cplus property file for the drivers' log")
            ->check(existingFile())
            ->type_name("FILE");
        m_app.set_version_flag("--version", "authchip " AUTHCHIP_VERSION);
        m_app.footer(kFooter);
    }

    void add(const CommandRow& row)
    {
        const std::string name = row.name;
        const auto blank = name.find(' ');
        CLI::App& parent = blank == std::string::npos ? m_app : *m_app.get_subcommand(name.substr(0, blank));
        CLI::App& app = *parent.add_subcommand(blank == std::string::npos ? name : name.substr(blank + 1), row.help);
        if (row.needs == Needs::Nothing)
            app.preparse_callback([this](std::size_t) { requireNoLocation(); });
        if (row.make == nullptr) {
            app.require_subcommand(1);
            app.fallthrough();
            return;
        }
        m_entries.push_back({&row, &app, row.make()});
        m_entries.back().command->declare(app);
    }

    void requireNoLocation()
    {
        for (const char* option : {"--device", "--address"})
            m_app.get_option(option)->required(false);
    }

    void interpret(Command& command)
    {
        requireConfigFile(m_app);
        if (!m_address.empty() || m_app.get_option("--address")->count() > 0)
            m_options.location.address = parseAddress(m_address, command.largestAddress());
        if (!m_busTimeout.empty())
            m_options.busTimeout = parseBusTimeout(m_busTimeout);
        if (!m_lockTimeout.empty())
            m_options.lockTimeout = std::chrono::seconds(parseLockTimeout(m_lockTimeout));
        if (!m_options.logConfig.empty())
            requireProperties(m_options.logConfig);
        command.interpret();
    }

    /// CLI11 misses a command before it reports the unknown word in its place.
    std::string describe(const CLI::ParseError& error) const
    {
        const std::string text = error.what();
        if (text != "A subcommand is required")
            return text;
        for (const std::string& word : m_app.remaining(true)) {
            if (word.rfind('-', 0) != 0)
                return "unknown command '" + word + "'";
        }
        return "no command given";
    }

    CLI::App m_app{"Authenticates the accessory coprocessor on an I2C bus, and shows what it does.", "authchip"};
    CommonOptions m_options;
    std::string m_address;
    std::string m_busTimeout;
    std::string m_lockTimeout;
    std::vector<Entry> m_entries; // without the groups
};

} // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
{
    return Parser().parse(argc, argv, out, err);
}

} // namespace VorelKestrel::Tool
