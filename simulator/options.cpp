#include "simulator/options.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>

#include "authchipdriver/registermap.h"
#include "common/generations.h"
#include "common/numbers.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr std::uint32_t kByteMaximum = 0xff;
constexpr std::uint32_t kWordMaximum = 0xffff;
constexpr std::uint32_t kDoubleWordMaximum = 0xffffffff;
constexpr std::uint32_t kAddressMaximum = 0x7f;
// A count, because timing is unreliable on a loaded machine.
constexpr int kUsbIpBusyRefusals = 3;
constexpr std::uint32_t kLastBitOfCertificates =
    kGeneration20B.certificatePages * ACD::kCertificatePageSize * 8 - 1;              // of the longest
constexpr std::uint32_t kLastBitOfChallenges = kGeneration30.challengeLength * 8 - 1; // of the longest
constexpr AL::U8 kLengthRegisters[] = {ACD::kRegisterResponseLength, ACD::kRegisterChallengeLength,
                                       ACD::kRegisterCertificateLength};

constexpr const char* kDescription =
    "Runs a program in front of a simulated authentication chip on a simulated I2C bus.";
constexpr const char* kUsage = "Usage: authchip-sim [OPTIONS] -- PROGRAM [ARGS...]\n"
                               "       authchip-sim --usbip [OPTIONS] [-- PROGRAM [ARGS...]]\n";
constexpr const char* kFooter = R"(Numbers are decimal (42) or hexadecimal (0x2a).
By default the chip gets a new key and a self-signed certificate.
PROGRAM must be dynamically linked and not set-user-ID, because libraries are preloaded
into it. It must open the node itself: a descriptor does not survive exec or dup, and two
processes cannot use it at the same time. The node exists while PROGRAM runs.

With --usbip the bus is behind a USB device for Linux's driver i2c-tiny-usb. authchip-sim
prints the address for 'usbip attach'. With --attach the kernel of this machine gets the
device and creates a real node, and authchip-sim prints its path. PROGRAM, if given, finds
the address in AUTHCHIP_USBIP or the path in AUTHCHIP_DEVICE. The device exists until
PROGRAM ends or a signal arrives.

Exit status: that of PROGRAM, or 128 + n if signal n killed it; otherwise
  0    after --help and --version
  2    the options are wrong, or a key or certificate does not fit
  125  the node cannot be set up, the log cannot be written, or a message
       differs from the replay
  126  PROGRAM cannot be run
  127  PROGRAM is not found

Examples:
  authchip-sim -- i2ctransfer -y 7 w1@0x2a 0x00 r1
  authchip-sim --device-version 3 --busy-ms 200 --log transfers.txt -- ./host
  authchip-sim --refuse 5 --corrupt-signature -- sh -c './host; ./host'
  authchip-sim --replay failure.pcapng -- ./host
  authchip-sim --usbip --attach -- authchip info --address 0x2a)";

std::uint32_t requireNumber(const std::string& text, std::uint32_t maximum, const std::string& option)
{
    const auto number = parseNumber(text, maximum);
    if (!number)
        throw UsageError(option + ": '" + text + "' is not a number from 0 to " + std::to_string(maximum));
    return *number;
}

/// The number of an error, from its name.
int requireError(const std::string& name, const std::string& option)
{
    constexpr int kLastError = 4095; // the kernel's largest
    for (int error = 1; error <= kLastError; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known)
            return error;
    }
    throw UsageError(option + ": '" + name + "' is not the name of an error, such as EIO, ETIMEDOUT or EREMOTEIO");
}

/// The two sides of the first separator.
std::pair<std::string, std::string> split(const std::string& text, char separator, const std::string& option)
{
    const auto middle = text.find(separator);
    if (middle == std::string::npos)
        throw UsageError(option + ": '" + text + "' has no '" + separator + "'");
    return {text.substr(0, middle), text.substr(middle + 1)};
}

