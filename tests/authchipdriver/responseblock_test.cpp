// The block that a signing operation allocates for its caller: when it is allocated, how large it is, and when it is
// freed if the caller gets none. The journal has malloc and free between the transfers and the lines.

#include <cstdlib>
#include <ostream>
#include <stdexcept>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/allocations.h"
#include "tests/support/drivertest.h"
#include "tests/support/throwingconsole.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U8;

// At global scope: cases are called by them.
struct Protocol20B
{
    using Driver = AuthChipDriver20B;
    static constexpr const char* kReadLine = "DEBUG Successfully generated signature, length=";
    static constexpr const char* kFailureLine = "ERROR Failed to read signature data";
    static constexpr const char* kExitLine = "TRACE Leave label: result=0";
};

struct Protocol30
{
    using Driver = AuthChipDriver30;
    static constexpr const char* kReadLine = "DEBUG Successfully read challenge response";
    static constexpr const char* kFailureLine = "ERROR Failed to read challenge response data";
    static constexpr const char* kExitLine = "TRACE Leave label: result=Success";
};

namespace {

/// A chip whose answer has a length that the process allocates nowhere else; TRACE is on.
template<typename Generation>
class ResponseBlockTest : public OpenBusTest
{
protected:
    static constexpr int kLength = 211;

    ResponseBlockTest()
    {
        m_bus.holds(0x20, {0, 32}).holds(0x10, {0x10}).holds(0x11, {0, kLength}).holds(0x12, counting(kLength));
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
        m_journal.clear();
    }
    ~ResponseBlockTest() override { std::free(m_answer); }

    Error sign(std::size_t watchedSize = kLength)
    {
        const Bytes challenge = counting(32);
        const allocations::Watch watch(watchedSize, m_journal);
        return m_driver.newSignature(challenge.data(), 32, &m_answer, &m_length);
    }
    /// The journal from the allocation of the block on.
    std::vector<std::string> journalFromTheBlockOn() const
    {
        auto entries = m_journal.all();
        auto first = entries.begin();
        while (first != entries.end() && first->rfind("malloc", 0) != 0)
            ++first;
        return std::vector<std::string>(first, entries.end());
    }
    /// Throws at the record that begins so.
    void throwAt(const std::string& line)
    {
        m_log.beforeEachRecord([line](const std::string& message) {
            if (message.rfind(line, 0) == 0)
                throw std::runtime_error("appender");
        });
    }

    typename Generation::Driver m_driver;
    U8* m_answer = nullptr;
    int m_length = 0;
};

using Generations = ::testing::Types<Protocol20B, Protocol30>;
TYPED_TEST_SUITE(ResponseBlockTest, Generations);

const std::string kMalloc = "malloc 211";
const std::string kFree = "free 211";
const std::string kRead = "read 211";

TYPED_TEST(ResponseBlockTest, HasExactlyTheReportedLengthAndIsTheCallersAfterSuccess)
{
    EXPECT_EQ(Success, this->sign());
    const auto entries = this->journalFromTheBlockOn();
    ASSERT_EQ(6U, entries.size());
    EXPECT_THAT(entries, ElementsAre(kMalloc, "write 12", kRead, ::testing::StartsWith(TypeParam::kReadLine),
                                     TypeParam::kExitLine, "unlock"));
}

TYPED_TEST(ResponseBlockTest, IsAllocatedAfterItsLengthHasBeenRead)
{
    this->sign();

    const auto all = this->m_journal.all();
    const auto block = std::find(all.begin(), all.end(), kMalloc);
    ASSERT_NE(all.end(), block);
    EXPECT_EQ(1, std::count(all.begin(), block, "write 11"));
    EXPECT_EQ(1, std::count(all.begin(), block, "read 2") - std::count(all.begin(), block, "write 20"));
}

TYPED_TEST(ResponseBlockTest, IsAllocatedAfterItsLengthHasBeenStored)
{
    const Bytes challenge = counting(32);
    int lengthAtMalloc = -77;
    const allocations::Watch watch(this->kLength, this->m_journal, [&] { lengthAtMalloc = this->m_length; });

    EXPECT_EQ(Success, this->m_driver.newSignature(challenge.data(), 32, &this->m_answer, &this->m_length));
    EXPECT_EQ(this->kLength, lengthAtMalloc);
}

TYPED_TEST(ResponseBlockTest, OfLength0IsAskedOfMallocToo)
{
    this->m_bus.holds(0x11, {0, 0});

    EXPECT_EQ(Success, this->sign(0));
    EXPECT_THAT(this->journalFromTheBlockOn(),
                ElementsAre("malloc 0", "write 12", "read 0", ::testing::StartsWith(TypeParam::kReadLine),
                            TypeParam::kExitLine, "unlock"));
}

TYPED_TEST(ResponseBlockTest, OfAShortAnswerIsFreedAfterTheErrorLineAndBeforeTheBusIsReleased)
{
    this->m_bus.deliversOnly(0x12, this->kLength - 1);

    EXPECT_EQ(ErrorI2C, this->sign());
    EXPECT_THAT(this->journalFromTheBlockOn(),
                ElementsAre(kMalloc, "write 12", kRead, TypeParam::kFailureLine, kFree, "unlock"));
}

TYPED_TEST(ResponseBlockTest, OfAShortAnswerIsTheCallersPointerUntilTheErrorLineAndNullWhenTheBusIsReleased)
{
    const std::string failure = std::string(TypeParam::kFailureLine).substr(std::string("ERROR ").size());
    bool wasThereAtTheLine = false;
    bool wasNullAtTheEnd = false;
    this->m_bus.deliversOnly(0x12, 1).during("unlock", [&] { wasNullAtTheEnd = this->m_answer == nullptr; });
    this->m_log.beforeEachRecord([&](const std::string& message) {
        if (message == failure)
            wasThereAtTheLine = this->m_answer != nullptr;
    });

    EXPECT_EQ(ErrorI2C, this->sign());
    EXPECT_TRUE(wasThereAtTheLine);
    EXPECT_TRUE(wasNullAtTheEnd);
}

TYPED_TEST(ResponseBlockTest, IsFreedBeforeTheBusIsReleasedWhenALineThrows)
{
    for (const std::string line : {"Successfully", "Leave"}) {
        this->throwAt(line);
        this->m_journal.clear();
        EXPECT_THROW(this->sign(), std::runtime_error);
        const auto entries = this->journalFromTheBlockOn();
        ASSERT_GT(entries.size(), 2U);
        EXPECT_THAT(std::vector<std::string>(entries.end() - 2, entries.end()), ElementsAre(kFree, "unlock")) << line;
        EXPECT_EQ(nullptr, this->m_answer) << line;
    }
}

TYPED_TEST(ResponseBlockTest, IsFreedWhenTheLineAboutTheEndOfTheTransactionThrows)
{
    ConsoleLog::setLevel(6);
    EXPECT_EQ(Success, this->sign());
    std::free(this->m_answer);
    this->m_answer = nullptr;
    const ThrowingConsole console(static_cast<int>(this->m_console.lines().size()));
    this->m_journal.clear();

    EXPECT_THROW(this->sign(), std::bad_alloc);
    EXPECT_EQ(nullptr, this->m_answer);
    const auto calls = this->m_journal.only(Journal::Kind::Call);
    ASSERT_GT(calls.size(), 2U);
    EXPECT_THAT(std::vector<std::string>(calls.end() - 2, calls.end()), ElementsAre("unlock", kFree));
}

} // namespace
