#include "tool/commands/commands.h"

#include <cerrno>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>

#include <openssl/rand.h>

#include "authchipdriver/registermap.h"
#include "tool/chip/certificate.h"
#include "tool/chip/chip.h"
#include "tool/chip/verification.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kStandardOutput[] = "-";

std::string inBytes(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string describe(const ChipLocation& location)
{
    return location.device + ", address " + toHex(static_cast<std::uint32_t>(location.address), 2);
}

Report startReport(const Arguments& arguments)
{
    Report report;
    report.text("device", describe(arguments.location))
        .json("device", arguments.location.device)
        .json("address", arguments.location.address);
    return report;
}

void addProtocol(Report& report, const Chip& chip)
{
    report
        .text("protocol",
              std::string(chip.generation().protocol) + ", device version " + std::to_string(chip.deviceVersion()))
        .json("protocol", chip.generation().protocol)
        .json("deviceVersion", chip.deviceVersion());
}

void storeFile(const std::string& path, const std::string& content)
{
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    file << content << std::flush;
    if (!file)
        throw Failure(ExitStatus::Failed, "write " + path, describeSystemError(errno),
                      "Name a file that can be written, in a folder that exists.");
}

std::string asText(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

/// Puts @p content where -o says. Returns whether the report is still wanted: not if the content took its place.
bool store(const std::string& content, const Arguments& arguments, std::ostream& out)
{
    if (arguments.outputFile == kStandardOutput) {
        out << content;
        return false;
    }
    if (!arguments.outputFile.empty())
        storeFile(arguments.outputFile, content);
    return true;
}

Certificate parse(const Bytes& certificate)
{
    try {
        return Certificate(certificate.data(), certificate.size());
    } catch (const CertificateError& error) {
        throw Failure(ExitStatus::Failed, "parse the " + inBytes(certificate.size()) + " of the chip's certificate",
                      error.what(),
                      "Read it again to rule the bus out; 'authchip certificate -o FILE' stores what the chip holds.");
    }
}

Bytes randomChallenge(const Generation& generation)
{
    Bytes challenge(generation.challengeLength);
    if (RAND_bytes(challenge.data(), static_cast<int>(challenge.size())) != 1)
        throw std::runtime_error("no random numbers");
    return challenge;
}

void requireLength(const Bytes& challenge, const Chip& chip)
{
    const auto& generation = chip.generation();
    if (challenge.size() == generation.challengeLength)
        return;
    throw Failure(ExitStatus::Usage, "sign a challenge of " + inBytes(challenge.size()),
                  "A chip of protocol " + std::string(generation.protocol) + " signs " +
                      inBytes(generation.challengeLength) + ", the length of a " + generation.digest + " digest",
                  "Give " + inBytes(generation.challengeLength) + " (" +
                      std::to_string(2 * generation.challengeLength) +
                      " hexadecimal digits), or none for a random challenge.");
}

void info(const Arguments& arguments, DriverLog& log, std::ostream& out)
{
    Chip chip(arguments.location, log);
    const auto identity = chip.identity();

    auto report = startReport(arguments);
    addProtocol(report, chip);
    report
        .text("spoken by the chip",
              std::to_string(identity.protocolMajorVersion) + "." + std::to_string(identity.protocolMinorVersion))
        .json("protocolMajor", identity.protocolMajorVersion)
        .json("protocolMinor", identity.protocolMinorVersion);
    report.text("firmware version", std::to_string(identity.firmwareVersion))
        .json("firmwareVersion", identity.firmwareVersion);
    report.text("device ID", toHex(identity.deviceId, 8)).json("deviceId", identity.deviceId);
    report.text("longest challenge", inBytes(static_cast<std::size_t>(identity.challengeMaximumLength)))
        .json("challengeMaximumLength", identity.challengeMaximumLength);
    report.text("longest response", inBytes(static_cast<std::size_t>(identity.responseMaximumLength)))
        .json("responseMaximumLength", identity.responseMaximumLength);
    report.text("certificate", inBytes(static_cast<std::size_t>(identity.certificateLength)))
        .json("certificateLength", identity.certificateLength);
    report.print(arguments.json, out);
}

void certificate(const Arguments& arguments, DriverLog& log, std::ostream& out)
{
    const Bytes stored = Chip(arguments.location, log).certificate();
    if (!arguments.pem && !store(asText(stored), arguments, out))
        return;

    const Certificate certificate = parse(stored);
    if (arguments.pem && arguments.outputFile.empty()) {
        out << certificate.pem();
        return;
    }
    if (arguments.pem && !store(certificate.pem(), arguments, out))
        return;

    auto report = startReport(arguments);
    const char* container = certificate.isInContainer() ? "PKCS #7" : "X.509";
    report.text("stored as", container + std::string(" in DER, ") + inBytes(stored.size()))
        .json("container", container)
        .json("length", stored.size());
    report.row("subject", "subject", certificate.subject())
        .row("issuer", "issuer", certificate.issuer())
        .row("serial", "serial", certificate.serial())
        .row("valid from", "notBefore", certificate.notBefore())
        .row("valid until", "notAfter", certificate.notAfter())
        .row("key", "key", certificate.keyDescription())
        .row("SHA-256", "sha256", certificate.sha256());
    report.print(arguments.json, out);
}

void sign(const Arguments& arguments, DriverLog& log, std::ostream& out)
{
    Chip chip(arguments.location, log);
    const Bytes challenge = arguments.challenge ? *arguments.challenge : randomChallenge(chip.generation());
    requireLength(challenge, chip);
    const Bytes signature = chip.sign(challenge);
    if (!store(asText(signature), arguments, out))
        return;

    auto report = startReport(arguments);
    addProtocol(report, chip);
    report.hexRow("challenge", "challenge", challenge).hexRow("signature", "signature", signature);
    report.print(arguments.json, out);
}

void authenticate(const Arguments& arguments, DriverLog& log, std::ostream& out)
{
    Chip chip(arguments.location, log);
    const Certificate certificate = parse(chip.certificate());
    const Bytes challenge = randomChallenge(chip.generation());
    const Bytes signature = chip.sign(challenge);
    const std::string flaw = findFlaw(chip.generation(), certificate.publicKey(), challenge, signature);

    auto report = startReport(arguments);
    addProtocol(report, chip);
    report.row("subject", "subject", certificate.subject())
        .row("issuer", "issuer", certificate.issuer())
        .row("serial", "serial", certificate.serial())
        .row("key", "key", certificate.keyDescription())
        .hexRow("challenge", "challenge", challenge)
        .hexRow("signature", "signature", signature);
    report.text("result", flaw.empty() ? "authentic: the chip holds the key of its certificate" : "NOT AUTHENTIC")
        .json("authentic", flaw.empty());
    report.print(arguments.json, out);
    if (!flaw.empty())
        throw Failure(ExitStatus::NotAuthentic, "verify the chip on " + describe(arguments.location),
                      "Not authentic: " + flaw,
                      "Try again to rule the bus out; if it stays so, do not trust this accessory.");
}

const ACD::Register* findRegister(int number)
{
    for (const auto& reg : ACD::kRegisterMap) {
        if (reg.number == number)
            return &reg;
    }
    return nullptr;
}

int lengthToRead(int number, const Arguments& arguments)
{
    if (arguments.length)
        return *arguments.length;
    const auto* reg = findRegister(number);
    if (reg != nullptr && reg->width > 0)
        return reg->width;
    throw Failure(ExitStatus::Usage, "read register " + toHex(static_cast<std::uint32_t>(number), 2),
                  "Its length is not known", "Give the number of bytes after it.");
}

void listRegisters(const Arguments& arguments, std::ostream& out)
{
    RawChip chip(arguments.location);
    Report report;
    auto rows = nlohmann::ordered_json::array();
    for (const auto& reg : ACD::kRegisterMap) {
        if (reg.width == 0)
            continue;
        const std::string data = toHex(chip.read(reg.number, reg.width));
        report.text(toHex(reg.number, 2) + "  " + reg.name, data);
        rows.push_back({{"register", reg.number}, {"name", reg.name}, {"data", data}});
    }
    report.json("registers", rows);
    report.print(arguments.json, out);
}

void read(const Arguments& arguments, DriverLog& /*log*/, std::ostream& out)
{
    if (!arguments.reg)
        return listRegisters(arguments, out);
    const int length = lengthToRead(*arguments.reg, arguments);
    const Bytes data = RawChip(arguments.location).read(static_cast<std::uint8_t>(*arguments.reg), length);
    Report report;
    report.json("register", *arguments.reg).hexRow("", "data", data);
    report.print(arguments.json, out);
}

void write(const Arguments& arguments, DriverLog& /*log*/, std::ostream& out)
{
    RawChip(arguments.location).write(static_cast<std::uint8_t>(*arguments.reg), arguments.data);
    Report report; // nothing for people: silence means success
    report.json("register", *arguments.reg).json("length", arguments.data.size());
    report.print(arguments.json, out);
}

struct Command
{
    const char* name;
    void (*run)(const Arguments&, DriverLog&, std::ostream&);
};

constexpr Command kCommands[] = {
    {"info", info},   {"certificate", certificate}, {"sign", sign}, {"authenticate", authenticate}, {"read", read},
    {"write", write},
};

} // namespace

void runCommand(const Arguments& arguments, std::ostream& out)
{
    DriverLog log(arguments.verbosity, arguments.logConfig);
    if (arguments.busTimeout)
        setBusTimeout(arguments.location.device, *arguments.busTimeout);
    for (const auto& command : kCommands) {
        if (arguments.command == command.name)
            command.run(arguments, log, out);
    }
}

} // namespace VorelKestrel::Tool
