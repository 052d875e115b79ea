#include <cstdlib>
#include <ostream>
#include <type_traits>

#include <gtest/gtest.h>

#include <abstractionlibrary/event.h>
#include <abstractionlibrary/globalmutex.h>
#include <abstractionlibrary/mutex.h>
#include <abstractionlibrary/queue.h>
#include <abstractionlibrary/tcpsocket.h>
#include <abstractionlibrary/thread.h>

#include "tests/support/assertionfailed.h"
#include "tests/support/corruption.h"
#include "tests/support/faketimeofday.h"
#include "tests/support/objectallocations.h"
#include "tests/support/privatelocks.h"

using namespace VorelKestrel::AL; // every class of it is tested here
using namespace testsupport;

namespace {

class IdleThread : public Thread
{
public:
    void run() override {}
};

template<typename Object>
constexpr bool isNotCopyable()
{
    return !std::is_copy_constructible<Object>::value && !std::is_copy_assignable<Object>::value;
}

static_assert(isNotCopyable<Mutex>() && sizeof(Mutex) == sizeof(void*), "a record");
static_assert(isNotCopyable<GlobalMutex>() && sizeof(GlobalMutex) == sizeof(void*), "a record");
static_assert(isNotCopyable<EventVoid>() && sizeof(EventVoid) == 2 * sizeof(void*), "a value and a record");
static_assert(isNotCopyable<QueueVoid>() && sizeof(QueueVoid) == 2 * sizeof(void*), "an unused slot and a record");
static_assert(isNotCopyable<IdleThread>() && sizeof(Thread) == 2 * sizeof(void*), "virtual functions and a record");
static_assert(isNotCopyable<TCPSocket>() && sizeof(TCPSocket) == sizeof(void*), "a record");
static_assert(isNotCopyable<TCPClientSocket>() && sizeof(TCPClientSocket) == sizeof(void*), "as its base");
static_assert(isNotCopyable<TCPServer>() && sizeof(TCPServer) == sizeof(void*), "a record");
static_assert(!std::is_polymorphic<Mutex>::value && !std::is_polymorphic<GlobalMutex>::value, "not virtual");
static_assert(!std::is_polymorphic<EventVoid>::value && !std::is_polymorphic<QueueVoid>::value, "not virtual");
static_assert(!std::is_polymorphic<TCPClientSocket>::value && !std::is_polymorphic<TCPServer>::value, "not virtual");
static_assert(std::has_virtual_destructor<Thread>::value && std::is_abstract<Thread>::value, "a base class");
static_assert(!std::is_base_of<TCPSocket, TCPServer>::value, "a class of its own");

struct RecordUse
{
    const char* name;
    void (*callWithoutRecord)();
};

void PrintTo(const RecordUse& operation, std::ostream* out)
{
    *out << operation.name;
}

template<typename Object, void (*call)(Object&)>
void callWithoutRecord()
{
    Object object;
    loseRecord(object);
    call(object);
}

template<typename Object>
void destroyWithoutRecord()
{
    Object object;
    loseRecord(object);
}

int g_anything = 0;

void lock(Mutex& mutex)
{
    mutex.lock();
}
void tryLock(Mutex& mutex)
{
    mutex.tryLock();
}
void unlock(Mutex& mutex)
{
    mutex.unlock();
}
void lock(GlobalMutex& mutex)
{
    mutex.lock();
}
void unlock(GlobalMutex& mutex)
{
    mutex.unlock();
}
void wait(EventVoid& event)
{
    event.wait(0);
}
void set(EventVoid& event)
{
    event.set(&g_anything);
}
void setNull(EventVoid& event)
{
    event.set(nullptr);
} // both assertions would fail: the record's comes first
void push(QueueVoid& queue)
{
    queue.push(&g_anything);
}
void pushNull(QueueVoid& queue)
{
    queue.push(nullptr);
}
void pop(QueueVoid& queue)
{
    int timeout = 0;
    queue.pop(timeout);
}
void start(IdleThread& thread)
{
    thread.start();
}
void isRunning(IdleThread& thread)
{
    thread.isRunning();
}
void join(IdleThread& thread)
{
    thread.join();
}
void send(TCPSocket& socket)
{
    socket.send("", 1);
}
void sendU8(TCPSocket& socket)
{
    socket.sendU8(0);
}
void sendU16(TCPSocket& socket)
{
    socket.sendU16(0);
}
void sendU32(TCPSocket& socket)
{
    socket.sendU32(0);
}
void receive(TCPSocket& socket)
{
    socket.receive(&g_anything, 1);
}
void receiveU8(TCPSocket& socket)
{
    U8 value = 0;
    socket.receiveU8(value);
}
void receiveU16(TCPSocket& socket)
{
    U16 value = 0;
    socket.receiveU16(value);
}
void receiveU32(TCPSocket& socket)
{
    U32 value = 0;
    socket.receiveU32(value);
}
void close(TCPSocket& socket)
{
    socket.close();
}
void connect(TCPClientSocket& socket)
{
    socket.connect("127.0.0.1", 1);
}
void listen(TCPServer& server)
{
    server.listen(0);
}
void accept(TCPServer& server)
{
    server.accept();
}
void close(TCPServer& server)
{
    server.close();
}

const RecordUse kOperations[] = {
    {"Mutex_Destructor", destroyWithoutRecord<Mutex>},
    {"Mutex_lock", callWithoutRecord<Mutex, lock>},
    {"Mutex_tryLock", callWithoutRecord<Mutex, tryLock>},
    {"Mutex_unlock", callWithoutRecord<Mutex, unlock>},
    {"GlobalMutex_Destructor", destroyWithoutRecord<GlobalMutex>},
    {"GlobalMutex_lock", callWithoutRecord<GlobalMutex, lock>},
    {"GlobalMutex_unlock", callWithoutRecord<GlobalMutex, unlock>},
    {"EventVoid_Destructor", destroyWithoutRecord<EventVoid>},
    {"EventVoid_wait", callWithoutRecord<EventVoid, wait>},
    {"EventVoid_set", callWithoutRecord<EventVoid, set>},
    {"EventVoid_setNull", callWithoutRecord<EventVoid, setNull>},
    {"QueueVoid_Destructor", destroyWithoutRecord<QueueVoid>},
    {"QueueVoid_push", callWithoutRecord<QueueVoid, push>},
    {"QueueVoid_pushNull", callWithoutRecord<QueueVoid, pushNull>},
    {"QueueVoid_pop", callWithoutRecord<QueueVoid, pop>},
    {"Thread_Destructor", destroyWithoutRecord<IdleThread>},
    {"Thread_start", callWithoutRecord<IdleThread, start>},
    {"Thread_isRunning", callWithoutRecord<IdleThread, isRunning>},
    {"Thread_join", callWithoutRecord<IdleThread, join>},
    {"TCPSocket_Destructor", destroyWithoutRecord<TCPSocket>},
    {"TCPSocket_send", callWithoutRecord<TCPSocket, send>},
    {"TCPSocket_sendU8", callWithoutRecord<TCPSocket, sendU8>},
    {"TCPSocket_sendU16", callWithoutRecord<TCPSocket, sendU16>},
    {"TCPSocket_sendU32", callWithoutRecord<TCPSocket, sendU32>},
    {"TCPSocket_receive", callWithoutRecord<TCPSocket, receive>},
    {"TCPSocket_receiveU8", callWithoutRecord<TCPSocket, receiveU8>},
    {"TCPSocket_receiveU16", callWithoutRecord<TCPSocket, receiveU16>},
    {"TCPSocket_receiveU32", callWithoutRecord<TCPSocket, receiveU32>},
    {"TCPSocket_close", callWithoutRecord<TCPSocket, close>},
    {"TCPClientSocket_Destructor", destroyWithoutRecord<TCPClientSocket>},
    {"TCPClientSocket_connect", callWithoutRecord<TCPClientSocket, connect>},
    {"TCPServer_Destructor", destroyWithoutRecord<TCPServer>},
    {"TCPServer_listen", callWithoutRecord<TCPServer, listen>},
    {"TCPServer_accept", callWithoutRecord<TCPServer, accept>},
    {"TCPServer_close", callWithoutRecord<TCPServer, close>},
};

class LostRecordDeathTest : public ::testing::TestWithParam<RecordUse>
{
private:
    const PrivateLocks m_locks;
};

TEST_P(LostRecordDeathTest, AnObjectThatHasLostItsRecordStopsTheProcessAtTheAssertionOfIt)
{
    EXPECT_DEATH(GetParam().callWithoutRecord(), assertionFailed("m_data"));
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, LostRecordDeathTest, ::testing::ValuesIn(kOperations),
                         [](const auto& test) { return test.param.name; });

struct Construction
{
    const char* name;
    void (*construct)();
    int allocations; // that the class makes itself: what Qt allocates in them is Qt's to undo
};

void PrintTo(const Construction& construction, std::ostream* out)
{
    *out << construction.name;
}

template<typename Object>
void construct()
{
    const Object object;
}

const Construction kConstructions[] = {
    {"Mutex", construct<Mutex>, 1},
    {"GlobalMutex", construct<GlobalMutex>, 2},
    {"EventVoid", construct<EventVoid>, 1},
    {"QueueVoid", construct<QueueVoid>, 1},
    {"Thread", construct<IdleThread>, 1},
    {"TCPSocket", construct<TCPSocket>, 1},
    {"TCPClientSocket", construct<TCPClientSocket>, 1},
    {"TCPServer", construct<TCPServer>, 1},
};

class ConstructionTest : public ::testing::TestWithParam<Construction>
{
private:
    const PrivateLocks m_locks;
};

TEST_P(ConstructionTest, PassesTheAllocatorsExceptionOnAndKeepsNothing)
{
    for (int failing = 1; failing <= GetParam().allocations; ++failing) {
        const ObjectAllocations allocations(failing);
        EXPECT_THROW(GetParam().construct(), std::bad_alloc);
        // The exception object and GoogleTest's data do not come from this thread's `new`, or are freed by now.
        EXPECT_EQ(0, allocations.outstanding()) << "when allocation " << failing << " fails";
    }
}

TEST_P(ConstructionTest, IsUndoneByTheDestructor)
{
    GetParam().construct(); // what Qt sets up once per process and thread is there now

    const ObjectAllocations allocations;
    GetParam().construct();
    EXPECT_EQ(0, allocations.outstanding());
}

TEST(PrivateRecordTest, OfAGlobalMutexIsOnePointerThatIsMadeOnceAsTheSemaphoreIs)
{
    const PrivateLocks locks;
    const ObjectAllocations allocations;
    const GlobalMutex mutex;

    EXPECT_EQ(2, allocations.made(sizeof(void*)));
}

TEST(PrivateRecordDeathTest, AQueueThatHasLostItsRecordDoesNotReadTheTime)
{
    FakeTimeOfDay clock({0});
    clock.atTheFirstReading([] { std::_Exit(EXIT_SUCCESS); });

    EXPECT_DEATH((callWithoutRecord<QueueVoid, pop>()), assertionFailed("m_data"));
}

INSTANTIATE_TEST_SUITE_P(EveryClass, ConstructionTest, ::testing::ValuesIn(kConstructions),
                         [](const auto& test) { return test.param.name; });

} // namespace
