#include "tool/chip/librarychip.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include <abstractionlibrary/globalmutex.h>
#include <authchipdriver/authchipdriver.h>
#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/i2c.h>

#include "authchipdriver/bustransaction.h"
#include "common/hex.h"
#include "tool/chip/advice.h"
#include "tool/chip/i2cnode.h"

namespace VorelKestrel::Tool {
namespace {

using namespace ACD;

constexpr char kRetry[] = "Try again; if it stays so, look at the bus clock, the pull-ups and the chip's supply.";
constexpr char kSignAgain[] = "Try again; if it stays so, reset the chip. -vv shows every access to it.";

struct FreeBlock
{
    void operator()(AL::U8* block) const { std::free(block); }
};

std::string at(const ChipLocation& location)
{
    return toHex(static_cast<std::uint32_t>(location.address), 2) + " on " + location.device;
}

std::string describe(const DriverComplaint& complaint, Error error)
{
    std::string text = complaint.text;
    if (text.empty())
        text = error == ErrorI2C ? "The bus failed" : "The chip gave a status or length that is not acceptable";
    if (error == ErrorI2C && complaint.systemError != 0)
        text += "; the bus said: " + describeSystemError(complaint.systemError);
    if (error == ErrorI2C && isNoAnswer(Step::SetRegister, complaint.systemError))
        text += ", to each of 100 attempts: the chip is still busy after a second, or gone";
    return text;
}

/// For programs.
const char* causeOf(const DriverComplaint& complaint, Error error)
{
    if (error != ErrorI2C)
        return "wrong status";
    if (complaint.text.rfind("Invalid challenge length returned", 0) == 0)
        return "wrong length";
    if (complaint.systemError == 0)
        return "short read";
    // Deliberate: no message asks whether the chip is busy or gone; a capture has none there to answer from.
    if (isNoAnswer(Step::SetRegister, complaint.systemError))
        return "chip busy";
    return causeOfRefusal(Step::SetRegister, complaint.systemError);
}

/// The page at which a certificate ended. @p received  what the driver reports: the sum of what its reads returned, of
/// which the last is in its complaint: -1 of a failed read, or what came of the page.
int failedPage(int received, const std::string& complaint)
{
    constexpr char kLast[] = "Read failed: read=";
    const auto at = complaint.find(kLast);
    const int last = at == std::string::npos ? 0 : std::atoi(complaint.c_str() + at + sizeof(kLast) - 1);
    return (received - last) / kCertificatePageSize + 1;
}

/// The factory's driver.
class LibraryChip : public Chip
{
public:
    /// @p driver  the factory's
    LibraryChip(ChipLocation location, LibraryLog& log, AuthChipDriver& driver);

    const Generation& generation() const override { return *m_generation; }
    std::uint8_t deviceVersion() const override { return m_deviceVersion; }
    ChipIdentity identity() override;
    Bytes certificate() override;
    Bytes sign(const Bytes& challenge) override;

private:
    void requireFittingCertificate(int length) const;
    /// What the chip announced and could not deliver is too long or too short to be an answer.
    void requireFittingAnswer(ACD::Error error, int length) const;
    void check(ACD::Error error, const char* tried, const char* next);

    const ChipLocation m_location;
    LibraryLog& m_log;
    AuthChipDriver* m_driver;                 // the factory's; never null
    const Generation* m_generation = nullptr; // never null once constructed
    std::uint8_t m_deviceVersion = 0;
};

LibraryChip::LibraryChip(ChipLocation location, LibraryLog& log, AuthChipDriver& driver)
    : m_location(std::move(location)), m_log(log), m_driver(&driver)
{
    m_log.forget();
    check(m_driver->getDeviceVersion(m_deviceVersion), "read the device version of", kRetry);
    m_generation = findGeneration(m_deviceVersion);
    if (m_generation == nullptr) // the library knows a device version that the table of generations lacks
        throw explainVersion(m_deviceVersion, m_location);
}

ChipIdentity LibraryChip::identity()
{
    ChipIdentity identity;
    identity.deviceVersion = m_deviceVersion;
    m_log.forget();
    check(m_driver->getFirmwareVersion(identity.firmwareVersion), "read the firmware version of", kRetry);
    check(m_driver->getAuthenticationProtocolMajorVersion(identity.protocolMajorVersion),
          "read the protocol's major version from", kRetry);
    check(m_driver->getAuthenticationProtocolMinorVersion(identity.protocolMinorVersion),
          "read the protocol's minor version from", kRetry);
    check(m_driver->getDeviceID(identity.deviceId), "read the device ID of", kRetry);
    check(m_driver->getAccessoryCertificateDataLength(identity.certificateLength), "read the certificate's length from",
          kRetry);
    m_driver->getChallengeDataMaximumLength(identity.challengeMaximumLength);
    m_driver->getChallengeResponseDataMaximumLength(identity.responseMaximumLength);
    return identity;
}

Bytes LibraryChip::certificate()
{
    m_log.forget();
    int length = 0;
    check(m_driver->getAccessoryCertificateDataLength(length), "read the certificate's length from", kRetry);
    requireFittingCertificate(length);
    Bytes certificate(static_cast<std::size_t>(length));
    const Error error = m_driver->getAccessoryCertificateData(certificate.data(), length);
    check(error,
          ("read page " + std::to_string(failedPage(length, m_log.complaint().text)) + " of the certificate from")
              .c_str(),
          kRetry);
    return certificate;
}

void LibraryChip::requireFittingCertificate(int length) const
{
    const int longest = m_generation->certificatePages * kCertificatePageSize;
    if (length > longest)
        throw Failure("wrong length", "read the certificate of the chip at " + at(m_location),
                      "The chip reports " + std::to_string(length) + " bytes (register 0x30); protocol " +
                          m_generation->protocol + " has room for " + std::to_string(longest),
                      kRetry);
}

void LibraryChip::requireFittingAnswer(Error error, int length) const
{
    const auto expected = static_cast<int>(m_generation->responseLength);
    if (error != ErrorI2C || length == 0 || length == expected)
        return;
    throw Failure("wrong length", "have a challenge signed by the chip at " + at(m_location),
                  "The chip reports an answer of " + std::to_string(length) + " bytes (register 0x11); protocol " +
                      m_generation->protocol + " has " + std::to_string(expected),
                  kSignAgain);
}

Bytes LibraryChip::sign(const Bytes& challenge)
{
    m_log.forget();
    AL::U8* response = nullptr;
    int length = 0;
    const Error error =
        m_driver->newSignature(challenge.data(), static_cast<int>(challenge.size()), &response, &length);
    const std::unique_ptr<AL::U8, FreeBlock> block(response);
    requireFittingAnswer(error, length);
    check(error, "have a challenge signed by", kSignAgain);
    return {response, response + length};
}

void LibraryChip::check(Error error, const char* tried, const char* next)
{
    if (error == Success)
        return;
    DriverComplaint complaint = m_log.complaint();
    if (complaint.text.empty())
        complaint.systemError = errno; // the version queries say nothing to the drivers' log
    throw Failure(causeOf(complaint, error), std::string(tried) + " the chip at " + at(m_location),
                  describe(complaint, error), next)
        .withSystemError(complaint.systemError);
}

/// The library's bus.
class LibraryRawChip : public RawChip
{
public:
    explicit LibraryRawChip(ChipLocation location);

