// The fuzzer is the chip, and chooses what the host calls, with buffers of exactly the size that the interface asks
// for. Built twice: DEVICE_VERSION says which generation of the chip the factory finds.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <malloc.h>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <abstractionlibrary/debugstdiologger.h>
#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/i2c.h>

#include "authchipdriver/bustransaction.h"
#include "common/generations.h"
#include "fuzzers/hostilechip.h"
#include "fuzzers/target.h"
#include "tests/support/nowhere.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::DebugStdioLogger;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

// NOLINTNEXTLINE(*-reserved-identifier): the sanitizers' name
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* block) __attribute__((weak));

namespace {

constexpr std::uint8_t kDeviceVersion = DEVICE_VERSION;
// By name: with UndefinedBehaviorSanitizer, g++ takes no comparison of two addresses for a constant.
constexpr std::string_view kProtocol = VorelKestrel::findGeneration(kDeviceVersion)->protocol;
constexpr bool kIsProtocol30 = kProtocol == VorelKestrel::kGeneration30.protocol;
constexpr int kMostMessages = 2 * (kIsProtocol30 ? 10 : 15); // a certificate of all pages

/// A block of the heap of exactly that size, so that a byte too many is seen; a negative size counts as none.
class Block
{
public:
    explicit Block(int size) : m_data(new U8[size > 0 ? static_cast<std::size_t>(size) : 0]()) {}
    U8* data() const { return m_data.get(); }

private:
    const std::unique_ptr<U8[]> m_data;
};

HostileChip* g_chip = nullptr; // that the operations meet

// In place of the caller's variables before an operation.
constexpr U8 kUntouchedByte = 0xa5;
constexpr U32 kUntouched = 0xa5a5a5a5;
constexpr int kUntouchedLength = 0x5a5a5a5a;

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

/// What the chip delivered last, the first byte the most significant.
U32 numberRead()
{
    U32 number = 0;
    for (const unsigned char byte : g_chip->lastRead())
        number = number << 8U | byte;
    return number;
}

/// A value that an operation reads is the chip's if all is well, and untouched otherwise.
template<typename Value>
void requireReadValue(Error error, Value value, Value untouched)
{
    require(error == Success || error == ErrorI2C, "a read fails on the bus or not at all");
    if (error == Success)
        require(value == static_cast<Value>(numberRead()) && g_chip->lastRead().size() == sizeof(Value),
                "what is read is what the chip said");
    else
        require(value == untouched, "a failure leaves the value alone");
}

void requireNoAccess()
{
    require(g_chip->messages() == 0, "without a transaction the bus is left alone");
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
    U8 version = kUntouchedByte;
    const Error error = (driver.*query)(version);
    requireReadValue(error, version, kUntouchedByte);
}

void readDeviceId(AuthChipDriver& driver, Input& /*input*/)
{
    U32 id = kUntouched;
    const Error error = driver.getDeviceID(id);
    requireReadValue(error, id, kUntouched);
}

void requireBlock(const U8* block, int length)
{
    const auto size = static_cast<std::size_t>(length);
    if (size == 0)
        return; // nothing is read, and a refusal of the register is not told apart from that
    require(g_chip->lastRead().size() == size, "the answer is as long as the chip said");
    require(std::equal(block, block + size, g_chip->lastRead().begin()), "the answer is the chip's");
    // A sanitizer knows the requested size; the C library rounds it up.
    if (__sanitizer_get_allocated_size != nullptr)
        require(__sanitizer_get_allocated_size(block) == std::max<std::size_t>(1, size),
                "the block is as long as that");
    else
        require(malloc_usable_size(const_cast<U8*>(block)) >= size, "the block has room for the answer");
}

/// What an operation that failed to sign has left in the caller's variables.
struct Leftovers
{
    bool isResponseUntouched;
    bool isResponseNull;
    int length;
};

void requireOutputsOfFailure(Error error, const Leftovers& left)
{
    constexpr int kResponse = 0x12;
    constexpr int kControlAndStatus = 0x10;
    const int reg = g_chip->lastRegister();
    const bool isRefused = g_chip->refusesTransactions();
    const bool leavesPointer = isRefused || (!kIsProtocol30 && reg != kResponse);
    require(leavesPointer ? left.isResponseUntouched : left.isResponseNull,
            "the caller's pointer is as the table says");
    const bool isLengthKnown = reg == kResponse;
    require(isLengthKnown ? left.length >= 0 && left.length <= 0xffff : left.length == kUntouchedLength,
            "the caller's length is as the table says");
    require(error == ErrorI2C || reg == kControlAndStatus, "only the status makes a request invalid");
    if (isRefused)
        requireNoAccess();
}

void sign(AuthChipDriver& driver, Input& input)
{
    const int challengeLength = input.byte() < 0x80 ? 32 : lengthFrom(input);
    const Block challenge(challengeLength);
    U8 untouched = 0;
    U8* response = &untouched;
    int length = kUntouchedLength;
    const Error error = driver.newSignature(challenge.data(), challengeLength, &response, &length);
    if (error != Success) {
        requireOutputsOfFailure(error, {response == &untouched, response == nullptr, length});
        return;
    }
    require(length >= 0 && length <= 0xffff, "the length of an answer is a 16-bit number");
    require(!kIsProtocol30 || challengeLength == 32, "a challenge of another length is refused");
    requireBlock(response, length);
    std::free(response);
}

/// Protocol 3.0 alone allows it.
void signIntoNothing(AuthChipDriver& driver, Input& /*input*/)
{
    if (!kIsProtocol30)
        return;
    const Block challenge(32);
    int length = kUntouchedLength;
    const Error error = driver.newSignature(challenge.data(), 32, nullptr, &length);
    require(error == (g_chip->refusesTransactions() ? ErrorI2C : ErrorInvalid), "null is refused");
    require(length == kUntouchedLength, "the caller's length is left alone");
    requireNoAccess();
}

void readCertificateLength(AuthChipDriver& driver, Input& /*input*/)
{
    int length = kUntouchedLength;
    const Error error = driver.getAccessoryCertificateDataLength(length);
    if (g_chip->refusesTransactions()) {
        require(error == ErrorI2C && length == kUntouchedLength, "without a transaction the length is left alone");
        return;
    }
    require(length >= 0 && length <= 0xffff, "the length of a certificate is a 16-bit number");
    require(error != Success || static_cast<U32>(length) == numberRead(), "the length is the chip's");
}

void readCertificateOf(AuthChipDriver& driver, int wanted)
{
    const Block certificate(wanted);
    int length = wanted;
    const Error error = driver.getAccessoryCertificateData(certificate.data(), length);
    if (g_chip->refusesTransactions()) {
        require(error == ErrorI2C && length == wanted, "without a transaction the length is left alone");
        requireNoAccess();
        return;
    }
    require(length == g_chip->sumOfReads(), "the length is what has come");
    require((error == Success) == (length == wanted), "a success is complete, and what is complete is a success");
    lookAt(certificate.data(), length);
}

void readCertificate(AuthChipDriver& driver, Input& input)
{
    readCertificateOf(driver, lengthFrom(input));
}

/// Like hosts do: the chip decides the length of the buffer.
void readCertificateAsLongAsTheChipSays(AuthChipDriver& driver, Input& /*input*/)
{
    int length = 0;
    if (driver.getAccessoryCertificateDataLength(length) != Success)
        return;
    g_chip->operationIsOver();
    readCertificateOf(driver, length);
}

template<void (AuthChipDriver::*limit)(int&), int expected>
void askForALimit(AuthChipDriver& driver, Input& /*input*/)
{
    int length = kUntouchedLength;
    (driver.*limit)(length);
    require(length == expected, "a limit is the generation's");
    requireNoAccess();
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
    const int result = driver.rawRead(reg, data.data(), length);
    require(result == g_chip->sumOfReads(), "the result is what has come");
    lookAt(data.data(), result);
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
    constexpr auto kValue = static_cast<Value>(kUntouched);
    Value value = kValue;
    const Error error = (driver.*read)(reg, value);
    requireReadValue(error, value, kValue);
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

/// The factory's driver, which has no way back to none.
AuthChipDriver*& driverOfTheFactory()
{
    static void* const member =
        dlsym(RTLD_DEFAULT, "_ZN12VorelKestrel3ACD15AuthChipFactory24m_authChipDriverInstanceE");
    require(member != nullptr, "the library exports the factory's driver");
    return *static_cast<AuthChipDriver**>(member);
}

/// Operations need an open node.
void openAgain()
{
    g_chip->operationIsOver();
    if (g_chip->isOpen())
        return;
    Input nothing(nullptr, 0);
    g_chip->obeys(&nothing);
    require(i2cInit(HostileChip::kDevice, HostileChip::kAddress) == 0, "a node that can be opened is");
}

void detect(AuthChipDriver& driver, Input& input)
{
    driverOfTheFactory() = nullptr;
    const std::unique_ptr<AuthChipDriver> found(
        AuthChipFactory::getAuthChipDriverInstance(HostileChip::kDevice, HostileChip::kAddress));
    const U32 version = numberRead();
    const bool isKnown = version <= 0xff && VorelKestrel::findGeneration(static_cast<U8>(version)) != nullptr;
    require(found == nullptr || isKnown, "a driver is for a version that is known");
    require(found != nullptr || !isKnown || g_chip->lastRead().size() != 1, "a version that is known has a driver");
    driverOfTheFactory() = &driver;
    openAgain();
    g_chip->obeys(&input);
}

void open(AuthChipDriver& /*driver*/, Input& input)
{
    const bool isOpen = i2cInit(HostileChip::kDevice, HostileChip::kAddress) == 0;
    require(isOpen == g_chip->isOpen(), "a node whose address is refused is closed");
    openAgain();
    g_chip->obeys(&input);
}

void close(AuthChipDriver& /*driver*/, Input& input)
{
    i2cClose();
    require(!g_chip->isOpen(), "a closed node is closed");
    openAgain();
    g_chip->obeys(&input);
}

void operateWithoutTransaction(AuthChipDriver& driver, Input& input);

using FuzzedCall = void(AuthChipDriver& driver, Input& input);

// The order is that of the corpus: what comes new comes last.
constexpr FuzzedCall* kOperations[] = {
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
    askForALimit<&AuthChipDriver::getChallengeResponseDataMaximumLength, kIsProtocol30 ? 64 : 128>,
    askForALimit<&AuthChipDriver::getChallengeDataMaximumLength, kIsProtocol30 ? 32 : 20>,
    rawRead,
    rawWrite,
    readValue<U8, &AuthChipDriver::readByte>,
    readValue<U16, &AuthChipDriver::readWord>,
    readValue<U32, &AuthChipDriver::readDWord>,
    writeByte,
    writeWord,
    writeDWord,
    detect,
    open,
    close,
    operateWithoutTransaction,
};

/// Those that begin a transaction themselves and do nothing without it.
constexpr std::size_t kTransactions = 10;

void operateWithoutTransaction(AuthChipDriver& driver, Input& input)
{
    g_chip->refuseTransactions(true);
    kOperations[input.byte() % kTransactions](driver, input);
}

/// Every log line is formatted, so that the chip's data also goes through the logs, and then dropped.
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
        constexpr std::uint8_t kDetection[] = {0, 0, 0, 0, kDeviceVersion}; // opened, selected, asked
        Input input(kDetection, sizeof(kDetection));
        chip.obeys(&input);
        g_chip = &chip;
        driver = AuthChipFactory::getAuthChipDriverInstance(HostileChip::kDevice, HostileChip::kAddress);
        require(driver != nullptr, "the factory finds the chip");
        chip.operationIsOver();
        chip.obeys(nullptr);
    }

    Nowhere console;
    HostileChip chip{kMostMessages};
    AuthChipDriver* driver; // the factory's
};

} // namespace

// In place of the library's own, which calls them through its exported names.
namespace VorelKestrel { namespace ACD {

bool i2cStartTransaction()
{
    static auto* const start =
        reinterpret_cast<bool (*)()>(dlsym(RTLD_NEXT, "_ZN12VorelKestrel3ACD19i2cStartTransactionEv"));
    return (g_chip == nullptr || !g_chip->refusesTransactions()) && start();
}

}} // namespace VorelKestrel::ACD

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
