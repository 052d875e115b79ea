#include "simulator/usb/vhciattachment.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include <gtest/gtest.h>

#include "simulator/node/fronterror.h"
#include "simulator/simulation.h"
#include "simulator/usb/i2ctinyusb.h"
#include "tests/simulator/chip/testcredentials.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

constexpr const char* kController = "sys/devices/platform/vhci_hcd.0";
constexpr const char* kHeading = "hub port sta spd dev      sockfd local_busid\n";

/// The files of a kernel with the modules and, from the first look on, our device on the second port.
class Kernel
{
public:
    Kernel()
    {
        std::string folder = fs::temp_directory_path() / "kernelXXXXXX";
        m_root = mkdtemp(folder.data());
        for (const char* there : {kController, "sys/bus/usb/drivers/i2c-tiny-usb", "sys/class/i2c-dev", "dev",
                                  "sys/bus/usb/devices/1-2:1.0/i2c-4"})
            fs::create_directories(m_root / there);
        set("attach", "");
        set("detach", "");
        set("status", std::string(kHeading) + "hs  0000 006 003 00010002 000003 1-1\n" +
                          "hs  0001 004 000 00000000 000000 1-2\n" + "ss  0008 004 000 00000000 000000 0-0\n");
        std::ofstream(m_root / "dev/i2c-4");
    }
    ~Kernel() { fs::remove_all(m_root); }
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    const fs::path& root() const { return m_root; }
    void set(const char* file, const std::string& text) const { std::ofstream(m_root / kController / file) << text; }
    void lose(const char* path) const { fs::remove_all(m_root / path); }

    std::string written(const char* file) const
    {
        std::ifstream stream(m_root / kController / file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    fs::path m_root;
};

class VhciAttachmentTest : public testing::Test
{
protected:
    std::unique_ptr<VhciAttachment> attach()
    {
        return std::make_unique<VhciAttachment>(m_device, m_kernel.root(), 10s);
    }

    std::string complaint()
    {
        try {
            attach();
        } catch (const FrontError& error) {
            return error.what();
        }
        return "none";
    }

    Kernel m_kernel;
    ManualClock m_clock;
    Simulation m_simulation{{}, testCredentials(kGeneration30), m_clock};
    I2cTinyUsb m_device{m_simulation.bus()};
};

} // namespace

TEST_F(VhciAttachmentTest, PlugsTheDeviceIntoAFreePortAndNamesItsNode)
{
    const auto attachment = attach();

    EXPECT_EQ("/dev/i2c-4", attachment->node());
    const std::string request = m_kernel.written("attach");
    EXPECT_EQ("1 ", request.substr(0, 2)) << "the port";
    EXPECT_EQ(" 65538 2", request.substr(request.find(' ', 2))) << "the device, at full speed";
    m_kernel.lose("dev/i2c-4"); // for which the destructor waits
}

TEST_F(VhciAttachmentTest, PullsTheDeviceOutAtTheEnd)
{
    auto attachment = attach();
    EXPECT_EQ("", m_kernel.written("detach"));

    m_kernel.lose("dev/i2c-4"); // for which the destructor waits
    attachment.reset();

    EXPECT_EQ("1", m_kernel.written("detach"));
}

TEST_F(VhciAttachmentTest, NamesTheModulesThatAreMissing)
{
    m_kernel.lose("sys/bus/usb/drivers/i2c-tiny-usb");
    EXPECT_EQ("the kernel lacks i2c-tiny-usb; as root, run: modprobe -a i2c-tiny-usb", complaint());

    m_kernel.lose("sys");
    EXPECT_EQ("the kernel lacks vhci-hcd i2c-tiny-usb i2c-dev; as root, run: modprobe -a vhci-hcd i2c-tiny-usb i2c-dev",
              complaint());
}

/// Another kind of adapter, whose driver the kernel lacks.
class OtherUsbAdapter : public UsbAdapter
{
public:
    std::optional<ControlAnswer> control(const ControlRequest& /*request*/, const Bytes& /*data*/) override
    {
        return std::nullopt;
    }
    Bytes deviceDescriptor() const override { return {}; }
    Bytes configurationDescriptor() const override { return {}; }
    const char* driver() const override { return "i2c-other"; }
};

TEST_F(VhciAttachmentTest, NamesTheModuleOfTheAdapterThatItAttaches)
{
    OtherUsbAdapter adapter;
    try {
        const VhciAttachment attachment(adapter, m_kernel.root(), 10s);
        FAIL() << "attached without a driver";
    } catch (const FrontError& error) {
        EXPECT_STREQ("the kernel lacks i2c-other; as root, run: modprobe -a i2c-other", error.what());
    }
}

TEST_F(VhciAttachmentTest, SaysWhenEveryPortIsTaken)
{
    m_kernel.set("status", std::string(kHeading) + "hs  0000 006 003 00010002 000003 1-1\n");

    EXPECT_EQ("all ports of the virtual USB host controller are used; stop a program that uses one", complaint());
}

TEST_F(VhciAttachmentTest, SaysWhichFileCannotBeWritten)
{
    m_kernel.lose((std::string(kController) + "/attach").c_str());

    const fs::path file = m_kernel.root() / kController / "attach";
    EXPECT_EQ("cannot write " + file.string() + ": No such file or directory", complaint());
}

TEST_F(VhciAttachmentTest, SaysWhenTheKernelLetsGoBeforeThereIsANode)
{
    m_kernel.lose("dev/i2c-4"); // the files here never take the socket, so its other end is closed

    EXPECT_EQ("the kernel has released the USB device; its log (dmesg) says why", complaint());
    EXPECT_EQ("1", m_kernel.written("detach"));
}
