// The fuzzer is the chip, and chooses what the host calls, with buffers of exactly the size that the interface asks
// for. Built twice: DEVICE_VERSION says which generation of the chip the factory finds.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <abstractionlibrary/debugstdiologger.h>
#include <authchipdriver/authchipfactory.h>

#include "authchipdriver/bustransaction.h"
#include "common/generations.h"
#include "fuzzers/hostilechip.h"
#include "fuzzers/target.h"
#include "tests/support/nowhere.h"

using namespace VorelKestrel::ACD;
using VorelKestrel::AL::DebugStdioLogger;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

constexpr std::uint8_t kDeviceVersion = DEVICE_VERSION;
constexpr bool kIsProtocol30 = VorelKestrel::findGeneration(kDeviceVersion) == &VorelKestrel::kGeneration30;

/// A block of the heap of exactly that size, so that a byte too many is seen; a negative size counts as none.
class Block
{
public:
    explicit Block(int size) : m_data(new U8[size > 0 ? static_cast<std::size_t>(size) : 0]()) {}
    U8* data() const { return m_data.get(); }

private:
    const std::unique_ptr<U8[]> m_data;
};

void require(bool isTrue, const char* what)
{
    if (isTrue)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
}

/// Copies the bytes, so that AddressSanitizer sees one which is not there; a negative length counts as none.
void lookAt(const U8* data, int length)
{
    static std::vector<U8> copy;
    copy.assign(data, data + std::max(0, length));
}

/// Most are what a host would choose, some are not.
int lengthFrom(Input& input)
{
    constexpr int kUsual[] = {0, 1, 20, 31, 32, 33, 64, 127, 128, 129, 907, 1279, 1280, 1281, 1919, 1920, 1921};
    const unsigned choice = input.byte();
    return choice < std::size(kUsual) ? kUsual[choice] : input.word();
}

template<Error (AuthChipDriver::*query)(U8&)>
void readVersion(AuthChipDriver& driver, Input& /*input*/)
{
    U8 version = 0;
    (driver.*query)(version);
}

void readDeviceId(AuthChipDriver& driver, Input& /*input*/)
{
    U32 id = 0;
    driver.getDeviceID(id);
}

void sign(AuthChipDriver& driver, Input& input)
{
    const int challengeLength = input.byte() < 0x80 ? 32 : lengthFrom(input);
    const Block challenge(challengeLength);
    U8* response = nullptr;
    int responseLength = -1;
    const Error error = driver.newSignature(challenge.data(), challengeLength, &response, &responseLength);
    require(error == Success || response == nullptr, "a failure leaves no block");
    if (error == Success) {
        require(responseLength >= 0 && responseLength <= 0xffff, "the length of an answer is a 16-bit number");
        lookAt(response, responseLength);
    }
    std::free(response);
}

/// Protocol 3.0 alone allows it.
void signIntoNothing(AuthChipDriver& driver, Input& input)
{
    if (!kIsProtocol30)
        return;
    const Block challenge(32);
    int responseLength = input.byte();
    require(driver.newSignature(challenge.data(), 32, nullptr, &responseLength) == ErrorInvalid, "null is refused");
}

void readCertificateLength(AuthChipDriver& driver, Input& /*input*/)
{
    int length = -1;
    driver.getAccessoryCertificateDataLength(length);
    require(length >= 0 && length <= 0xffff, "the length of a certificate is a 16-bit number");
}

void readCertificateOf(AuthChipDriver& driver, int wanted)
{
    const Block certificate(wanted);
    int length = wanted;
    const Error error = driver.getAccessoryCertificateData(certificate.data(), length);
    require(length <= wanted, "no more bytes come than there is room for");
    require(error != Success || length == wanted, "a success is complete");
    lookAt(certificate.data(), length);
}

void readCertificate(AuthChipDriver& driver, Input& input)
{
    readCertificateOf(driver, lengthFrom(input));
}

/// As hosts do: the chip says how long the buffer will be.
void readCertificateAsLongAsTheChipSays(AuthChipDriver& driver, Input& /*input*/)
{
    int length = 0;
    if (driver.getAccessoryCertificateDataLength(length) == Success)
        readCertificateOf(driver, length);
}

template<void (AuthChipDriver::*limit)(int&)>
void askForALimit(AuthChipDriver& driver, Input& /*input*/)
{
    int length = 0;
    (driver.*limit)(length);
    require(length > 0, "a limit is a length");
}

