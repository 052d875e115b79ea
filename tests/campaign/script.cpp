#include "tests/campaign/script.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <random>
#include <sstream>

#include <log4cplus/loglevel.h>

#include "common/patience.h"

using namespace testsupport;

namespace campaign {
namespace {

/// Uses only the standard's generator, whose numbers are the same everywhere, unlike those of the distributions.
class Dice
{
public:
    Dice(std::uint32_t seed, std::uint32_t number)
    {
        std::seed_seq sequence{seed, number};
        m_generator.seed(sequence);
    }

    /// One of 0 to @p count - 1.
    int below(int count) { return static_cast<int>(m_generator() % static_cast<std::uint32_t>(count)); }
    bool onceIn(int count) { return below(count) == 0; }
    int between(int first, int last) { return first + below(last - first + 1); }
    template<typename Value>
    Value oneOf(std::initializer_list<Value> values)
    {
        return values.begin()[below(static_cast<int>(values.size()))];
    }

private:
    std::mt19937 m_generator;
};

/// Results of one system call after the other: mostly good, now and then a run of a failure.
std::vector<int> results(Dice& dice, const std::vector<int>& failures)
{
    const int faultiness = dice.oneOf({2, 4, 8, 16, 32});
    std::vector<int> all;
    for (int access = 0; access < 20; ++access) {
        if (!dice.onceIn(faultiness)) {
            all.push_back(FakeBus::kAsItIs);
            continue;
        }
        const int failure = failures[static_cast<std::size_t>(dice.below(static_cast<int>(failures.size())))];
        using VorelKestrel::kAttempts; // the runs of failures lie around this number
        const int times = dice.oneOf({1, 1, 2, 3, kAttempts - 1, kAttempts, kAttempts, kAttempts + 1});
        all.insert(all.end(), static_cast<std::size_t>(times), failure);
    }
    return all;
}

FakeBus::U8 low(int number)
{
    return static_cast<FakeBus::U8>(static_cast<unsigned>(number));
}
Bytes word(int number)
{
    return {low(number / 256), low(number)};
}

/// A chip that mostly answers as it should.
std::map<FakeBus::U8, Bytes> registers(Dice& dice, bool protocol30)
{
    const int response = protocol30 ? 64 : 128;
    const int length = dice.oneOf({response, response, response, response, 0, 1, 127, 255, 256, 4096, 65535});
    std::map<FakeBus::U8, Bytes> chip;
    chip[0x00] = {low(dice.oneOf({3, 5, 7, 3, 5, 7, 1, 2, dice.below(256)}))};
    for (const int reg : {0x01, 0x02, 0x03})
        chip[low(reg)] = {low(dice.below(256))};
    chip[0x04] = {low(dice.below(256)), low(dice.oneOf({0, 0, 255})), low(dice.below(256)), low(dice.below(256))};
    chip[0x10] = {low(dice.oneOf({0x10, 0x10, 0x10, 0x9f, dice.below(256)}))};
    chip[0x11] = word(length);
    chip[0x12] = counting(static_cast<std::size_t>(dice.oneOf({length, length, length, length / 2, 0})), 1);
    chip[0x20] = word(dice.oneOf({32, 32, 32, 32, 31, 20, 0x2000, 65535}));
    chip[0x30] = word(dice.oneOf({907, 907, 0, 1280, 1920, 65535}));
    for (int page = 1; page <= 15; ++page)
        chip[low(0x30 + page)] = counting(dice.onceIn(40) ? 100 : 128, static_cast<unsigned>(page));
    if (dice.onceIn(8))
        chip.erase(std::next(chip.begin(), dice.below(static_cast<int>(chip.size()))));
    return chip;
}

int someLength(Dice& dice, Function operation)
{
    switch (operation) {
    case Function::NewSignature:
        // A negative one stops the process on 2.0B, so it needs its own process: rarely.
        return dice.oneOf({32, 32, 32, 32, 32, 32, 20, 5, 0, 31, 33, dice.between(0, 300), INT_MAX,
                           dice.onceIn(4) ? dice.oneOf({-1, -20, INT_MIN}) : 32});
    case Function::GetAccessoryCertificateData:
        return dice.oneOf(
            {907, 907, 907, 0, 1, 128, 1280, 1500, 1920, 1921, dice.between(0, 2000), -1, -2, -128, INT_MIN, INT_MAX});
    case Function::I2cWrite:
    case Function::RawWrite:
        return dice.oneOf({0, 1, 2, 4, 32, 128, dice.between(0, 300), -1, -2, -3, INT_MIN});
    default:
        return dice.oneOf({0, 1, 2, 4, 32, 128, dice.between(0, 1024), -1, -2, INT_MIN, INT_MAX});
    }
}

int someRegister(Dice& dice, Function operation)
{
    const bool takesMoreThanAByte = operation >= Function::ReadByte && operation <= Function::WriteDWord;
    const int reg = dice.oneOf({0x00, 0x04, 0x0a, 0x10, 0x12, 0x21, 0x30, 0x31, 0xff, dice.below(256)});
    return takesMoreThanAByte && dice.onceIn(6) ? reg + dice.oneOf({256, 0x1200, -256}) : reg;
}

int someValue(Dice& dice, Function operation)
{
    // A value out of range stops the process, so it needs its own process: rarely.
    const int tooLarge = dice.oneOf({256, 0x1234, 65536, -1, INT_MAX});
    if (operation == Function::WriteDWord)
        return dice.oneOf({0, 1, 255, 0x01020304, tooLarge});
    if (dice.onceIn(40))
        return tooLarge;
    return operation == Function::WriteWord ? dice.below(65536) : dice.below(256);
}

Function someOperation(Dice& dice)
{
    // The ones in which most can happen come more often.
    return dice.oneOf({Function::NewSignature, Function::GetAccessoryCertificateData, Function::Detect,
                       static_cast<Function>(dice.below(kOperations)), static_cast<Function>(dice.below(kOperations)),
                       static_cast<Function>(dice.below(kOperations))});
}

struct Named
{
    Function operation;
    const char* name;
};
constexpr Named kNames[] = {
    {Function::Construct, "construct and destroy"},
    {Function::GetDeviceVersion, "getDeviceVersion"},
    {Function::GetFirmwareVersion, "getFirmwareVersion"},
    {Function::GetAuthenticationProtocolMajorVersion, "getAuthenticationProtocolMajorVersion"},
    {Function::GetAuthenticationProtocolMinorVersion, "getAuthenticationProtocolMinorVersion"},
    {Function::GetDeviceId, "getDeviceID"},
    {Function::NewSignature, "newSignature"},
    {Function::GetAccessoryCertificateDataLength, "getAccessoryCertificateDataLength"},
    {Function::GetAccessoryCertificateData, "getAccessoryCertificateData"},
    {Function::GetChallengeResponseDataMaximumLength, "getChallengeResponseDataMaximumLength"},
    {Function::GetChallengeDataMaximumLength, "getChallengeDataMaximumLength"},
    {Function::RawWrite, "rawWrite"},
    {Function::RawRead, "rawRead"},
    {Function::ReadByte, "readByte"},
    {Function::ReadWord, "readWord"},
    {Function::ReadDWord, "readDWord"},
    {Function::WriteByte, "writeByte"},
    {Function::WriteWord, "writeWord"},
    {Function::WriteDWord, "writeDWord"},
    {Function::I2cRead, "i2cRead"},
    {Function::I2cWrite, "i2cWrite"},
    {Function::Detect, "getAuthChipDriverInstance"},
};
static_assert(sizeof(kNames) / sizeof(kNames[0]) == kOperations);

/// Results with their repetitions: "100 times -1, as it is, 3".
std::string inWords(const std::vector<int>& results)
{
    std::vector<std::string> parts;
    for (auto first = results.begin(); first != results.end();) {
        const auto next = std::find_if(first, results.end(), [first](int result) { return result != *first; });
        const auto times = next - first;
        parts.push_back((times > 1 ? std::to_string(times) + " times " : "") +
                        (*first == FakeBus::kAsItIs ? "as it is" : std::to_string(*first)));
        first = next;
    }
    return join(parts, ", ");
}

} // namespace

Bytes dataOf(const Script& script)
{
    constexpr int kMost = 512; // of what is asked to be written or signed, a challenge of INT_MAX bytes aside
    return counting(static_cast<std::size_t>(std::clamp(script.length, 0, kMost)), 0x40);
}

const char* nameOf(Function operation)
{
    return kNames[static_cast<int>(operation)].name;
}

std::string describe(const Script& script)
{
    std::ostringstream text;
    text << nameOf(script.operation) << (script.protocol30 ? " of 3.0" : " of 2.0B") << "\n  register or address 0x"
         << std::hex << script.reg << std::dec << ", value " << script.value << ", length " << script.length
         << (script.withoutOutput ? ", no place for the response" : "") << "\n  writes: " << inWords(script.writes)
         << "\n  reads: " << inWords(script.reads) << "\n  errors of open " << script.openError << ", of the address "
         << script.addressError << "; console level " << script.consoleLevel << ", log level " << script.logLevel
         << "; hook throws at " << script.hookThrowsAt << ", appender at " << script.recordThrowsAt << "\n";
    for (const auto& [reg, content] : script.registers)
        text << "  holds " << hex({reg}) << ": " << content.size() << " bytes "
             << hex(Bytes(content.begin(),
                          content.begin() + std::min<std::ptrdiff_t>(4, static_cast<std::ptrdiff_t>(content.size()))))
             << "\n";
    return text.str();
}

Script makeScript(std::uint32_t seed, std::uint32_t number)
{
    Dice dice(seed, number);
    Script script;
    script.protocol30 = dice.onceIn(2);
    script.operation = someOperation(dice);
    script.reg = script.operation == Function::Detect ? dice.oneOf({0x2a, 0x10, 0x54, 0x154, -1})
                                                      : someRegister(dice, script.operation);
    script.value = someValue(dice, script.operation);
    script.length = someLength(dice, script.operation);
    script.withoutOutput = script.protocol30 && dice.onceIn(12); // 2.0B does not look
    script.registers = registers(dice, script.protocol30);
    script.writes = results(dice, {-1, -1, -1, 0, 2, 1000});
    script.reads = results(dice, {-1, -1, 0, 1, 3, 100, 128, 5000});
    script.openError = dice.onceIn(16) ? ENOENT : 0;
    script.addressError = dice.onceIn(16) ? EBUSY : 0;
    script.consoleLevel = dice.oneOf({3, 3, 3, 6, -1, 1, 2, 4, 5});
    script.logLevel = dice.oneOf({log4cplus::TRACE_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL, log4cplus::DEBUG_LOG_LEVEL,
                                  log4cplus::INFO_LOG_LEVEL, log4cplus::ERROR_LOG_LEVEL, log4cplus::OFF_LOG_LEVEL});
    script.hookThrowsAt = dice.onceIn(10) ? dice.between(1, 2) : 0;
    script.recordThrowsAt = dice.onceIn(10) ? dice.between(1, 6) : 0;
    return script;
}

} // namespace campaign