    Bytes read(std::uint8_t reg, int length) override;
    void write(std::uint8_t reg, const Bytes& data) override;

private:
    const ChipLocation m_location;
};

LibraryRawChip::LibraryRawChip(ChipLocation location) : m_location(std::move(location))
{
    if (i2cInit(m_location.device.c_str(), m_location.address) != 0)
        throw diagnose(m_location);
}

Bytes LibraryRawChip::read(std::uint8_t reg, int length)
{
    Bytes data(static_cast<std::size_t>(length));
    const BusTransaction transaction;
    const int result = i2cRead(reg, length, data.data());
    const int error = errno;
    if (result == length)
        return data;
    // The register number was refused, unless an answer came at all; an answer of 0 bytes looks the same.
    if (result == 0)
        throw explainRefusal(Step::SetRegister, error, m_location);
    if (result < 0)
        throw explainRefusal(Step::ReadRegister, error, m_location);
    throw Failure("short read",
                  "read " + std::to_string(length) + " bytes from register " + toHex(reg, 2) + " of the chip at " +
                      at(m_location),
                  std::to_string(result) + " bytes came",
                  "Ask for fewer bytes, or look at the bus controller's limits.");
}

void LibraryRawChip::write(std::uint8_t reg, const Bytes& data)
{
    const auto length = static_cast<int>(data.size());
    const BusTransaction transaction;
    const int result = i2cWrite(reg, length, data.data());
    const int error = errno;
    if (result == length)
        return;
    AL::U8 version = 0;
    if (isNoAnswer(Step::SetRegister, error) && i2cRead(kRegisterDeviceVersion, 1, &version) == 1)
        throw Failure("register refused", "write to register " + toHex(reg, 2) + " of the chip at " + at(m_location),
                      "The chip answers, and refused this message 100 times",
                      "The register may be read-only, or take another number of bytes.");
    throw explainRefusal(Step::SetRegister, error, m_location);
}

/// Takes the steps of the factory, one try for each. Throws Failure for the first that is refused.
VersionAnswer requireChip(const ChipLocation& location)
{
    const ScopedDescriptor node = openNode(location.device);
    if (node.get() < 0)
        throw explainRefusal(Step::OpenNode, errno, location);
    if (!selectAddress(node, location.address))
        throw explainRefusal(Step::SelectAddress, errno, location);
    if (lacksPlainI2c(node))
        throw explainRefusal(Step::SetRegister, EOPNOTSUPP, location);

    AL::GlobalMutex bus; // the one lock of all processes that use the library
    bus.lock();
    const VersionAnswer answer = askVersion(node);
    bus.unlock();
    requireDriver(answer, location);
    return answer;
}

} // namespace

Failure diagnose(const ChipLocation& location)
{
    try {
        const VersionAnswer answer = requireChip(location);
        return {"late answer", "find a driver for the chip at " + at(location),
                "It did not answer before, and does now (device version " + std::to_string(answer.deviceVersion) + ")",
                "Try again. If it happens often, look for a loose contact or a slow reset."};
    } catch (const Failure& failure) {
        return failure;
    }
}

LibraryChipAccess::LibraryChipAccess(ChipLocation location, LibraryLog& log)
    : m_location(std::move(location)), m_log(log)
{}

std::unique_ptr<Chip> LibraryChipAccess::detect()
{
    // A factory that fails leaves the node open. It is asked again only once the chip answers: descriptors are few.
    if (m_hasFailed)
        requireChip(m_location);
    AuthChipDriver* driver = AuthChipFactory::getAuthChipDriverInstance(m_location.device.c_str(), m_location.address);
    m_hasFailed = driver == nullptr;
    if (m_hasFailed)
        throw diagnose(m_location);
    return std::make_unique<LibraryChip>(m_location, m_log, *driver);
}

std::unique_ptr<RawChip> LibraryChipAccess::open()
{
    return std::make_unique<LibraryRawChip>(m_location);
}

} // namespace VorelKestrel::Tool
