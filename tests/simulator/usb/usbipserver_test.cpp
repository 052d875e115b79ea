#include "simulator/usb/usbipserver.h"

#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <thread>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "simulator/node/fronterror.h"
#include "simulator/node/i2cdevnode.h"
#include "simulator/simulation.h"
#include "tests/simulator/address.h"
#include "tests/simulator/chip/testcredentials.h"
#include "tests/simulator/usb/usbipclient.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using VorelKestrel::AL::U8;

namespace {

constexpr unsigned kRead = 1; // the I2C flag of a message from the chip

SimulationSettings quietSettings()
{
    SimulationSettings settings;
    settings.chip.busyTime = std::chrono::milliseconds(0);
    return settings;
}

class UsbIpServerTest : public testing::Test
{
protected:
    explicit UsbIpServerTest(const SimulationSettings& settings = quietSettings())
        : m_simulation(settings, testCredentials(generationOf(settings.chip.deviceVersion)), m_clock),
          m_device(m_simulation.bus()), m_server(m_device, 0), m_client(m_server.port())
    {}

    Bytes readRegister(U8 reg, std::size_t length)
    {
        EXPECT_EQ(1U, m_client.writeMessage(kAddress, {reg}));
        return m_client.vendorIn(7, kRead, kAddress, length).data;
    }

    ManualClock m_clock;
    Simulation m_simulation;
    I2cTinyUsb m_device;
    UsbIpServer m_server;
    UsbIpClient m_client;
};

/// With the device imported.
class I2cTinyUsbTest : public UsbIpServerTest
{
protected:
    explicit I2cTinyUsbTest(const SimulationSettings& settings = quietSettings()) : UsbIpServerTest(settings)
    {
        EXPECT_EQ(0U, m_client.import("1-1"));
    }
};

SimulationSettings busySettings()
{
    SimulationSettings settings = quietSettings();
    settings.chip.busyRefusals = 2;
    return settings;
}

class BusyI2cTinyUsbTest : public I2cTinyUsbTest
{
protected:
    BusyI2cTinyUsbTest() : I2cTinyUsbTest(busySettings()) {}
};

/// Until the end of the scope this process cannot open further descriptors.
class NoMoreDescriptors
{
public:
    NoMoreDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit limit = m_before;
        const ScopedDescriptor lowest(dup(STDIN_FILENO));
        limit.rlim_cur = static_cast<rlim_t>(lowest.get());
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit m_before = {};
};

/// Until the end of the scope this process starts no thread: each would have a stack that there is no room for.
class NoMoreThreads
{
public:
    NoMoreThreads()
    {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, std::numeric_limits<std::size_t>::max() / 4);
        EXPECT_EQ(0, pthread_setattr_default_np(&attributes));
        pthread_attr_destroy(&attributes);
    }
    ~NoMoreThreads()
    {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    pthread_attr_t m_before = {};
};

ScopedDescriptor unconnectedSocket()
{
    return ScopedDescriptor(socket(AF_INET, SOCK_STREAM, 0));
}

Bytes partOf(const Bytes& message, std::size_t place, std::size_t length)
{
    return {message.begin() + static_cast<std::ptrdiff_t>(place),
            message.begin() + static_cast<std::ptrdiff_t>(place + length)};
}

} // namespace

TEST_F(UsbIpServerTest, ListsOneDeviceOfTheKindThatTheKernelsDriverBindsTo)
{
    const Bytes list = m_client.deviceList();

    ASSERT_EQ(12U + 0x138 + 4, list.size());
    EXPECT_EQ((Bytes{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0, 0, 0, 0, 1}), partOf(list, 0, 12));
    EXPECT_STREQ("/sys/devices/simulated/usb1/1-1", reinterpret_cast<const char*>(&list[12]));
    EXPECT_STREQ("1-1", reinterpret_cast<const char*>(&list[12 + 256]));
    EXPECT_EQ((Bytes{0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 2}), partOf(list, 12 + 288, 12)) << "bus, device, speed";
    EXPECT_EQ((Bytes{0x04, 0x03, 0xc6, 0x31, 0x02, 0x05}), partOf(list, 12 + 300, 6)) << "vendor, product, release";
    EXPECT_EQ((Bytes{0xff, 0, 0, 1, 1, 1, 0xff, 0, 0, 0}), partOf(list, 12 + 306, 10)) << "class, counts, interface";
}

