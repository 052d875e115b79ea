#include "simulator/options.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>

#include "authchipdriver/registermap.h"
#include "simulator/exitstatus.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr unsigned kByteMaximum = 0xff;
constexpr unsigned kWordMaximum = 0xffff;
constexpr unsigned kAddressMaximum = 0x7f;

const char* const kFooter = R"(Without --key and --certificate the chip gets a new key and a self-signed certificate.
Versions 1 to 6 sign with RSA-1024 (protocol 2.0B), 7 and above with P-256 (3.0).
PROGRAM must be dynamically linked and not set-user-ID: it is run with a preloaded
library. Descriptors of the node do not survive exec. The node is there for as long
as PROGRAM runs.

Exit status:
  that of PROGRAM, or 128 + n if signal n killed it; otherwise
  2    the options are wrong, or a key or certificate does not fit
  125  the simulated node could not be put up, or the log not be written
  126  PROGRAM could not be run
  127  PROGRAM was not found

Examples:
  authchip-sim -- i2ctransfer -y 7 w1@0x2a 0x00 r1
  authchip-sim --device-version 3 --busy-ms 200 --log transfers.txt -- ./host
  authchip-sim --refuse 5 --corrupt-signature -- sh -c './host && ./host')";

/// Numbers of the command line before they become the settings' types, which it does not know.
struct Numbers
{
    unsigned address = SimulationSettings{}.address;
    std::vector<unsigned> boundAddresses;
    unsigned deviceVersion = ChipSettings{}.deviceVersion;
    unsigned firmwareVersion = ChipSettings{}.firmwareVersion;
    std::string protocol;
    unsigned busyMilliseconds = static_cast<unsigned>(ChipSettings{}.busyTime.count());
    unsigned stuckMilliseconds = 0;
    unsigned wrongStatus = 0;
    std::vector<std::string> wrongLengths;
    unsigned faultRegister = 0;
};

unsigned parseNumber(const std::string& text, unsigned maximum, const std::string& option)
{
    unsigned number = 0;
    if (!CLI::detail::lexical_cast(text, number) || number > maximum || text.find('-') != std::string::npos)
        throw UsageError(option + ": '" + text + "' is no number from 0 to " + std::to_string(maximum));
    return number;
}

/// "LEFT<separator>RIGHT" as two numbers.
std::pair<unsigned, unsigned> parsePair(const std::string& text, char separator, unsigned rightMaximum,
                                        const std::string& option)
{
    const auto middle = text.find(separator);
    if (middle == std::string::npos)
        throw UsageError(option + ": '" + text + "' has no '" + separator + "'");
    return {parseNumber(text.substr(0, middle), kByteMaximum, option),
            parseNumber(text.substr(middle + 1), rightMaximum, option)};
}

class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override
    {
        return "Usage: authchip-sim [OPTIONS] -- PROGRAM [ARGS...]\n";
    }
};

class Parser
{
public:
    Parser()
        : m_app("Runs a program with a simulated authentication coprocessor on a simulated I2C bus.", "authchip-sim")
    {
        const auto formatter = std::make_shared<HelpFormatter>();
        formatter->column_width(34);
        m_app.formatter(formatter);
        m_app.footer(kFooter);
        addNode();
        addChip();
        addFaults();
    }

    Options parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end()); // as CLI11 likes them
        try {
            m_app.parse(arguments);
        } catch (const CLI::CallForHelp&) {
            m_options.help = m_app.help();
            return m_options;
        } catch (const CLI::ParseError& error) {
            throw UsageError(error.what());
        }
        transferNumbers();
        return m_options;
    }

