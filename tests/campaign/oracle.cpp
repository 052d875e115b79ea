#include "tests/campaign/oracle.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <sstream>
#include <stdexcept>

#include <log4cplus/loglevel.h>

#include "common/generations.h"
#include "tests/support/consolelog.h"

using namespace testsupport;

namespace campaign {
namespace {

using U8 = FakeBus::U8;

constexpr int kTries = 100;
constexpr int kPage = 128;

// Results of the operations.
constexpr int kSuccess = 0;
constexpr int kErrorI2C = 1;
constexpr int kErrorInvalid = 2;

struct Thrown
{};

struct Stopped
{
    std::string assertion;
};

std::string hexOf(int number)
{
    std::ostringstream text;
    text << std::hex << number;
    return text.str();
}

/// Steps of a signature. The number at the end of a step's line is its result or error.
enum class Step
{
    RequirePlace,
    RequireLength,
    AnnounceSignature,
    AnnounceChallenge,
    SendChallenge,
    ReadAcceptedLength,
    RequireAcceptedLength,
    Start,
    ReadStatus,
    RequireStatus,
    ReadLength,
    ReadResponse
};
struct Row
{
    Step step;
    const char* failure;
    bool failureEndsWithNumber;
    const char* success; // null: no line
    bool successEndsWithNumber;
};
constexpr Row kSignature20B[] = {
    {Step::AnnounceSignature, "Failed to write signature data length, error=1", false, nullptr, false},
    {Step::AnnounceChallenge, "Failed to write challenge length, error=1", false, nullptr, false},
    {Step::SendChallenge, "Failed to write challenge data", false, nullptr, false},
    {Step::Start, "Failed to write status for new signature, error=1", false, nullptr, false},
    {Step::ReadStatus, "Failed to read status, error=1", false, nullptr, false},
    {Step::RequireStatus, "Invalid status result: ", true, nullptr, false},
    {Step::ReadLength, "Failed to read signature length, error=1", false, nullptr, false},
    {Step::ReadResponse, "Failed to read signature data", false, "Successfully generated signature, length=", true},
};
constexpr Row kSignature30[] = {
    {Step::RequirePlace, "Invalid parameter: challengeResponse is NULL", false, nullptr, false},
    {Step::RequireLength, "Invalid challenge length: expected=32, actual=", true, nullptr, false},
    {Step::SendChallenge, "Failed to write challenge data", false, "Challenge data written successfully", false},
    {Step::ReadAcceptedLength, "Failed to read challenge length, error=1", false, nullptr, false},
    {Step::RequireAcceptedLength, "Invalid challenge length returned: expected=32, actual=", true, nullptr, false},
    {Step::Start, "Failed to write status for new signature, error=1", false, nullptr, false},
    {Step::ReadStatus, "Failed to read status, error=1", false, nullptr, false},
    {Step::RequireStatus, "Invalid status result: ", true, nullptr, false},
    {Step::ReadLength, "Failed to read challenge response length, error=1", false, "Challenge response length: ", true},
    {Step::ReadResponse, "Failed to read challenge response data", false, "Successfully read challenge response",
     false},
};

class Oracle
{
public:
    explicit Oracle(const Script& script)
        : m_script(script),
          m_generation(script.protocol30 ? VorelKestrel::kGeneration30 : VorelKestrel::kGeneration20B),
          m_writes(script.writes.begin(), script.writes.end()), m_reads(script.reads.begin(), script.reads.end())
    {}