TEST_F(UsbIpServerTest, HangsUpAfterTheList)
{
    m_client.deviceList();

    EXPECT_TRUE(m_client.hungUp());
}

TEST_F(UsbIpServerTest, RefusesADeviceThatItDoesNotHave)
{
    EXPECT_EQ(4U, m_client.import("1-2"));
    EXPECT_TRUE(m_client.hungUp());
}

TEST_F(UsbIpServerTest, RefusesASecondImport)
{
    UsbIpClient second(m_server.port());

    EXPECT_EQ(0U, m_client.import("1-1"));
    EXPECT_EQ(2U, second.import("1-1"));
}

TEST_F(UsbIpServerTest, ListsTheDeviceWhileItIsImported)
{
    const UsbIpClient second(m_server.port());

    EXPECT_EQ(0U, m_client.import("1-1"));
    EXPECT_EQ(12U + 0x138 + 4, second.deviceList().size());
}

TEST_F(UsbIpServerTest, HangsUpOnAnotherVersionOfTheProtocol)
{
    m_client.send({0x01, 0x06, 0x80, 0x05, 0, 0, 0, 0});

    EXPECT_TRUE(m_client.hungUp());
}

TEST_F(UsbIpServerTest, RefusesAPortThatIsTaken)
{
    EXPECT_THROW(UsbIpServer(m_device, m_server.port()), FrontError);
}

TEST_F(UsbIpServerTest, HangsUpOnAClientThatAsksForNothing)
{
    UsbIpServer impatient(m_device, 0, {64, std::chrono::milliseconds(1)});
    const UsbIpClient silent(impatient.port());
    EXPECT_TRUE(silent.hungUp());
}

TEST_F(UsbIpServerTest, LetsTheClientThatHasTheDeviceBeSilent)
{
    UsbIpServer impatient(m_device, 0, {64, std::chrono::milliseconds(200)});
    auto client = std::make_unique<UsbIpClient>(impatient.port());
    while (client->tryToImport("1-1") != 0U) // on a loaded machine this one, too, may be too slow
        client = std::make_unique<UsbIpClient>(impatient.port());
    EXPECT_TRUE(UsbIpClient(impatient.port()).hungUp()); // the time is over
    EXPECT_EQ((Bytes{0x34, 0x12}), client->vendorIn(0, 0x1234, 0, 2).data);
}

TEST_F(UsbIpServerTest, HangsUpOnAClientThatAsksByteByByteForLongerThanASilentOneMay)
{
    constexpr auto kIdle = std::chrono::milliseconds(40);
    UsbIpServer impatient(m_device, 0, {64, kIdle});
    const UsbIpClient slow(impatient.port());
    for (const U8 byte : Bytes{0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0}) { // the request of the list
        std::this_thread::sleep_for(kIdle / 2);
        slow.offer({byte});
    }
    EXPECT_TRUE(slow.hungUp()); // and no list came
}

TEST_F(UsbIpServerTest, HangsUpOnClientsBeyondALimitAndServesOthersWhenThoseBeforeHaveGone)
{
    UsbIpServer server(m_device, 0, {2, std::chrono::hours(1)});
    {
        const UsbIpClient first(server.port());
        const UsbIpClient second(server.port());
        EXPECT_TRUE(UsbIpClient(server.port()).hungUp());
    }
    bool served = false;
    while (!served) // until the server has noticed that the two are gone
        served = UsbIpClient(server.port()).deviceList().size() > 12;
    EXPECT_TRUE(served);
}

TEST_F(UsbIpServerTest, GoesOnWhenItHasDescriptorsAgain)
{
    UsbIpClient first(unconnectedSocket());
    UsbIpClient second(unconnectedSocket());
    {
        const NoMoreDescriptors shortage;
        first.connectTo(m_server.port()); // may take the descriptor that the server has waited with
        second.connectTo(m_server.port());
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the server's chance to give up
    }
    EXPECT_EQ(12U + 0x138 + 4, first.deviceList().size());
    EXPECT_EQ(12U + 0x138 + 4, second.deviceList().size());
}

TEST_F(UsbIpServerTest, GoesOnWhenItHasThreadsAgain)
{
    {
        const NoMoreThreads shortage;
        EXPECT_TRUE(UsbIpClient(m_server.port()).hungUp());
    }
    EXPECT_EQ(12U + 0x138 + 4, UsbIpClient(m_server.port()).deviceList().size());
}

