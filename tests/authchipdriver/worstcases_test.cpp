// How often each operation tries, how often it pauses, and how long it keeps the bus from the others, when the chip or
// the bus is at its worst. This program writes the tables of docs/worst-cases.md:
//     AUTHCHIP_TEST_WRITE=docs/worst-cases.md build/dev/tests/authchipdriver/worstcases_test

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/i2c.h>

#include "common/patience.h"
#include "tests/support/consolelog.h"
#include "tests/support/driverlog.h"
#include "tests/support/fakebus.h"
#include "tests/support/nowhere.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::kAttempts;
using VorelKestrel::AL::U8;

namespace {

constexpr int kAllPages20B = 15 * 128;
constexpr int kAllPages30 = 10 * 128;

/// How a chip, or the bus, deals with the messages.
enum class Chip
{
    AnswersAtOnce,
    NeverAnswers,
    AnswersHalf,        ///< of every message of more than one byte, half goes through
    AnswersEverySecond, ///< refuses one message and takes the next
    AnswersSlowly       ///< refuses every message until the last attempt
};

constexpr Chip kChips[] = {Chip::AnswersAtOnce, Chip::NeverAnswers, Chip::AnswersHalf, Chip::AnswersEverySecond,
                           Chip::AnswersSlowly};
constexpr std::size_t kChipCount = std::size(kChips);

using Microseconds = long long;

constexpr Microseconds kOnAWorkingBus = 110;    // the chip's address, refused: 11 bits at 100 kHz
constexpr int kBusTimeouts[] = {1000, 100, 20}; // in milliseconds; the first is the kernel's own

/// What one operation came to.
struct Cost
{
    int attempts = 0;
    int pauses = 0;
    Microseconds time = 0;
    Microseconds locked = 0; // of it with the lock held
};

/// Makes messages fail like one of the chips, and adds up the costs. Nothing really waits.
class WorstBus : public FakeBus
{
public:
    WorstBus(Journal& journal, Chip chip, Microseconds refusal) : FakeBus(journal), m_chip(chip), m_refusal(refusal)
    {
        keepsNoJournal();
    }

    const Cost& cost() const { return m_cost; }
    void startAnew() { m_cost = {}; }
    bool hasDelivered() const { return m_hasDelivered; }

    ssize_t read(int descriptor, void* data, std::size_t count) override
    {
        if (!answers())
            return refuse(EIO);
        m_hasDelivered = true;
        return takeTime(FakeBus::read(descriptor, data, transferred(count)));
    }
    ssize_t write(int descriptor, const void* data, std::size_t count) override
    {
        m_hasDelivered = false;
        if (!answers())
            return refuse(ENXIO);
        const std::size_t length = transferred(count);
        return takeTime(length < count ? static_cast<ssize_t>(length) : FakeBus::write(descriptor, data, count));
    }
    int usleep(unsigned microseconds) override
    {
        ++m_cost.pauses;
        m_cost.time += microseconds;
        return 0;
    }
    int changeSemaphore(int delta) override
    {
        m_cost.locked += delta < 0 ? -m_cost.time : m_cost.time;
        return FakeBus::changeSemaphore(delta);
    }

private:
    bool answers()
    {
        ++m_cost.attempts;
        switch (m_chip) {
        case Chip::NeverAnswers:
            return false;
        case Chip::AnswersEverySecond:
            return m_cost.attempts % 2 == 0;
        case Chip::AnswersSlowly:
            return m_cost.attempts % kAttempts == 0;
        case Chip::AnswersAtOnce:
        case Chip::AnswersHalf:
            break;
        }
        return true;
    }
    std::size_t transferred(std::size_t count) const { return m_chip == Chip::AnswersHalf ? (count + 1) / 2 : count; }
    ssize_t refuse(int error)
    {
        m_cost.time += m_refusal;
        errno = error;
        return -1;
    }
    /// Nine bits a byte, the address among them, a start and a stop, at 100 kHz.
    ssize_t takeTime(ssize_t bytes)
    {
        m_cost.time += (9 * (bytes + 1) + 2) * 10;
        return bytes;
    }