    Behaviour predict();

private:
    // The system, as the fake bus scripts it.
    int systemWrite(const Bytes& message, int count);
    int systemRead(int count, U8* destination);
    // The bus.
    int send(const Bytes& message, int count);
    int readRegister(U8 reg, int count, U8* destination);
    int writeRegister(U8 reg, int count, const Bytes& data);
    int readNumber(int reg, int width, unsigned& number);
    int writeNumber(int reg, int width, int value);
    // The lines.
    void call(const std::string& text) { m_behaviour.events.push_back(text); }
    void console(int gate, const char* kind, const char* source, const std::string& message);
    void trace(const std::string& message) { console(5, "DbgTrace", "i2c_linuxdev", message); }
    void log(int level, const char* name, const std::string& message);
    void error(const std::string& message) { log(log4cplus::ERROR_LOG_LEVEL, "ERROR", message); }
    void debug(const std::string& message) { log(log4cplus::DEBUG_LOG_LEVEL, "DEBUG", message); }
    void bracket(const char* verb, const std::string& details);
    // The operations.
    int holdingTheBus(const std::function<int()>& exchange);
    int traced(const std::string& details, const std::function<int()>& exchange);
    int version(int reg);
    int deviceId();
    int certificateLength();
    int certificate();
    int limit(int length);
    int raw(const char* failure, const std::function<int()>& transfer);
    int signature();
    bool does(Step step, int& number);
    bool sendChallenge();
    bool readResponse(int length);
    int number(int width);
    std::string detect();
    std::string chooseDriver(int deviceVersion);
    int moveBytes();
    int askDriver();
    std::string perform();