TEST_F(UsbIpServerTest, EndsWhileAClientIsConnected)
{
    const UsbIpClient silent(m_server.port());
    // The destructor runs behind this test and would hang.
}

TEST_F(I2cTinyUsbTest, DescribesItselfAndItsConfiguration)
{
    EXPECT_EQ((Bytes{18, 1, 0x10, 0x01, 0xff, 0, 0, 64}), m_client.submit(0, true, {0x80, 6, 0x0100, 0, 8}).data);
    const Bytes device = m_client.submit(0, true, {0x80, 6, 0x0100, 0, 64}).data;
    EXPECT_EQ((Bytes{0x03, 0x04, 0x31, 0xc6, 0x05, 0x02, 1, 2, 3, 1}), partOf(device, 8, 10));

    const Bytes configuration = m_client.submit(0, true, {0x80, 6, 0x0200, 0, 255}).data;
    EXPECT_EQ((Bytes{9, 2, 18, 0, 1, 1, 0, 0x80, 5, 9, 4, 0, 0, 0, 0xff, 0, 0, 0}), configuration);
}

TEST_F(I2cTinyUsbTest, NamesItself)
{
    EXPECT_EQ((Bytes{4, 3, 0x09, 0x04}), m_client.submit(0, true, {0x80, 6, 0x0300, 0, 255}).data);
    EXPECT_EQ((Bytes{10, 3, '0', 0, '0', 0, '0', 0, '1', 0}),
              m_client.submit(0, true, {0x80, 6, 0x0303, 0x0409, 255}).data);
}

TEST_F(I2cTinyUsbTest, IsConfigured)
{
    EXPECT_EQ((Bytes{0}), m_client.submit(0, true, {0x80, 8, 0, 0, 1}).data);
    EXPECT_EQ(0, m_client.submit(0, false, {0x00, 9, 1, 0, 0}).status);
    EXPECT_EQ((Bytes{1}), m_client.submit(0, true, {0x80, 8, 0, 0, 1}).data);
    EXPECT_EQ(-EPIPE, m_client.submit(0, false, {0x00, 9, 2, 0, 0}).status);
}

TEST_F(I2cTinyUsbTest, StallsWhatItDoesNotKnow)
{
    EXPECT_EQ(-EPIPE, m_client.submit(0, true, {0x80, 6, 0x0600, 0, 10}).status) << "a qualifier";
    EXPECT_EQ(-EPIPE, m_client.submit(0, true, {0x80, 6, 0x0201, 0, 9}).status) << "a second configuration";
    EXPECT_EQ(-EPIPE, m_client.submit(0, true, {0x80, 6, 0x0304, 0, 9}).status) << "a fourth string";
    EXPECT_EQ(-EPIPE, m_client.vendorIn(8, 0, 0, 1).status);
    EXPECT_EQ(-EPIPE, m_client.submit(1, true, {0xc1, 3, 0, 0, 1}).status) << "another endpoint";
}

TEST_F(I2cTinyUsbTest, EchoesAValue)
{
    EXPECT_EQ((Bytes{0x34, 0x12}), m_client.vendorIn(0, 0x1234, 0, 2).data);
}

TEST_F(I2cTinyUsbTest, TellsTheFunctionsOfTheSimulatedNode)
{
    const Bytes functions = m_client.vendorIn(1, 0, 0, 4).data;

    ASSERT_EQ(4U, functions.size());
    EXPECT_EQ(kBusFunctions, functions[0] | functions[1] << 8U | functions[2] << 16U |
                                 static_cast<unsigned long>(functions[3]) << 24U);
}

TEST_F(I2cTinyUsbTest, TakesADelay)
{
    EXPECT_EQ(0, m_client.vendorOut(2, 10, 0).status);
}

TEST_F(I2cTinyUsbTest, HasNoStatusBeforeTheFirstMessage)
{
    EXPECT_EQ(0U, m_client.status());
}

TEST_F(I2cTinyUsbTest, ReadsARegisterInTwoTransfers)
{
    EXPECT_EQ((Bytes{7, 1, 3, 0}), readRegister(0x00, 4));
    EXPECT_EQ(1U, m_client.status());
}

TEST_F(I2cTinyUsbTest, ReadsARegisterInOneTransfer)
{
    EXPECT_EQ(1U, m_client.vendorOut(4 + 1, 0, kAddress, {0x04}).count);
    EXPECT_EQ(1U, m_client.status());
    EXPECT_EQ((Bytes{0, 0, 2, 0}), m_client.vendorIn(4 + 2, kRead, kAddress, 4).data);
}