/// Whether this is a path below /dev that the kernel and the preload libraries treat alike.
bool isPlainDevicePath(const std::string& path)
{
    return path.rfind("/dev/", 0) == 0 && path.find("//") == std::string::npos &&
           path.find("/.") == std::string::npos && path.back() != '/';
}

/// Shows only an option's name and its placeholder; the description says the rest.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter() { column_width(33); }

    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override { return kUsage; }
    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_expected_max() == 0 ? "" : " " + option->get_type_name();
    }
};

std::string kindsOfCounterfeit()
{
    constexpr std::size_t kWidth = 21;
    std::string text = "Kinds of counterfeit:\n";
    for (const Counterfeit& each : counterfeits()) {
        std::string name = each.name;
        name.resize(kWidth, ' ');
        text += "  " + name + each.what + "\n";
    }
    return text + "\n";
}

constexpr const char* kGiven = "true"; // what CLI11 stores for an option without a value

/// One row of the tables below.
struct OptionRow
{
    const char* name;
    const char* value; // the placeholder in the help; null: no value
    const char* description;
    std::function<void(const std::string&)> set; // called each time the option is given
};

constexpr const char* kChipGroup = "The chip";
constexpr const char* kIssuerGroup = "Who issued its certificate";
constexpr const char* kFaultGroup = "Faults";

/// Which options go together.
struct OptionRule
{
    const char* option;
    const char* needed;                // null: none
    std::vector<std::string> excluded; // options, or the heading of a group of them
};

const OptionRule kOptionRules[] = {
    {"--replay",
     nullptr,
     {kChipGroup, kIssuerGroup, kFaultGroup, "--address", "--bound-address", "--smbus-only", "--bus-hz"}},
    {"--replay-loosely", "--replay", {}},
    {"--certificate", "--key", {"--certificate-length"}},
    {"--issuer", "--issuer-key", {"--certificate"}},
    {"--issuer-key", "--issuer", {}},
    {"--counterfeit", "--issuer", {"--certificate-length"}},
    {"--port", "--usbip", {"--attach"}},
    {"--attach", "--usbip", {}},
    // The kernel decides these when it creates the node.
    {"--device", nullptr, {"--usbip"}},
    {"--bound-address", nullptr, {"--usbip"}},
    {"--smbus-only", nullptr, {"--usbip"}},
    {"--fault-error", nullptr, {"--usbip"}},
};

class Parser
{
public:
    Parser() : m_app(kDescription)
    {
        m_app.formatter(std::make_shared<HelpFormatter>());
        m_app.footer(kindsOfCounterfeit() + kFooter);
        m_app.set_help_flag("-h,--help", "This text");
        m_app.set_version_flag("--version", "authchip-sim " AUTHCHIP_VERSION, "The version");
        add("The node and the bus", nodeRows());
        add("A USB device instead of the simulated node", usbIpRows());
        add("A capture instead of the simulated chip", replayRows());
        add(kChipGroup, chipRows());
        add(kIssuerGroup, issuerRows());
        add(kFaultGroup, faultRows());
        for (const OptionRule& rule : kOptionRules)
            add(rule);
    }

    Options parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end()); // the order that CLI11 expects
        try {
            m_app.parse(arguments);
        } catch (const CLI::CallForHelp&) {
            m_options.help = m_app.help();
        } catch (const CLI::CallForVersion&) {
            m_options.help = m_app.version() + "\n";
        } catch (const CLI::ExtrasError&) {
            throw UsageError("'" + m_app.remaining(true).front() +
                             "' is no option\nIf it is the program: authchip-sim [OPTIONS] -- PROGRAM [ARGS...]");
        } catch (const CLI::ParseError& error) {
            throw UsageError(error.what());
        }
        setBusyTime();
        return m_options;
    }

