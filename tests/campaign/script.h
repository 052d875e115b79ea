#ifndef TESTS_CAMPAIGN_SCRIPT_H
#define TESTS_CAMPAIGN_SCRIPT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fakebus.h"

namespace campaign {

using testsupport::Bytes;
using testsupport::FakeBus;

enum class Function
{
    Construct,
    GetDeviceVersion,
    GetFirmwareVersion,
    GetAuthenticationProtocolMajorVersion,
    GetAuthenticationProtocolMinorVersion,
    GetDeviceId,
    NewSignature,
    GetAccessoryCertificateDataLength,
    GetAccessoryCertificateData,
    GetChallengeResponseDataMaximumLength,
    GetChallengeDataMaximumLength,
    RawWrite,
    RawRead,
    ReadByte,
    ReadWord,
    ReadDWord,
    WriteByte,
    WriteWord,
    WriteDWord,
    I2cRead,
    I2cWrite,
    Detect
};
constexpr int kOperations = static_cast<int>(Function::Detect) + 1;

/// Room for everything that an operation reads into a buffer of the caller's.
constexpr std::size_t kRoom = 65536;

/**
 * One call of one operation: its arguments, and how the chip, the system and the host answer. Both the library and the
 * oracle are given it, and nothing else.
 */
struct Script
{
    bool protocol30 = false;
    Function operation = Function::Construct;
    int reg = 0;   // a register, or the address of the chip that is looked for
    int value = 0; // that is written
    int length = 0;
    bool withoutOutput = false; // newSignature() gets no place for the response

    std::map<FakeBus::U8, Bytes> registers; // what the chip holds
    std::vector<int> writes;                // results of the calls of write in their order; then FakeBus::kAsItIs
    std::vector<int> reads;
    int openError = 0;
    int addressError = 0;

    int consoleLevel = 3;
    int logLevel = 0;       // of log4cplus
    int hookThrowsAt = 0;   // the how-manieth call of the hook; 0 is none
    int recordThrowsAt = 0; // the how-manieth record that reaches the appender
};

/// The bytes that are written or signed: as many as the script says, none for a negative length.
Bytes dataOf(const Script& script);

const char* nameOf(Function operation);
std::string describe(const Script& script);

/// The script of that number in the campaign of that seed.
Script makeScript(std::uint32_t seed, std::uint32_t number);

/// What came of a call.
struct Behaviour
{
    std::string result;              // as the caller sees it: a number, "exception", "stopped: " and the assertion
    std::string outputs;             // the caller's variables; "?" where the interface leaves them open
    Bytes buffer;                    // the caller's, or the block that it got
    std::vector<std::string> events; // system calls, console lines and records of the log, in their order
};

/// In place of the caller's variables before the call.
constexpr int kUntouched = 0xee;

} // namespace campaign

#endif