TEST_F(I2cTinyUsbTest, StallsAMessageOutsideOfATransfer)
{
    EXPECT_EQ(-EPIPE, m_client.vendorOut(4, 0, kAddress, {0x00}).status);
    EXPECT_EQ(1U, m_client.writeMessage(kAddress, {0x00}));
    EXPECT_EQ(-EPIPE, m_client.vendorIn(4 + 2, kRead, kAddress, 1).status) << "the transfer has ended";
}

TEST_F(I2cTinyUsbTest, BeginsANewTransferAfterOneThatWasNotEnded)
{
    m_client.vendorOut(4 + 1, 0, kAddress + 1, {0x00});

    EXPECT_EQ(1U, m_client.writeMessage(kAddress, {0x00}));
}

TEST_F(I2cTinyUsbTest, TellsThatNobodyAnswersAtAnAddress)
{
    EXPECT_EQ(2U, m_client.writeMessage(kAddress + 1, {0x00}));
    EXPECT_EQ(2U, m_client.writeMessage(kAddress + 1, {})) << "as i2cdetect asks";
    EXPECT_EQ(1U, m_client.writeMessage(kAddress, {}));

    const Completion read = m_client.vendorIn(7, kRead, kAddress + 1, 3);
    EXPECT_EQ((Bytes{0xff, 0xff, 0xff}), read.data) << "the driver looks at the length before it asks for the status";
    EXPECT_EQ(2U, m_client.status());
}

TEST_F(I2cTinyUsbTest, MovesTheLongestMessageThatTheKernelSends)
{
    EXPECT_EQ(8192U, readRegister(0x00, 8192).size());
    EXPECT_EQ(2U, m_client.writeMessage(kAddress, Bytes(8192))) << "a byte is refused";
}

TEST_F(I2cTinyUsbTest, StallsAMessageThatFails)
{
    Faults faults;
    faults.failedReads = 1;
    m_simulation.faults().inject(faults);

    EXPECT_EQ(-EPIPE, m_client.vendorIn(7, kRead, kAddress, 1).status);
    EXPECT_EQ(0, m_client.vendorIn(7, kRead, kAddress, 1).status);
}

TEST_F(I2cTinyUsbTest, EndsAReadEarlyIfItIsShort)
{
    Faults faults;
    faults.shortReads = 1;
    m_simulation.faults().inject(faults);

    EXPECT_EQ(3U, m_client.vendorIn(7, kRead, kAddress, 4).count);
}

TEST_F(I2cTinyUsbTest, FindsATransferDoneWhenItIsGivenUp)
{
    m_client.vendorIn(3, 0, 0, 1);

    EXPECT_EQ(0, m_client.unlink());
    EXPECT_EQ((Bytes{7}), readRegister(0x00, 1));
}

TEST_F(I2cTinyUsbTest, HangsUpOnATransferThatIsNoControlTransfer)
{
    Bytes request{0, 0, 0, 1};
    request.resize(48);
    request[0x23] = 5; // isochronous packets
    m_client.send(request);

    EXPECT_TRUE(m_client.hungUp());
}

TEST_F(I2cTinyUsbTest, HangsUpOnALengthBeyondControlTransfers)
{
    Bytes request{0, 0, 0, 1};
    request.resize(48);
    request[0x19] = 1; // 65536 bytes
    m_client.send(request);

    EXPECT_TRUE(m_client.hungUp());
}

TEST_F(I2cTinyUsbTest, HangsUpOnAnUnknownCommand)
{
    Bytes request{0, 0, 0, 9};
    request.resize(48);
    m_client.send(request);

    EXPECT_TRUE(m_client.hungUp());
}

TEST_F(BusyI2cTinyUsbTest, CountsRefusalsAfterTheStartCommand)
{
    Bytes challenge(33, 1);
    challenge[0] = 0x21;
    EXPECT_EQ(1U, m_client.writeMessage(kAddress, challenge));
    EXPECT_EQ(1U, m_client.writeMessage(kAddress, {0x10, 1}));

    EXPECT_EQ(2U, m_client.writeMessage(kAddress, {0x10}));
    EXPECT_EQ(2U, m_client.writeMessage(kAddress, {0x10}));
    EXPECT_EQ((Bytes{0x10}), readRegister(0x10, 1));
}
