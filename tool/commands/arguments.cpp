#include "tool/commands/arguments.h"

#include <fstream>
#include <iterator>
#include <ostream>

#include <CLI/CLI.hpp>

#include "common/escaped.h"

namespace VorelKestrel::Tool {
namespace {

constexpr int kEightBitMaximum = 0xff;
constexpr int kLargestRegister = 0xff;
constexpr char kDoctor[] = "doctor";

constexpr char kFooter[] = "Exit status: 0 done, 1 the chip, the bus or a file failed, 2 the command line is wrong,\n"
                           "3 not authentic. Standard output carries the answer only.\n"
                           "Numbers are decimal (42) or hexadecimal (0x2a).";

/// The command line as it was typed, before its values are looked at.
struct RawArguments
{
    Arguments values;
    std::string address;
    std::string busTimeout;
    std::string challenge;
    std::string challengeFile;
    std::string reg;
    std::string length;
    std::string data;
    std::string mode;
};

Failure usageFailure(const std::string& tried, const std::string& answer, const std::string& next)
{
    return {ExitStatus::Usage, tried, answer, next};
}

/// @p maximum  the doctor tells about an address of 8 bits himself.
int parseAddress(const std::string& text, int maximum)
{
    const std::string tried = "use the address '" + text + "'";
    const auto address = parseNumber(text);
    if (!address)
        throw usageFailure(tried, "That is no number", "Give the chip's 7-bit address, for example 0x2a.");
    if (*address <= maximum)
        return *address;
    if (*address <= kEightBitMaximum)
        throw usageFailure(tried, "An I2C address has 7 bits; this one has 8, the lowest being the read/write bit",
                           "Leave that bit out: --address " + toHex(static_cast<std::uint32_t>(*address / 2), 2));
    throw usageFailure(tried, "An I2C address has 7 bits", "Give an address from 0x08 to 0x77.");
}

int parseRegister(const std::string& text)
{
    const auto reg = parseNumber(text);
    if (!reg || *reg > kLargestRegister)
        throw usageFailure("use the register '" + text + "'", "A register is a number from 0 to 0xff",
                           "'authchip read' without a register lists those with a name.");
    return *reg;
}

int parseLength(const std::string& text)
{
    const auto length = parseNumber(text);
    if (!length || *length == 0)
        throw usageFailure("read '" + text + "' bytes", "A length is a number from 1 to 65535",
                           "Give a number, or none for the register's own length.");
    return *length;
}

int parseBusTimeout(const std::string& text)
{
    const auto milliseconds = parseNumber(text);
    if (!milliseconds || *milliseconds == 0)
        throw usageFailure("set the timeout of the bus to '" + text + "'",
                           "A timeout is a number of milliseconds from 1 to 65535",
                           "Give a number, or leave --bus-timeout out to keep the bus controller's own.");
    return *milliseconds;
}

/// Whoever may do one of the two, look or change, cannot use the lock.
unsigned parseMode(const std::string& text)
{
    constexpr const char* kModes[] = {"0600", "0660", "0606", "0666"};
    for (const std::string mode : kModes) {
        if (text == mode || text == mode.substr(1))
            return static_cast<unsigned>(std::stoul(text, nullptr, 8));
    }
    throw usageFailure("give the lock the mode '" + text + "'",
                       "The library reads and changes it: a class of users has 6 or 0, and the owner 6",
                       "Give 0600, 0660 or 0666; without --mode it is 0660.");
}

Bytes parseBytes(const std::string& text, const std::string& tried)
{
    const auto bytes = fromHex(text);
    if (!bytes)
        throw usageFailure(tried, "'" + text + "' is no sequence of bytes in hexadecimal",
                           "Give two digits a byte, for example 00ff10.");
    return *bytes;
}

Bytes readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    Bytes content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad())
        throw usageFailure("read a challenge from " + path, "The file cannot be read", "Name another file.");
    return content;
}

Arguments interpret(const RawArguments& raw)
{
    Arguments arguments = raw.values;
    if (!raw.address.empty())
        arguments.location.address =
            parseAddress(raw.address, raw.values.command == kDoctor ? kEightBitMaximum : kSevenBitMaximum);
    if (!raw.mode.empty())
        arguments.mode = parseMode(raw.mode);
    if (!raw.busTimeout.empty())
        arguments.busTimeout = parseBusTimeout(raw.busTimeout);
    if (!raw.challenge.empty())
        arguments.challenge = parseBytes(raw.challenge, "sign a challenge");
    if (!raw.challengeFile.empty())
        arguments.challenge = readFile(raw.challengeFile);
    if (!raw.reg.empty())
        arguments.reg = parseRegister(raw.reg);
    if (!raw.length.empty())
        arguments.length = parseLength(raw.length);
    arguments.data = parseBytes(raw.data, "write to a register");
    return arguments;
}

/// Without the type that CLI11 would show a second time.
CLI::Validator existingFile()
{
    CLI::Validator validator = CLI::ExistingFile;
    validator.description("");
    return validator;
}