private:
    void addNode()
    {
        const std::string group = "The node and the bus";
        m_app.add_option("--device", m_options.device, "Path of the node, below /dev")
            ->capture_default_str()
            ->group(group);
        m_app.add_option("--address", m_numbers.address, "7-bit address of the chip")
            ->check(CLI::Range(0U, kAddressMaximum))
            ->default_str("0x2a")
            ->group(group);
        m_app
            .add_option("--bound-address", m_numbers.boundAddresses,
                        "Address that a kernel driver has taken; repeatable")
            ->check(CLI::Range(0U, kAddressMaximum))
            ->allow_extra_args(false)
            ->group(group);
        m_app.add_option("--bus-hz", m_options.simulation.bitsPerSecond, "Clock of the bus; 0 takes no time")
            ->capture_default_str()
            ->group(group);
        m_app.add_option("--log", m_options.logFile, "Write every transfer to this file")
            ->type_name("FILE")
            ->group(group);
    }

    void addChip()
    {
        const std::string group = "The chip";
        ChipSettings& chip = m_options.simulation.chip;
        addByte("--device-version", m_numbers.deviceVersion, "Device version, decides the protocol")
            ->capture_default_str()
            ->group(group);
        addByte("--firmware-version", m_numbers.firmwareVersion, "Firmware version")
            ->capture_default_str()
            ->group(group);
        m_app.add_option("--protocol", m_numbers.protocol, "Protocol version that the chip reports; default: its own")
            ->type_name("MAJOR.MINOR")
            ->group(group);
        m_app.add_option("--device-id", chip.deviceId, "Device ID")->default_str("0x200")->group(group);
        m_app.add_option("--key", m_options.keyFile, "Private key, PEM or DER")->type_name("FILE")->group(group);
        m_app.add_option("--certificate", m_options.certificateFile, "Certificate or PKCS #7 container, PEM or DER")
            ->type_name("FILE")
            ->needs("--key")
            ->group(group);
        m_app
            .add_option("--certificate-length", m_options.certificateLength,
                        "Length of the self-signed one's container")
            ->type_name("BYTES")
            ->excludes("--certificate")
            ->group(group);
        m_busyTime =
            m_app.add_option("--busy-ms", m_numbers.busyMilliseconds, "Time of no answer after a start command")
                ->capture_default_str()
                ->group(group);
        m_busyRefusals =
            m_app
                .add_option("--busy-refusals", chip.busyRefusals,
                            "Messages refused after a start command; without --busy-ms, in place of the time")
                ->check(CLI::Range(0, INT_MAX))
                ->group(group);
    }

    void addFaults()
    {
        const std::string group = "Faults";
        Faults& faults = m_options.simulation.faults;
        addCount("--refuse", faults.refusedMessages, "Refuse the next N messages")->group(group);
        addCount("--fail-reads", faults.failedReads, "Fail the next N reads")->group(group);
        addCount("--short-reads", faults.shortReads, "Deliver one byte less in the next N reads")->group(group);
        m_faultRegister = addByte("--fault-register", m_numbers.faultRegister,
                                  "Let the three above hit this register's messages only")
                              ->group(group);
        m_wrongStatus = addByte("--wrong-status", m_numbers.wrongStatus, "Report this status")->group(group);
        m_app
            .add_option("--wrong-length", m_numbers.wrongLengths,
                        "Report this length in 0x11, 0x20 or 0x30; repeatable")
            ->type_name("REGISTER=LENGTH")
            ->allow_extra_args(false)
            ->group(group);
        m_app.add_flag("--corrupt-signature", faults.corruptSignature, "Turn a bit of the signature over")
            ->group(group);
        m_stuckTime =
            m_app.add_option("--stuck-bus", m_numbers.stuckMilliseconds, "Let every message time out after so long")
                ->type_name("MS")
                ->group(group);
    }

    CLI::Option* addByte(const std::string& name, unsigned& value, const std::string& description)
    {
        return m_app.add_option(name, value, description)->check(CLI::Range(0U, kByteMaximum))->type_name("BYTE");
    }

    CLI::Option* addCount(const std::string& name, int& value, const std::string& description)
    {
        return m_app.add_option(name, value, description)->check(CLI::Range(0, INT_MAX))->type_name("N");
    }

    void transferNumbers()
    {
        SimulationSettings& simulation = m_options.simulation;
        simulation.address = m_numbers.address;
        simulation.boundAddresses.insert(m_numbers.boundAddresses.begin(), m_numbers.boundAddresses.end());
        simulation.chip.deviceVersion = static_cast<AL::U8>(m_numbers.deviceVersion);
        simulation.chip.firmwareVersion = static_cast<AL::U8>(m_numbers.firmwareVersion);
        const bool countedOnly = m_busyRefusals->count() > 0 && m_busyTime->count() == 0;
        simulation.chip.busyTime = std::chrono::milliseconds(countedOnly ? 0 : m_numbers.busyMilliseconds);
        if (!m_numbers.protocol.empty()) {
            const auto [major, minor] = parsePair(m_numbers.protocol, '.', kByteMaximum, "--protocol");
            simulation.chip.protocolMajorVersion = static_cast<AL::U8>(major);
            simulation.chip.protocolMinorVersion = static_cast<AL::U8>(minor);
        }
        if (m_faultRegister->count() > 0)
            simulation.faults.onlyRegister = static_cast<AL::U8>(m_numbers.faultRegister);
        if (m_stuckTime->count() > 0)
            simulation.faults.stuckTime = std::chrono::milliseconds(m_numbers.stuckMilliseconds);
        transferAnswers(simulation.faults);
    }

    void transferAnswers(Faults& faults)
    {
        if (m_wrongStatus->count() > 0)
            faults.answers[ACD::kRegisterControlAndStatus] = {static_cast<AL::U8>(m_numbers.wrongStatus)};
        for (const std::string& text : m_numbers.wrongLengths) {
            const auto [reg, length] = parsePair(text, '=', kWordMaximum, "--wrong-length");
            if (reg != ACD::kRegisterResponseLength && reg != ACD::kRegisterChallengeLength &&
                reg != ACD::kRegisterCertificateLength)
                throw UsageError("--wrong-length: '" + text + "' names none of the registers 0x11, 0x20 and 0x30");
            faults.answers[static_cast<AL::U8>(reg)] = {static_cast<AL::U8>(length >> 8U), static_cast<AL::U8>(length)};
        }
    }

    CLI::App m_app;
    Options m_options;
    Numbers m_numbers;
    CLI::Option* m_busyTime = nullptr; // these are owned by m_app
    CLI::Option* m_busyRefusals = nullptr;
    CLI::Option* m_faultRegister = nullptr;
    CLI::Option* m_wrongStatus = nullptr;
    CLI::Option* m_stuckTime = nullptr;
};

} // namespace

Options parseOptions(int argc, const char* const* argv)
{
    // What comes after the first "--" is the program's, whatever it looks like.
    const auto isSeparator = [](const char* argument) { return std::strcmp(argument, "--") == 0; };
    const char* const* end = argv + argc;
    const char* const* separator = std::find_if(argv + 1, end, isSeparator);
    Options options = Parser().parse({argv + 1, separator});
    if (!options.help.empty())
        return options;
    if (separator == end || separator + 1 == end)
        throw UsageError("no program to run: it stands behind '--'");
    options.command.assign(separator + 1, end);
    return options;
}

} // namespace VorelKestrel::Simulator
