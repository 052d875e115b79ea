// The objects that hosts hold in memory of their own, from outside: what they measure and which word holds what.

#include <climits>
#include <type_traits>

#include <gtest/gtest.h>

#include <abstractionlibrary/debugstdiologger.h>
#include <abstractionlibrary/event.h>
#include <abstractionlibrary/globalmutex.h>
#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/tcpsocket.h>
#include <abstractionlibrary/thread.h>
#include <abstractionlibrary/types.h>
#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/authchipfactory.h>

#include "tests/binaryinterface/vtable.h"

using namespace VorelKestrel;

namespace {

constexpr std::size_t kWord = sizeof(void*);

template<typename Type>
void expectLayout(std::size_t words, bool polymorphic)
{
    EXPECT_EQ(words * kWord, sizeof(Type));
    EXPECT_EQ(kWord, alignof(Type));
    EXPECT_EQ(polymorphic, std::is_polymorphic<Type>::value);
}

TEST(LayoutTest, TheIntegersHaveTheBitsOfTheirNames)
{
    EXPECT_EQ(8U, sizeof(AL::U8) * CHAR_BIT);
    EXPECT_EQ(16U, sizeof(AL::U16) * CHAR_BIT);
    EXPECT_EQ(32U, sizeof(AL::U32) * CHAR_BIT);
    EXPECT_TRUE(std::is_unsigned<AL::U8>::value && std::is_unsigned<AL::U16>::value &&
                std::is_unsigned<AL::U32>::value);
}

TEST(LayoutTest, ErrorsHaveTheirNumbersInAnUnsignedOfFourBytes)
{
    EXPECT_EQ(0, ACD::Success);
    EXPECT_EQ(1, ACD::ErrorI2C);
    EXPECT_EQ(2, ACD::ErrorInvalid);
    EXPECT_EQ(4U, sizeof(ACD::Error));
}

TEST(LayoutTest, EveryClassMeasuresItsDocumentedWords)
{
    expectLayout<AL::Mutex>(1, false);
    expectLayout<AL::GlobalMutex>(1, false);
    expectLayout<AL::EventVoid>(2, false);
    expectLayout<AL::QueueVoid>(2, false);
    expectLayout<AL::TCPSocket>(1, false);
    expectLayout<AL::TCPClientSocket>(1, false);
    expectLayout<AL::TCPServer>(1, false);
    EXPECT_EQ(sizeof(int), sizeof(AL::DebugStdioLogger));
    EXPECT_FALSE(std::is_polymorphic<AL::DebugStdioLogger>::value);
}

TEST(LayoutTest, DriversAreATablePointerAndThreadsOneMoreWord)
{
    expectLayout<ACD::AuthChipDriver>(1, true);
    expectLayout<ACD::AuthChipDriver20B>(1, true);
    expectLayout<ACD::AuthChipDriver30>(1, true);
    expectLayout<AL::Thread>(2, true);
    EXPECT_TRUE(std::is_empty<ACD::AuthChipFactory>::value); // its one member is static
}

TEST(LayoutTest, AMutexIsOnePointerToItsRecord)
{
    const AL::Mutex mutex;
    const AL::GlobalMutex globalMutex;
    EXPECT_NE(nullptr, wordOf<void*>(mutex, 0));
    EXPECT_NE(nullptr, wordOf<void*>(globalMutex, 0));
}

TEST(LayoutTest, AnEventHoldsItsValueInTheFirstWordAndItsRecordInTheSecond)
{
    AL::EventVoid event;
    int value = 0;
    EXPECT_EQ(nullptr, wordOf<void*>(event, 0));
    event.set(&value);
    EXPECT_EQ(&value, wordOf<void*>(event, 0));
    EXPECT_NE(nullptr, wordOf<void*>(event, 1));
}

TEST(LayoutTest, AQueuesFirstWordStaysNullAndItsRecordIsInTheSecond)
{
    AL::QueueVoid queue;
    int value = 0;
    queue.push(&value);
    EXPECT_EQ(nullptr, wordOf<void*>(queue, 0));
    EXPECT_NE(nullptr, wordOf<void*>(queue, 1));
}

TEST(LayoutTest, AThreadsSecondWordIsItsRecord)
{
    class HostsThread : public AL::Thread
    {
        void run() override {}
    };
    const HostsThread thread;
    EXPECT_NE(nullptr, wordOf<void*>(thread, 1));
}

TEST(LayoutTest, ASocketsWordLeadsToADescriptorThatIsMinusOneWhileClosed)
{
    const AL::TCPSocket socket;
    const AL::TCPClientSocket client;
    const AL::TCPServer server;
    EXPECT_EQ(-1, *wordOf<const int*>(socket, 0));
    EXPECT_EQ(-1, *wordOf<const int*>(client, 0));
    EXPECT_EQ(-1, *wordOf<const int*>(server, 0));
}

TEST(LayoutTest, ALoggerIsItsLevel)
{
    AL::DebugStdioLogger logger;
    logger.setLogLevel(0x1234);
    EXPECT_EQ(0x1234, wordOf<int>(logger, 0));
}

} // namespace