void addCommonOptions(CLI::App& app, RawArguments& raw)
{
    app.add_option("-d,--device", raw.values.location.device, "The i2c-dev node of the bus, for example /dev/i2c-1")
        ->envname("AUTHCHIP_DEVICE")
        ->required()
        ->type_name("NODE");
    app.add_option("-a,--address", raw.address, "The chip's 7-bit address on the bus, for example 0x2a")
        ->envname("AUTHCHIP_ADDRESS")
        ->required()
        ->type_name("ADDRESS");
    app.add_option("--bus-timeout", raw.busTimeout,
                   "Have the bus give a transfer up after so long; stays set, for every program")
        ->type_name("MILLISECONDS");
    app.add_flag("--json", raw.values.json, "Answer with one JSON object");
    app.add_flag("-v,--verbose", raw.values.verbosity,
                 "Show the library's console lines on standard error; -vv: every access, too");
    app.add_option("--log-config", raw.values.logConfig, "A log4cplus property file for the drivers' log")
        ->check(existingFile())
        ->type_name("FILE");
    app.set_version_flag("--version", "authchip " AUTHCHIP_VERSION);
    app.footer(kFooter);
}

void addOutput(CLI::App& command, RawArguments& raw, const char* description)
{
    command.add_option("-o,--output", raw.values.outputFile, description)->type_name("FILE");
}

std::string describe(const CLI::ParseError& error)
{
    // CLI11 misses a command before it minds the unknown word in its place.
    const std::string text = error.what();
    return text == "A subcommand is required" ? "no command that there is" : text;
}

void addCommands(CLI::App& app, RawArguments& raw)
{
    app.require_subcommand(1);
    app.fallthrough(); // the common options may stand behind the command, too

    app.add_subcommand("info", "Detect the chip; tell its versions, device ID and limits");

    app.add_subcommand(kDoctor,
                       "Find out what is wrong with node, address, lock, bus or chip, and what to do about it");

    auto& certificate = *app.add_subcommand("certificate", "Read the chip's certificate and tell what is in it");
    addOutput(certificate, raw, "Store the certificate as the chip holds it; - is standard output");
    certificate.add_flag("--pem", raw.values.pem, "Store it as X.509 in PEM; without -o, on standard output");

    auto& sign = *app.add_subcommand("sign", "Have the chip sign a challenge, a random one if none is given");
    auto* challenge = sign.add_option("--challenge", raw.challenge, "The challenge in hexadecimal")->type_name("HEX");
    sign.add_option("--challenge-file", raw.challengeFile, "A file that holds the challenge's bytes")
        ->check(existingFile())
        ->excludes(challenge)
        ->type_name("FILE");
    addOutput(sign, raw, "Store the signature's bytes; - is standard output");

    app.add_subcommand("authenticate", "Read the certificate, have a random challenge signed, verify the signature");

    auto& read = *app.add_subcommand("read", "Read a register, without detecting the chip; list all if none is given");
    read.add_option("REGISTER", raw.reg, "Its number, 0 to 0xff");
    read.add_option("LENGTH", raw.length, "How many bytes; the register's own length if none is given");

    auto& write = *app.add_subcommand("write", "Write to a register, without detecting the chip");
    write.add_option("REGISTER", raw.reg, "Its number, 0 to 0xff")->required();
    write.add_option("HEX", raw.data, "The bytes in hexadecimal; \"\" sends the register number alone")->required();
}

/// The lock is the machine's: neither bus nor chip needs to be named.
void addLockCommands(CLI::App& app, RawArguments& raw)
{
    auto& lock = *app.add_subcommand("lock", "Look at the lock between processes, or make one that stays");
    lock.require_subcommand(1);
    lock.fallthrough();
    lock.preparse_callback([&app](std::size_t) {
        for (const char* option : {"--device", "--address"})
            app.get_option(option)->required(false);
    });
    lock.add_subcommand("status", "Show the key file, the semaphore, who may use it, who did last, and who waits");
    auto& seed =
        *lock.add_subcommand("seed", "Make the lock at boot, before its users, so that none of them removes it");
    seed.add_option("--group", raw.values.group, "The group whose users may use it, too (the caller's own)")
        ->type_name("NAME");
    lock.add_subcommand("remove", "Remove the lock, once no process uses it, so that it can be made anew");
    seed.add_option("--mode", raw.mode, "Who may use it, as of a file: 0600, 0660 or 0666 (0660)")->type_name("MODE");
}

std::string commandOf(const CLI::App& app)
{
    std::string words;
    for (const CLI::App* level = &app; !level->get_subcommands().empty();) {
        level = level->get_subcommands().front();
        words += (words.empty() ? "" : " ") + level->get_name();
    }
    return words;
}

} // namespace

ParseResult parseArguments(int argc, const char* const* argv, std::ostream& out, std::ostream& err)
{
    RawArguments raw;
    CLI::App app("Authenticates the accessory coprocessor on an I2C bus, and shows what it does.", "authchip");
    addCommonOptions(app, raw);
    addCommands(app, raw);
    addLockCommands(app, raw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) { // --help and --version
        app.exit(request, out, err);
        return {std::nullopt, ExitStatus::Success};
    } catch (const CLI::ParseError& error) {
        err << "authchip: " << escapedLines(describe(error)) << "\n  next: 'authchip --help' lists the commands and options.\n";
        return {std::nullopt, ExitStatus::Usage};
    }
    raw.values.command = commandOf(app);
    return {interpret(raw), ExitStatus::Success};
}

} // namespace VorelKestrel::Tool