private:
    void setBusyTime()
    {
        ChipSettings& chip = m_options.simulation.chip;
        const bool counted = m_app.count("--busy-refusals") > 0;
        if (m_app.count("--busy-ms") > 0 || !(counted || m_options.usbIp))
            return;
        chip.busyTime = std::chrono::milliseconds(0);
        if (!counted)
            chip.busyRefusals = kUsbIpBusyRefusals;
    }

    void add(const std::string& group, const std::vector<OptionRow>& rows)
    {
        for (const OptionRow& row : rows) {
            const CLI::callback_t setEach = [row](const CLI::results_t& values) {
                if (row.value == nullptr && values.back() != kGiven)
                    throw UsageError(std::string(row.name) + " takes no value");
                std::for_each(values.begin(), values.end(), row.set);
                return true;
            };
            CLI::Option* const option = m_app.add_option(row.name, setEach, row.description)->group(group)->take_all();
            if (row.value == nullptr)
                option->expected(0);
            else
                option->type_name(row.value);
        }
    }

    void add(const OptionRule& rule)
    {
        CLI::Option* const option = m_app.get_option(rule.option);
        if (rule.needed != nullptr)
            option->needs(m_app.get_option(rule.needed));
        for (const std::string& excluded : rule.excluded) {
            const auto isMeant = [&](const CLI::Option* other) {
                return other->get_name() == excluded || other->get_group() == excluded;
            };
            for (CLI::Option* const other : m_app.get_options(isMeant))
                option->excludes(other);
        }
    }

    static OptionRow textRow(const char* name, const char* value, const char* description, std::string& target)
    {
        return {name, value, description, [&target](const std::string& text) { target = text; }};
    }

    template<typename Set>
    static OptionRow numberRow(const char* name, const char* value, std::uint32_t maximum, const char* description,
                               Set set)
    {
        return {name, value, description, [=](const std::string& text) { set(requireNumber(text, maximum, name)); }};
    }

    /// A number that is stored in a variable, which may be optional.
    template<typename Target>
    static OptionRow intoRow(const char* name, const char* value, std::uint32_t maximum, const char* description,
                             Target& target)
    {
        return numberRow(name, value, maximum, description,
                         [&target](std::uint32_t number) { target = static_cast<Target>(number); });
    }

    std::vector<OptionRow> nodeRows()
    {
        SimulationSettings& bus = m_options.simulation;
        return {
            {"--device", "PATH", "Path of the node below /dev (/dev/i2c-7)",
             [this](const std::string& path) { setDevice(m_options, path); }},
            intoRow("--address", "ADDRESS", kAddressMaximum, "7-bit address of the chip (0x2a)", bus.address),
            numberRow(
                "--bound-address", "ADDRESS", kAddressMaximum, "Address that a kernel driver holds; repeatable",
                [&bus](std::uint32_t address) { bus.node.boundAddresses.insert(static_cast<unsigned>(address)); }),
            {"--smbus-only", nullptr, "Support only SMBus transfers, no plain I2C messages",
             [&bus](const std::string&) { bus.node.smbusOnly = true; }},
            intoRow("--bus-hz", "HZ", kDoubleWordMaximum, "Clock of the bus; 0: messages take no time (0)",
                    bus.bitsPerSecond),
            textRow("--log", "FILE", "Log every message to this file", m_options.logFile),
            textRow("--capture", "FILE", "Capture every message into this file, for authchip decode and Wireshark",
                    m_options.captureFile),
        };
    }

    std::vector<OptionRow> usbIpRows()
    {
        return {
            {"--usbip", nullptr,
             "Offer the bus as a USB device over USB/IP; the chip then refuses 3 messages while busy",
             [this](const std::string&) { m_options.usbIp = true; }},
            intoRow("--port", "PORT", kWordMaximum, "TCP port on the loopback address; 0: a free one (3240)",
                    m_options.usbIpPort),
            {"--attach", nullptr,
             "Attach it to this kernel; needs root and the modules vhci-hcd, i2c-tiny-usb and i2c-dev",
             [this](const std::string&) { m_options.attach = true; }},
        };
    }

    std::vector<OptionRow> replayRows()
    {
        return {
            textRow("--replay", "FILE",
                    "Answer as in this capture, message by message; a different message ends the replay",
                    m_options.replayFile),
            {"--replay-loosely", nullptr, "Answer each register as in the capture, in any order",
             [this](const std::string&) { m_options.replayLoosely = true; }},
        };
    }

    std::vector<OptionRow> chipRows()
    {
        ChipSettings& chip = m_options.simulation.chip;
        return {
            intoRow("--device-version", "BYTE", kByteMaximum,
                    "Device version; up to 6: protocol 2.0B (RSA-1024), from 7: protocol 3.0 (P-256) (7)",
                    chip.deviceVersion),
            intoRow("--firmware-version", "BYTE", kByteMaximum, "Firmware version (1)", chip.firmwareVersion),
            {"--protocol", "MAJOR.MINOR", "Protocol version that the chip reports (that of the device version)",
             [&chip](const std::string& text) { setProtocol(chip, text); }},
            intoRow("--device-id", "NUMBER", kDoubleWordMaximum, "Device ID (0x200)", chip.deviceId),
            textRow("--key", "FILE", "Private key, PEM or DER", m_options.keyFile),
            textRow("--certificate", "FILE", "Certificate of the key, PEM or DER, bare or in a PKCS #7 container",
                    m_options.certificateFile),
            intoRow("--certificate-length", "BYTES", kWordMaximum, "Length of the self-signed certificate's container",
                    m_options.certificateLength),
            numberRow("--busy-ms", "MS", kDoubleWordMaximum,
                      "How long the chip refuses messages after a start command (30)",
                      [&chip](std::uint32_t time) { chip.busyTime = std::chrono::milliseconds(time); }),
            intoRow("--busy-refusals", "N", INT_MAX,
                    "How many messages the chip refuses after a start command; replaces the time unless --busy-ms is "
                    "given (0)",
                    chip.busyRefusals),
        };
    }

    std::vector<OptionRow> issuerRows()
    {
        return {
            textRow("--issuer", "FILE", "Certificate of the issuer, PEM or DER; replaces the self-signed certificate",
                    m_options.issuerFile),
            textRow("--issuer-key", "FILE", "Private key of the issuer, PEM or DER", m_options.issuerKeyFile),
            {"--counterfeit", "KIND", "Be a counterfeit of this issuer's chips; the kinds are below",
             [this](const std::string& name) { setCounterfeit(m_options, name); }},
        };
    }

    std::vector<OptionRow> faultRows()
    {
        Faults& faults = m_options.simulation.faults;
        return {
            intoRow("--refuse", "N", INT_MAX, "Refuse the next N messages", faults.refusedMessages),
            intoRow("--fail-reads", "N", INT_MAX, "Fail the next N reads", faults.failedReads),
            intoRow("--short-reads", "N", INT_MAX, "Deliver one byte less in the next N reads", faults.shortReads),
            numberRow("--fault-register", "REGISTER", kByteMaximum,
                      "Limit the three faults above to messages about this register",
                      [&faults](std::uint32_t reg) { faults.onlyRegister = static_cast<AL::U8>(reg); }),
            {"--fault-error", "NAME",
             "Error of refused messages and failed reads, as adapters differ (ENXIO; EIO for failed reads)",
             [&faults](const std::string& text) { faults.error = requireError(text, "--fault-error"); }},
            numberRow("--wrong-status", "BYTE", kByteMaximum, "Report this status",
                      [&faults](std::uint32_t status) {
                          faults.answers[ACD::kRegisterControlAndStatus] = {static_cast<AL::U8>(status)};
                      }),
            {"--wrong-length", "REGISTER=LENGTH", "Report this length in register 0x11, 0x20 or 0x30; repeatable",
             [&faults](const std::string& text) { setWrongLength(faults, text); }},
            intoRow("--random-faults", "N", kDoubleWordMaximum,
                    "Refuse one message in N, or cut the read, at random; say at the end how many", faults.oneIn),
            intoRow("--flip-bit", "BIT", kLastBitOfCertificates,
                    "Flip this bit of the certificate, counted from 0, the first time that it is read",
                    faults.flippedBit),
            intoRow("--flip-challenge-bit", "BIT", kLastBitOfChallenges,
                    "Flip this bit of each challenge on its way to the chip, counted from 0",
                    faults.flippedChallengeBit),
            intoRow("--read-limit", "BYTES", kWordMaximum,
                    "Deliver this many bytes of a read and fill the rest with 0xff, as some adapters do",
                    faults.readLimit),
            intoRow("--gone-after", "N", kDoubleWordMaximum,
                    "Answer N messages and then none, as a chip that loses its supply", faults.messagesLeft),
            intoRow("--other-program", "N", kDoubleWordMaximum,
                    "Let another program name register 0x00 before one read in N", faults.otherProgram),
            {"--restart-while-signing", nullptr, "Restart at each start command, instead of signing",
             [this](const std::string&) { m_options.simulation.chip.restartsWhileSigning = true; }},
            {"--corrupt-signature", nullptr, "Flip a bit in every signature",
             [&faults](const std::string&) { faults.corruptSignature = true; }},
            numberRow("--stuck-bus", "MS", kDoubleWordMaximum,
                      "Let every message time out, after this many milliseconds",
                      [&faults](std::uint32_t time) { faults.stuckTime = std::chrono::milliseconds(time); }),
        };
    }

    static void setDevice(Options& options, const std::string& path)
    {
        if (!isPlainDevicePath(path))
            throw UsageError("--device: '" + path + "' is not a plain path below /dev");
        options.device = path;
    }

    static void setCounterfeit(Options& options, const std::string& name)
    {
        options.counterfeit = findCounterfeit(name);
        if (options.counterfeit == nullptr)
            throw UsageError("--counterfeit: '" + name + "' is not a kind of counterfeit; --help lists them");
    }

    static void setProtocol(ChipSettings& chip, const std::string& text)
    {
        constexpr const char* kOption = "--protocol";
        const auto [major, minor] = split(text, '.', kOption);
        chip.protocolMajorVersion = static_cast<AL::U8>(requireNumber(major, kByteMaximum, kOption));
        chip.protocolMinorVersion = static_cast<AL::U8>(requireNumber(minor, kByteMaximum, kOption));
    }

    static void setWrongLength(Faults& faults, const std::string& text)
    {
        constexpr const char* kOption = "--wrong-length";
        const auto [registerText, lengthText] = split(text, '=', kOption);
        const auto reg = static_cast<AL::U8>(requireNumber(registerText, kByteMaximum, kOption));
        if (std::count(std::begin(kLengthRegisters), std::end(kLengthRegisters), reg) == 0)
            throw UsageError(std::string(kOption) + ": '" + registerText + "' is not 0x11, 0x20 or 0x30");
        const std::uint32_t length = requireNumber(lengthText, kWordMaximum, kOption);
        faults.answers[reg] = {static_cast<AL::U8>(length >> 8U), static_cast<AL::U8>(length)};
    }

    CLI::App m_app;
    Options m_options;
};

} // namespace

Options parseOptions(int argc, const char* const* argv)
{
    // Everything after the first "--" belongs to the program.
    const auto isSeparator = [](const char* argument) { return std::strcmp(argument, "--") == 0; };
    const char* const* end = argv + argc;
    const char* const* separator = std::find_if(std::min(argv + 1, end), end, isSeparator);
    Options options = Parser().parse({std::min(argv + 1, separator), separator});
    if (!options.help.empty())
        return options;
    if (separator != end)
        options.command.assign(separator + 1, end);
    if (options.command.empty() && !options.usbIp)
        throw UsageError("no program given; name it after '--'");
    return options;
}

} // namespace VorelKestrel::Simulator