    const Script& m_script;
    const VorelKestrel::Generation& m_generation;
    std::deque<int> m_writes;
    std::deque<int> m_reads;
    int m_register = 0;
    int m_errno = 0;
    int m_hookCalls = 0;
    int m_records = 0;
    unsigned m_number = 0; // the last one that a step of a signature read
    Behaviour m_behaviour;
};

int taken(std::deque<int>& results)
{
    if (results.empty())
        return FakeBus::kAsItIs;
    const int result = results.front();
    results.pop_front();
    return result;
}

int Oracle::systemWrite(const Bytes& message, int count)
{
    if (count <= 0) { // no count of the system's is negative; it takes such a one for a huge one
        call("write of " + std::to_string(count) + " bytes");
        if (count < 0)
            m_errno = EINVAL;
        return count == 0 ? 0 : -1;
    }
    call("write " + hex(message));
    const int scripted = taken(m_writes);
    const int result = scripted == FakeBus::kAsItIs ? count : scripted;
    if (result == -1)
        m_errno = ENXIO;
    if (result == count)
        m_register = message[0];
    return result;
}

int Oracle::systemRead(int count, U8* destination)
{
    call("read " + std::to_string(count));
    if (count < 0) {
        m_errno = EINVAL;
        return -1;
    }
    int result = taken(m_reads);
    const auto content = m_script.registers.find(static_cast<U8>(m_register));
    const bool held = content != m_script.registers.end();
    if (result == -1 || (result == FakeBus::kAsItIs && !held)) {
        m_errno = EIO;
        return -1;
    }
    if (result == FakeBus::kAsItIs)
        result = std::min(count, static_cast<int>(content->second.size()));
    for (int i = 0; i < std::min(result, count); ++i)
        destination[i] = held && i < static_cast<int>(content->second.size())
                             ? content->second[static_cast<std::size_t>(i)]
                             : U8{0xff};
    return result;
}

int Oracle::send(const Bytes& message, int count)
{
    int result = -1;
    for (int i = 0; i < kTries; ++i) {
        result = systemWrite(message, count);
        if (result == count)
            return result;
        call("sleep 10000");
    }
    return result;
}

int Oracle::readRegister(U8 reg, int count, U8* destination)
{
    trace("i2cRead(reg=0x" + hexOf(reg) + ", length=" + std::to_string(count) + ")");
    if (send({reg}, 1) != 1)
        return 0;
    int result = -1;
    for (int i = 0; i < kTries && result == -1; ++i)
        result = systemRead(count, destination);
    return result;
}

int Oracle::writeRegister(U8 reg, int count, const Bytes& data)
{
    trace("i2cWrite(reg=0x" + hexOf(reg) + ", length=" + std::to_string(count) + ")");
    Bytes message(data.size() + 1);
    message[0] = reg;
    std::copy(data.begin(), data.end(), message.begin() + 1);
    // The system's count is unsigned: the most negative number wraps to the largest.
    return send(message, static_cast<int>(static_cast<unsigned>(count) + 1U)) - 1;
}

int Oracle::readNumber(int reg, int width, unsigned& number)
{
    constexpr const char* kWords[] = {"", "byte", "word", "", "dword"};
    U8 bytes[4] = {};
    const int result = readRegister(static_cast<U8>(reg), width, bytes);
    if (result != width) {
        console(1, "DbgError", "authchipdriver",
                std::string("unable to read ") + kWords[width] + " from register 0x" + hexOf(reg) +
                    " - i2cRead returns " + std::to_string(result));
        return kErrorI2C;
    }
    number = 0;
    for (int i = 0; i < width; ++i)
        number = number * 256 + bytes[i];
    return kSuccess;
}

int Oracle::writeNumber(int reg, int width, int value)
{
    constexpr const char* kWords[] = {"", "byte", "word", "", "dword"};
    if (width == 1 && (value < 0 || value > 0xff))
        throw Stopped{"(value&0xffffff00) == 0"};
    if (width == 2 && (value < 0 || value > 0xffff))
        throw Stopped{"(value&0xffff0000) == 0"};
    Bytes data(static_cast<std::size_t>(width), 0); // of a longer number only the lowest byte is sent
    data.back() = static_cast<U8>(value);
    const int result = writeRegister(static_cast<U8>(reg), width, data);
    if (result == width)
        return kSuccess;
    console(1, "DbgError", "authchipdriver",
            std::string("unable to write ") + kWords[width] + " to register 0x" + hexOf(reg) + " - i2cWrite returns " +
                std::to_string(result));
    return kErrorI2C;
}

void Oracle::console(int gate, const char* kind, const char* source, const std::string& message)
{
    if (m_script.consoleLevel > gate)
        call(consoleLine(kind, source, message));
}

void Oracle::log(int level, const char* name, const std::string& message)
{
    if (level < m_script.logLevel)
        return;
    if (++m_records == m_script.recordThrowsAt)
        throw Thrown();
    call(name + (" " + message));
}

void Oracle::bracket(const char* verb, const std::string& details)
{
    if (m_script.logLevel > log4cplus::TRACE_LOG_LEVEL)
        return;
    if (++m_hookCalls == m_script.hookThrowsAt)
        throw Thrown();
    log(log4cplus::TRACE_LOG_LEVEL, "TRACE", verb + (" label: " + details));
}

int Oracle::holdingTheBus(const std::function<int()>& exchange)
{
    trace("i2cStartTransaction()");
    call("lock");
    const auto giveBack = [this] {
        trace("i2cStopTransaction()");
        call("unlock");
    };
    try {
        const int result = exchange();
        giveBack();
        return result;
    } catch (const Thrown&) {
        giveBack();
        throw;
    }
}

int Oracle::traced(const std::string& details, const std::function<int()>& exchange)
{
    bracket("Enter", details);
    return holdingTheBus([&] {
        const int result = exchange();
        bracket("Leave", "result=" + std::to_string(result));
        return result;
    });
}

int Oracle::number(int width)
{
    unsigned number = 0;
    const int result = readNumber(m_script.reg, width, number);
    m_behaviour.outputs = "value=" + std::to_string(result == kSuccess ? number : kUntouched);
    return result;
}

int Oracle::version(int reg)
{
    m_behaviour.outputs = "version=" + std::to_string(kUntouched);
    return holdingTheBus([&] {
        unsigned number = 0;
        const int result = readNumber(reg, 1, number);
        if (result == kSuccess)
            m_behaviour.outputs = "version=" + std::to_string(number);
        return result;
    });
}

int Oracle::deviceId()
{
    m_behaviour.outputs = "id=" + std::to_string(kUntouched);
    return traced("Reading device ID", [&] {
        unsigned id = 0;
        const int result = readNumber(0x04, 4, id);
        if (result != kSuccess) {
            error("Failed to read device ID, error=1");
            return result;
        }
        m_behaviour.outputs = "id=" + std::to_string(id);
        debug("Device ID: 0x" + hexOf(static_cast<int>(id)));
        return result;
    });
}

int Oracle::certificateLength()
{
    m_behaviour.outputs = "length=" + std::to_string(kUntouched);
    return traced("", [&] {
        unsigned length = 0;
        const int result = readNumber(0x30, 2, length);
        if (result != kSuccess) {
            m_behaviour.outputs = "?"; // of no meaning after a failure
            error("Failed to read certificate data length, error=1");
            return result;
        }
        debug("Certificate data length: " + std::to_string(length));
        m_behaviour.outputs = "length=" + std::to_string(length);
        return result;
    });
}

int Oracle::certificate()
{
    const int length = m_script.length;
    m_behaviour.outputs = "length=" + std::to_string(length);
    m_behaviour.buffer.assign(kRoom, kUntouched);
    bracket("Enter", "requested length=" + std::to_string(length));
    return holdingTheBus([&] {
        int total = 0;
        for (int page = 1; total != length; ++page) {
            const int wanted = std::min(length - total, kPage);
            debug("Reading page " + std::to_string(page) + ", bytes=" + std::to_string(wanted));
            const int n = readRegister(static_cast<U8>(0x30 + page), wanted, m_behaviour.buffer.data() + total);
            total += n;
            if (page >= m_generation.certificatePages || n != wanted) {
                error("Read failed: read=" + std::to_string(n) + ", toRead=" + std::to_string(wanted) +
                      ", page=" + std::to_string(page + 1));
                break;
            }
        }
        if (total == length) {
            debug("Successfully read all data: " + std::to_string(total) + " bytes");
            bracket("Leave", "result=Success");
            return kSuccess;
        }
        error("Incomplete read: expected=" + std::to_string(length) + ", actual=" + std::to_string(total));
        m_behaviour.outputs = "length=" + std::to_string(total);
        bracket("Leave", "result=ErrorI2C");
        return kErrorI2C;
    });
}

int Oracle::limit(int length)
{
    m_behaviour.outputs = "length=" + std::to_string(kUntouched);
    bracket("Enter", "");
    m_behaviour.outputs = "length=" + std::to_string(length);
    debug("Maximum length: " + std::to_string(length));
    bracket("Leave", "");
    return kSuccess;
}

int Oracle::raw(const char* failure, const std::function<int()>& transfer)
{
    const std::string details =
        "reg=0x" + hexOf(static_cast<U8>(m_script.reg)) + ", numBytes=" + std::to_string(m_script.length);
    return traced(details, [&] {
        const int count = transfer();
        if (count != m_script.length)
            error(failure + std::to_string(m_script.length) + ", actual=" + std::to_string(count));
        return count;
    });
}

bool Oracle::sendChallenge()
{
    const int count = std::min(m_script.length, static_cast<int>(m_generation.challengeLength));
    const Bytes all = dataOf(m_script);
    return writeRegister(0x21, count, Bytes(all.begin(), all.begin() + count)) == count;
}

bool Oracle::readResponse(int length)
{
    m_behaviour.outputs = "response=null length=" + std::to_string(length); // until all is done
    m_behaviour.buffer.assign(static_cast<std::size_t>(length), kUntouched);
    return readRegister(0x12, length, m_behaviour.buffer.data()) == length;
}

/// Does one step of a signature; @p number is what its line ends with.
bool Oracle::does(Step step, int& number)
{
    switch (step) {
    case Step::RequirePlace:
        if (!m_script.withoutOutput)
            m_behaviour.outputs = "response=null length=" + std::to_string(kUntouched);
        return !m_script.withoutOutput;
    case Step::RequireLength:
        number = m_script.length;
        return m_script.length == 32;
    case Step::AnnounceSignature:
        return writeNumber(0x11, 2, 128) == kSuccess;
    case Step::AnnounceChallenge:
        return writeNumber(0x20, 2, std::min(m_script.length, 20)) == kSuccess;
    case Step::SendChallenge:
        return sendChallenge();
    case Step::ReadAcceptedLength:
        return readNumber(0x20, 2, m_number) == kSuccess;
    case Step::RequireAcceptedLength:
        number = static_cast<int>(m_number);
        return m_number == 32;
    case Step::Start:
        return writeNumber(0x10, 1, 1) == kSuccess;
    case Step::ReadStatus:
        return readNumber(0x10, 1, m_number) == kSuccess;
    case Step::RequireStatus:
        number = static_cast<int>(m_number);
        return (m_number & 0x70U) == 0x10;
    case Step::ReadLength: {
        const bool done = readNumber(0x11, 2, m_number) == kSuccess;
        number = static_cast<int>(m_number);
        return done;
    }
    case Step::ReadResponse:
        number = static_cast<int>(m_number);
        return readResponse(number);
    }
    return false;
}

int Oracle::signature()
{
    m_behaviour.outputs = "response=untouched length=" + std::to_string(kUntouched);
    bracket("Enter", "challengeLength=" + std::to_string(m_script.length));
    return holdingTheBus([&] {
        const Row* const first = m_script.protocol30 ? std::begin(kSignature30) : std::begin(kSignature20B);
        const Row* const last = m_script.protocol30 ? std::end(kSignature30) : std::end(kSignature20B);
        for (const Row* row = first; row != last; ++row) {
            int number = 0;
            const bool done = does(row->step, number);
            if (!done) {
                error(row->failure + (row->failureEndsWithNumber ? std::to_string(number) : ""));
                return row->step == Step::RequirePlace || row->step == Step::RequireStatus ? kErrorInvalid : kErrorI2C;
            }
            if (row->success != nullptr)
                debug(row->success + (row->successEndsWithNumber ? std::to_string(number) : ""));
        }
        bracket("Leave", m_script.protocol30 ? "result=Success" : "result=0");
        m_behaviour.outputs = "response=block length=" + std::to_string(m_behaviour.buffer.size());
        return kSuccess;
    });
}

std::string Oracle::detect()
{
    m_behaviour.outputs = "none";
    trace(std::string("i2cInit() ") + FakeBus::kDevice);
    call(std::string("open ") + FakeBus::kDevice);
    if (m_script.openError != 0) {
        console(1, "DbgError", "i2c_linuxdev", std::string("Unable to open ") + FakeBus::kDevice);
        return "null";
    }
    call("select " + hex({}) + (m_script.reg >= 0 && m_script.reg < 16 ? "0" : "") + hexOf(m_script.reg));
    if (m_script.addressError != 0) {
        console(1, "DbgError", "i2c_linuxdev", "Unable to select address 0x" + hexOf(m_script.reg));
        call("close");
        return "null";
    }
    std::string driver = "null";
    holdingTheBus([&] {
        U8 deviceVersion = 0;
        const int result = readRegister(0x00, 1, &deviceVersion);
        if (result == 1)
            driver = chooseDriver(deviceVersion);
        else // what the variable held is anything
            console(1, "DbgError", "authchipfactory",
                    "Error in i2cRead, readRes=" + std::to_string(result) +
                        " deviceVersion=# errno=" + std::to_string(m_errno) + " str=" + std::strerror(m_errno));
        return 0;
    });
    return driver;
}

std::string Oracle::chooseDriver(int deviceVersion)
{
    const std::string number = std::to_string(deviceVersion);
    console(3, "DbgInfo", "authchipfactory", "Authentication chip driver version: " + number);
    if (deviceVersion == 3 || deviceVersion == 5 || deviceVersion == 7) {
        bracket("Enter", "");
        bracket("Leave", "");
        return deviceVersion == 7 ? "3.0" : "2.0B";
    }
    std::string message = "Unknown authentication chip driver version: " + number;
    if (deviceVersion == 1 || deviceVersion == 2)
        message = std::string("Authentication chip driver version ") + (deviceVersion == 1 ? "1.0" : "2.0A") +
                  " is not yet supported";
    console(1, "DbgError", "authchipfactory", message);
    return "null";
}

/// The registers and raw transfers, and the bus below them.
int Oracle::moveBytes()
{
    const U8 reg = static_cast<U8>(m_script.reg);
    const auto readIntoBuffer = [&] { return readRegister(reg, m_script.length, m_behaviour.buffer.data()); };
    const auto writeData = [&] { return writeRegister(reg, m_script.length, dataOf(m_script)); };
    if (m_script.operation == Function::RawRead || m_script.operation == Function::I2cRead)
        m_behaviour.buffer.assign(kRoom, kUntouched);
    switch (m_script.operation) {
    case Function::RawWrite:
        return raw("Write failed: expected=", writeData);
    case Function::RawRead:
        return raw("Read failed: expected=", readIntoBuffer);
    case Function::ReadByte:
        return number(1);
    case Function::ReadWord:
        return number(2);
    case Function::ReadDWord:
        return number(4);
    case Function::WriteByte:
        return writeNumber(m_script.reg, 1, m_script.value);
    case Function::WriteWord:
        return writeNumber(m_script.reg, 2, m_script.value);
    case Function::WriteDWord:
        return writeNumber(m_script.reg, 4, m_script.value);
    case Function::I2cRead:
        return readIntoBuffer();
    case Function::I2cWrite:
        return writeData();
    default:
        throw std::logic_error("no transfer");
    }
}

/// An operation of a host.
int Oracle::askDriver()
{
    switch (m_script.operation) {
    case Function::GetDeviceVersion:
        return version(0x00);
    case Function::GetFirmwareVersion:
        return version(0x01);
    case Function::GetAuthenticationProtocolMajorVersion:
        return version(0x02);
    case Function::GetAuthenticationProtocolMinorVersion:
        return version(0x03);
    case Function::GetDeviceId:
        return deviceId();
    case Function::NewSignature:
        return signature();
    case Function::GetAccessoryCertificateDataLength:
        return certificateLength();
    case Function::GetAccessoryCertificateData:
        return certificate();
    case Function::GetChallengeResponseDataMaximumLength:
        return limit(static_cast<int>(m_generation.responseLength));
    case Function::GetChallengeDataMaximumLength:
        return limit(static_cast<int>(m_generation.challengeLength));
    default:
        return moveBytes();
    }
}

std::string Oracle::perform()
{
    switch (m_script.operation) {
    case Function::Construct:
        bracket("Enter", "");
        bracket("Leave", "");
        return "0";
    case Function::Detect:
        return detect();
    default:
        return std::to_string(askDriver());
    }
}

Behaviour Oracle::predict()
{
    try {
        m_behaviour.result = perform();
    } catch (const Thrown&) {
        m_behaviour.result = "exception";
    } catch (const Stopped& stopped) {
        m_behaviour.result = "stopped: " + stopped.assertion;
        m_behaviour.outputs = "?"; // no process is left to check them
    }
    const bool isSignature = m_script.operation == Function::NewSignature;
    if (m_behaviour.result.rfind("stopped", 0) == 0 || (isSignature && m_behaviour.result != "0"))
        m_behaviour.buffer.clear(); // the caller has no block
    return std::move(m_behaviour);
}

} // namespace

Behaviour predict(const Script& script)
{
    return Oracle(script).predict();
}

} // namespace campaign
