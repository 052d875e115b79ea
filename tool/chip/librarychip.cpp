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
#include "authchipdriver/registermap.h"
#include "common/bits.h"
#include "common/hex.h"
#include "common/numbers.h"
#include "common/patience.h"
#include "tool/chip/advice.h"
#include "tool/chip/driverlines.h"
#include "tool/chip/i2cnode.h"
#include "tool/chip/rereading.h"

namespace VorelKestrel::Tool {
namespace {

using namespace ACD;

constexpr char kRetry[] = "Try again. If it fails again, check the bus clock, the pull-ups and the chip's supply.";
constexpr char kSignAgain[] =
    "Try again. If it fails again, run 'authchip doctor', which tells why. -vv shows every message to the chip.";

constexpr char kFindTheSilent[] = "Try again. If it fails again, run 'authchip doctor': it tells a chip that is busy "
                                  "from one that refuses this register\n"
                                  "and from one that is gone, because it lost its supply or is held in reset.";

struct FreeBlock
{
    void operator()(AL::U8* block) const { std::free(block); }
};

std::string at(const ChipLocation& location)
{
    return addressInHex(location.address) + " on " + location.device;
}

std::string describe(const DriverComplaint& complaint, Error error)
{
    std::string text = complaint.text;
    if (text.empty())
        text = error == ErrorI2C ? "The bus failed" : "The chip returned an invalid status or length";
    if (error == ErrorI2C && complaint.systemError != 0)
        text += "; the bus reported: " + describeSystemError(complaint.systemError);
    if (error == ErrorI2C && isNoAnswer(Step::SetRegister, complaint.systemError))
        text += ", to each of " + std::to_string(kAttempts) + " attempts: the chip is still busy after " +
                std::to_string(kPatience.count()) + " ms, or gone";
    return text;
}

/// The step that failed at a chip that was detected before. Its adapter moves plain messages, so EOPNOTSUPP is about
/// this message's length.
Step stepOf(int error)
{
    return error == EOPNOTSUPP ? Step::ReadRegister : Step::SetRegister;
}

/// The cause, for programs.
const char* causeOf(const DriverComplaint& complaint, Error error)
{
    if (error != ErrorI2C)
        return "wrong status";
    if (complaint.text.rfind(kLineOfWrongLength, 0) == 0)
        return "wrong length";
    if (complaint.systemError == 0)
        return "short read";
    // Deliberate: no further message finds out whether the chip is busy or gone; a replayed capture could not answer
    // it.
    if (isNoAnswer(Step::SetRegister, complaint.systemError))
        return "chip busy";
    return causeOfRefusal(stepOf(complaint.systemError), complaint.systemError);
}

/// The page that failed. @p received is the sum of what the driver's reads returned; @p complaint has the last of these
/// results: -1 of a failed read, or the bytes that a short read delivered.
int failedPage(int received, const std::string& complaint)
{
    const auto at = complaint.find(kLineOfFailedPage);
    const int last = at == std::string::npos ? 0 : std::atoi(complaint.c_str() + at + sizeof(kLineOfFailedPage) - 1);
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
    /// Refuses a length that no certificate of the protocol has, after a second look at it.
    [[noreturn]] void refuseLength(int length);
    /// Refuses the answer length of a failed signing if no answer of the protocol has it.
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
    if (m_generation == nullptr) // the library has a driver, but the table of generations has no row
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
    if (length > m_generation->certificatePages * kCertificatePageSize)
        refuseLength(length);
    Bytes certificate(static_cast<std::size_t>(length));
    const Error error = m_driver->getAccessoryCertificateData(certificate.data(), length);
    check(error,
          ("read page " + std::to_string(failedPage(length, m_log.complaint().text)) + " of the certificate from")
              .c_str(),
          kRetry);
    return certificate;
}

void LibraryChip::refuseLength(int length)
{
    const std::string tried = "read the certificate of the chip at " + at(m_location);
    const int longest = m_generation->certificatePages * kCertificatePageSize;
    int again = 0;
    if (m_driver->getAccessoryCertificateDataLength(again) == Success && again <= longest) {
        const auto difference =
            findDifferenceOf("Its length (register 0x30)", bigEndian16(static_cast<std::size_t>(length)),
                             bigEndian16(static_cast<std::size_t>(again)));
        throw Failure(difference->cause, tried, difference->found, difference->next);
    }
    throw Failure("wrong length", tried,
                  "The chip reports " + inBytes(static_cast<std::size_t>(length)) + " (register 0x30); protocol " +
                      m_generation->protocol + " has room for " + std::to_string(longest),
                  kRetry);
}

void LibraryChip::requireFittingAnswer(Error error, int length) const
{
    const auto expected = static_cast<int>(m_generation->responseLength);
    if (error != ErrorI2C || length == 0 || length == expected)
        return;
    throw Failure("wrong length", "have a challenge signed by the chip at " + at(m_location),
                  "The chip reports an answer of " + inBytes(static_cast<std::size_t>(length)) +
                      " (register 0x11); protocol " + m_generation->protocol + " has " + std::to_string(expected),
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
        complaint.systemError = errno; // the version queries do not use the drivers' log
    std::string advice = next;
    if (error == ErrorI2C && complaint.systemError == EOPNOTSUPP)
        advice = explainRefusal(Step::ReadRegister, EOPNOTSUPP, m_location).next();
    else if (error == ErrorI2C && isNoAnswer(Step::SetRegister, complaint.systemError))
        advice = kFindTheSilent;
    throw Failure(causeOf(complaint, error), std::string(tried) + " the chip at " + at(m_location),
                  describe(complaint, error), advice)
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
    // 0 means that the register number was refused; an answer of 0 bytes looks the same.
    if (result == 0)
        throw explainRefusal(Step::SetRegister, error, m_location);
    if (result < 0)
        throw explainRefusal(Step::ReadRegister, error, m_location);
    throw Failure("short read",
                  "read " + inBytes(static_cast<std::size_t>(length)) + " from register " + toHex(reg, 2) +
                      " of the chip at " + at(m_location),
                  "It delivered " + inBytes(static_cast<std::size_t>(result)),
                  "Read fewer bytes, or check the limits of the bus controller.");
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
                      "The chip answers, but refused this message " + std::to_string(kAttempts) + " times",
                      "The register may be read-only, or need another number of bytes.");
    const bool isTooLong = error == EOPNOTSUPP && !lacksPlainI2c(openNode(m_location.device));
    throw explainRefusal(isTooLong ? Step::WriteRegister : Step::SetRegister, error, m_location);
}

/// Repeats the steps of the factory, each once. Throws a Failure for the first that is refused.
VersionAnswer requireChip(const ChipLocation& location)
{
    const ScopedDescriptor node = openNode(location.device);
    if (node.get() < 0)
        throw explainRefusal(Step::OpenNode, errno, location);
    if (!selectAddress(node, location.address))
        throw explainRefusal(Step::SelectAddress, errno, location);
    if (lacksPlainI2c(node))
        throw explainRefusal(Step::SetRegister, EOPNOTSUPP, location);

    AL::GlobalMutex bus; // the lock between all processes that use the library
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
                "It did not answer at first, but does now (device version " + std::to_string(answer.deviceVersion) +
                    ")",
                "Try again. If this happens often, look for a loose contact or a slow reset."};
    } catch (const Failure& failure) {
        return failure;
    }
}

LibraryChipAccess::LibraryChipAccess(ChipLocation location, LibraryLog& log)
    : m_location(std::move(location)), m_log(log)
{}

std::unique_ptr<Chip> LibraryChipAccess::detect()
{
    // Each failed attempt of the factory leaves a descriptor open, so it is called again only when the chip answers.
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