/// A negative length is refused by the system, and no byte is touched for it.
int rawLengthFrom(Input& input)
{
    const int length = lengthFrom(input);
    return input.byte() == 0xff ? -length : length;
}

void rawRead(AuthChipDriver& driver, Input& input)
{
    const U8 reg = input.byte();
    const int length = rawLengthFrom(input);
    const Block data(length);
    lookAt(data.data(), driver.rawRead(reg, data.data(), length));
}

void rawWrite(AuthChipDriver& driver, Input& input)
{
    const U8 reg = input.byte();
    const int length = rawLengthFrom(input);
    const Block data(length);
    driver.rawWrite(reg, data.data(), length);
}

/// Only the low eight bits are the register.
int registerFrom(Input& input)
{
    const auto reg = static_cast<int>(input.word());
    return (reg & 0x8000) != 0 ? -reg : reg;
}

template<typename Value, Error (AuthChipDriver::*read)(int, Value&)>
void readValue(AuthChipDriver& driver, Input& input)
{
    const int reg = registerFrom(input);
    const BusTransaction transaction; // the helper leaves it to its caller
    Value value = 0;
    (driver.*read)(reg, value);
}

void writeByte(AuthChipDriver& driver, Input& input)
{
    const int reg = registerFrom(input);
    const BusTransaction transaction;
    driver.writeByte(reg, input.byte());
}

void writeWord(AuthChipDriver& driver, Input& input)
{
    const int reg = registerFrom(input);
    const BusTransaction transaction;
    driver.writeWord(reg, input.word());
}

void writeDWord(AuthChipDriver& driver, Input& input)
{
    const int reg = registerFrom(input);
    const BusTransaction transaction;
    const U32 high = input.word();
    driver.writeDWord(reg, static_cast<int>((high << 16U) | input.word()));
}

using Operation = void(AuthChipDriver& driver, Input& input);

// The order is that of the corpus: what comes new comes last.
constexpr Operation* kOperations[] = {
    readVersion<&AuthChipDriver::getDeviceVersion>,
    readVersion<&AuthChipDriver::getFirmwareVersion>,
    readVersion<&AuthChipDriver::getAuthenticationProtocolMajorVersion>,
    readVersion<&AuthChipDriver::getAuthenticationProtocolMinorVersion>,
    readDeviceId,
    sign,
    signIntoNothing,
    readCertificateLength,
    readCertificate,
    readCertificateAsLongAsTheChipSays,
    askForALimit<&AuthChipDriver::getChallengeResponseDataMaximumLength>,
    askForALimit<&AuthChipDriver::getChallengeDataMaximumLength>,
    rawRead,
    rawWrite,
    readValue<U8, &AuthChipDriver::readByte>,
    readValue<U16, &AuthChipDriver::readWord>,
    readValue<U32, &AuthChipDriver::readDWord>,
    writeByte,
    writeWord,
    writeDWord,
};

/// Every line is built, so that what the chip says goes through the logs as well, and goes nowhere.
void setLogs(bool speak)
{
    DebugStdioLogger::getInstance("Wexfordmallow")->setLogLevel(speak ? 6 : 0);
    log4cplus::Logger::getInstance("Wexfordmallow")
        .setLogLevel(speak ? log4cplus::TRACE_LOG_LEVEL : log4cplus::OFF_LOG_LEVEL);
}

/// What lives as long as the process: the chip, and the driver that the factory found for it.
struct Bench
{
    Bench()
    {
        auto logger = log4cplus::Logger::getInstance("Wexfordmallow");
        logger.setAdditivity(false);
        logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        setLogs(false);
        constexpr std::uint8_t kDetection[] = {0, 0, kDeviceVersion};
        Input input(kDetection, sizeof(kDetection));
        chip.obeys(&input);
        driver = AuthChipFactory::getAuthChipDriverInstance(HostileChip::kPath, HostileChip::kAddress);
        require(driver != nullptr, "the factory finds the chip");
        chip.operationIsOver();
        chip.obeys(nullptr);
    }

    Nowhere console;
    HostileChip chip;
    AuthChipDriver* driver; // the factory's
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length)
{
    static Bench bench;
    Input input(data, length);
    bench.chip.obeys(&input);
    setLogs(input.byte() % 2 != 0);
    while (!input.hasEnded()) {
        kOperations[input.byte() % std::size(kOperations)](*bench.driver, input);
        bench.chip.operationIsOver();
    }
    bench.chip.obeys(nullptr);
    return 0;
}