    const Chip m_chip;
    const Microseconds m_refusal;
    Cost m_cost;
    bool m_hasDelivered = false;
};

// --- the operations
// ----------------------------------------------------------------------------------------------------

using Call = std::function<int(AuthChipDriver&, WorstBus&)>; ///< 0 if it succeeds

int readCertificate(AuthChipDriver& driver, int length)
{
    Bytes buffer(static_cast<std::size_t>(length));
    return driver.getAccessoryCertificateData(buffer.data(), length);
}

/// An operation by its name: of the driver, or the factory or a raw transfer.
std::map<std::string, Call> calls(bool protocol30)
{
    std::map<std::string, Call> calls = {
        // The chip is of no generation that is supported, so each detection is the first.
        {"getAuthChipDriverInstance",
         [](AuthChipDriver&, WorstBus& bus) {
             AuthChipFactory::getAuthChipDriverInstance(FakeBus::kDevice, FakeBus::kAddress);
             return bus.hasDelivered() ? 0 : 1;
         }},
        {"getAccessoryCertificateDataOfAllPages",
         [=](AuthChipDriver& driver, WorstBus&) {
             return readCertificate(driver, protocol30 ? kAllPages30 : kAllPages20B);
         }},
        {"i2cInit", [](AuthChipDriver&, WorstBus&) { return i2cInit(FakeBus::kDevice, FakeBus::kAddress); }},
        {"i2cStartTransaction, i2cStopTransaction",
         [](AuthChipDriver&, WorstBus&) {
             i2cStartTransaction();
             i2cStopTransaction();
             return 0;
         }},
    };
    std::vector<DriverOperation> operations = protocol30 ? operations30() : operations20B();
    const auto& others = operationsWithoutTransaction();
    operations.insert(operations.end(), others.begin(), others.end());
    for (const DriverOperation& operation : operations)
        calls[operation.name] = [=](AuthChipDriver& driver, WorstBus&) { return operation.call(driver); };
    return calls;
}

struct Counts
{
    int attempts;
    int pauses;
    bool succeeds;
};

enum class Protocols
{
    Both,
    Protocol20B,
    Protocol30
};

/// Operations that come to the same.
struct Row
{
    const char* name;  // of the test
    const char* title; // in the page
    Protocols protocols;
    std::vector<std::string> operations;
    Counts counts[kChipCount]; // in the order of kChips
};

// clang-format off
const Row kRows[] = {
    {"WithoutATransfer",
     "no transfer: `getChallengeDataMaximumLength`, `getChallengeResponseDataMaximumLength`, `i2cInit`, `i2cStartTransaction`, `i2cStopTransaction`, `i2cClose`",
     Protocols::Both,
     {"getChallengeResponseDataMaximumLength", "getChallengeDataMaximumLength", "i2cInit",
      "i2cStartTransaction, i2cStopTransaction"},
     {{0, 0, true}, {0, 0, true}, {0, 0, true}, {0, 0, true}, {0, 0, true}}},
    {"ReadingAByte",
     "read 1 byte: `getAuthChipDriverInstance`, `getDeviceVersion` and the other three versions, `readByte`, `rawRead`, `i2cRead`",
     Protocols::Both,
     {"getAuthChipDriverInstance", "getDeviceVersion", "getFirmwareVersion", "getAuthenticationProtocolMajorVersion",
      "getAuthenticationProtocolMinorVersion", "readByte", "rawReadOf1Byte"},
     {{2, 0, true}, {100, 100, false}, {2, 0, true}, {4, 1, true}, {200, 99, true}}},
    {"ReadingSeveralBytes",
     "read 2 to 128 bytes: `getDeviceID`, `getAccessoryCertificateDataLength`, `readWord`, `readDWord`, `rawRead`, `i2cRead`",
     Protocols::Both,
     {"getDeviceID", "getAccessoryCertificateDataLength", "readWord", "readDWord", "rawReadOf128Bytes"},
     {{2, 0, true}, {100, 100, false}, {2, 0, false}, {4, 1, true}, {200, 99, true}}},
    {"Writing",
     "write 1 to 128 bytes: `writeByte`, `writeWord`, `writeDWord`, `rawWrite`, `i2cWrite`",
     Protocols::Both,
     {"writeByte", "writeWord", "writeDWord", "rawWriteOf1Byte", "rawWriteOf128Bytes"},
     {{1, 0, true}, {100, 100, false}, {100, 100, false}, {2, 1, true}, {100, 99, true}}},
    {"TheCertificate",
     "`getAccessoryCertificateData` of 907 bytes, 8 pages",
     Protocols::Both,
     {"getAccessoryCertificateData"},
     {{16, 0, true}, {100, 100, false}, {2, 0, false}, {32, 8, true}, {1600, 792, true}}},
    {"TheLongestCertificateOn30",
     "`getAccessoryCertificateData` of 1280 bytes, 10 pages, the most on 3.0",
     Protocols::Protocol30,
     {"getAccessoryCertificateDataOfAllPages"},
     {{20, 0, true}, {100, 100, false}, {2, 0, false}, {40, 10, true}, {2000, 990, true}}},
    {"TheLongestCertificateOn20B",
     "`getAccessoryCertificateData` of 1920 bytes, 15 pages, the most on 2.0B",
     Protocols::Protocol20B,
     {"getAccessoryCertificateDataOfAllPages"},
     {{30, 0, true}, {100, 100, false}, {2, 0, false}, {60, 15, true}, {3000, 1485, true}}},
    {"ASignatureOn30",
     "`newSignature` on 3.0",
     Protocols::Protocol30,
     {"newSignature"},
     {{10, 0, true}, {100, 100, false}, {100, 100, false}, {20, 6, true}, {1000, 594, true}}},
    {"ASignatureOn20B",
     "`newSignature` on 2.0B",
     Protocols::Protocol20B,
     {"newSignature"},
     {{10, 0, true}, {100, 100, false}, {100, 100, false}, {20, 7, true}, {1000, 693, true}}},
};
// clang-format on

std::vector<bool> protocolsOf(const Row& row)
{
    switch (row.protocols) {
    case Protocols::Protocol20B:
        return {false};
    case Protocols::Protocol30:
        return {true};
    case Protocols::Both:
        break;
    }
    return {false, true};
}

struct CallCost
{
    Cost cost;
    bool succeeds;
};

/// Calls one operation on one chip. A refused message takes @p refusal.
CallCost callCostOf(const std::string& operation, bool protocol30, Chip chip, Microseconds refusal = kOnAWorkingBus)
{
    Journal journal;
    const ConsoleLog console(journal);
    const Nowhere nowhere;
    const DriverLog log(journal, log4cplus::OFF_LOG_LEVEL);
    WorstBus bus(journal, chip, refusal);
    arrangeHealthyChip(bus, protocol30);
    for (U8 page = 0x38; page <= 0x3f; ++page)
        bus.holds(page, counting(128));
    i2cInit(FakeBus::kDevice, FakeBus::kAddress);
    std::unique_ptr<AuthChipDriver> driver;
    if (protocol30)
        driver = std::make_unique<AuthChipDriver30>();
    else
        driver = std::make_unique<AuthChipDriver20B>();
    bus.startAnew();
    const int result = calls(protocol30).at(operation)(*driver, bus);
    return {bus.cost(), result == 0};
}

/// The most that any operation of a row takes.
Microseconds longestOf(const Row& row, Chip chip, Microseconds refusal)
{
    Microseconds longest = 0;
    for (const bool protocol30 : protocolsOf(row)) {
        for (const std::string& operation : row.operations)
            longest = std::max(longest, callCostOf(operation, protocol30, chip, refusal).cost.time);
    }
    return longest;
}

class WorstCaseTest : public ::testing::TestWithParam<Row>
{};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

TEST_P(WorstCaseTest, TakesExactlyTheAttemptsAndPausesOfTheTableAndHoldsTheLockAllTheTime)
{
    for (std::size_t i = 0; i < kChipCount; ++i) {
        const Counts& expected = GetParam().counts[i];
        for (const bool protocol30 : protocolsOf(GetParam())) {
            for (const std::string& operation : GetParam().operations) {
                SCOPED_TRACE(operation + (protocol30 ? " on 3.0" : " on 2.0B") + ", chip " + std::to_string(i));
                const CallCost call = callCostOf(operation, protocol30, kChips[i]);
                EXPECT_EQ(expected.attempts, call.cost.attempts);
                EXPECT_EQ(expected.pauses, call.cost.pauses);
                EXPECT_EQ(expected.succeeds, call.succeeds);
                EXPECT_EQ(call.cost.time, call.cost.locked);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, WorstCaseTest, ::testing::ValuesIn(kRows),
                         [](const auto& test) { return test.param.name; });

TEST(WorstCasesTest, EveryOperationHasItsRow)
{
    for (const bool protocol30 : {false, true}) {
        std::set<std::string> inRows;
        for (const Row& row : kRows) {
            const auto protocols = protocolsOf(row);
            if (std::find(protocols.begin(), protocols.end(), protocol30) != protocols.end())
                inRows.insert(row.operations.begin(), row.operations.end());
        }
        for (const auto& call : calls(protocol30))
            EXPECT_EQ(1U, inRows.count(call.first)) << call.first;
    }
}

TEST(WorstCasesTest, OnAStuckBusAnAccessToARegisterLastsMoreThanAMinuteAndAHalf)
{
    EXPECT_GT(callCostOf("getDeviceVersion", true, Chip::NeverAnswers, 1000000).cost.locked, 90 * 1000000LL);
}

// --- the page
// ----------------------------------------------------------------------------------------------------------

std::string timeText(Microseconds time)
{
    char text[32];
    const double seconds = static_cast<double>(time) / 1e6;
    if (time == 0)
        return "0";
    if (seconds < 1)
        std::snprintf(text, sizeof(text), "%.1f ms", seconds * 1000);
    else if (seconds < 120)
        std::snprintf(text, sizeof(text), "%.1f s", seconds);
    else
        std::snprintf(text, sizeof(text), "%lld min %02lld s", time / 60000000, time / 1000000 % 60);
    return text;
}

std::string countsText(const Counts& counts)
{
    return std::to_string(counts.attempts) + " | " + std::to_string(counts.pauses);
}

std::string tableOf(std::size_t chip)
{
    std::ostringstream table;
    table << "| operation | ends with | attempts | pauses | longest time, and lock hold |\n"
          << "|---|---|---:|---:|---:|\n";
    for (const Row& row : kRows) {
        table << "| " << row.title << " | " << (row.counts[chip].succeeds ? "success" : "failure") << " | "
              << countsText(row.counts[chip]) << " | " << timeText(longestOf(row, kChips[chip], kOnAWorkingBus))
              << " |\n";
    }
    return table.str();
}

/// For a bus on which every failed message takes the bus controller's timeout.
std::string tableOfAStuckBus(std::size_t chip)
{
    std::ostringstream table;
    table << "| operation | attempts | pauses | 1 s each |";
    for (const auto* timeout = std::next(std::begin(kBusTimeouts)); timeout != std::end(kBusTimeouts); ++timeout)
        table << " `--bus-timeout " << *timeout << "` |";
    table << "\n|---|---:|---:|---:|---:|---:|\n";
    for (const Row& row : kRows) {
        table << "| " << row.title << " | " << countsText(row.counts[chip]) << " |";
        for (const int timeout : kBusTimeouts)
            table << ' ' << timeText(longestOf(row, kChips[chip], timeout * 1000LL)) << " |";
        table << '\n';
    }
    return table.str();
}

/// The tables by the name that the page gives them.
std::map<std::string, std::string> tables()
{
    return {{"answers at once", tableOf(0)},
            {"never answers", tableOf(1)},
            {"answers half", tableOf(2)},
            {"answers every second", tableOf(3)},
            {"answers slowly", tableOf(4)},
            {"stuck", tableOfAStuckBus(1)},
            {"stuck until the last attempt", tableOfAStuckBus(4)}};
}

/// The page with the lines between "<!-- table: NAME -->" and the next empty line rewritten.
std::string withTables(const std::string& page)
{
    const auto made = tables();
    std::istringstream lines(page);
    std::string result;
    std::string line;
    bool inTable = false;
    while (std::getline(lines, line)) {
        inTable = inTable && !line.empty();
        if (!inTable)
            result += line + "\n";
        for (const auto& [name, table] : made) {
            if (line == "<!-- table: " + name + " -->") {
                result += table;
                inTable = true;
            }
        }
    }
    return result;
}

TEST(WorstCasesPageTest, HasTheTablesThatTheBusCounts)
{
    std::ifstream file(WORST_CASES_PAGE);
    const std::string page{std::istreambuf_iterator<char>(file), {}};
    const std::string expected = withTables(page);
    for (const auto& [name, table] : tables())
        EXPECT_TRUE(page.find("<!-- table: " + name + " -->\n") != std::string::npos) << name;
    if (const char* const written = std::getenv("AUTHCHIP_TEST_WRITE"))
        std::ofstream(written) << expected;
    else
        EXPECT_EQ(expected, page);
}

} // namespace
