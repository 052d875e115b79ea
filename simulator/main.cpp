#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <unistd.h>

#include "common/childprogram.h"
#include "common/escaped.h"
#include "common/preload.h"
#include "common/standarddescriptors.h"
#include "simulator/exitstatus.h"
#include "simulator/node/fronterror.h"
#include "simulator/node/preloads.h"
#include "simulator/node/umockdevfront.h"
#include "simulator/options.h"
#include "simulator/servedbus.h"
#include "simulator/terminationsignals.h"
#include "simulator/usb/i2ctinyusb.h"
#include "simulator/usb/usbipserver.h"
#include "simulator/usb/vhciattachment.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;

namespace {

void print(const std::string& text)
{
    if (!(std::cout << text << std::flush))
        throw FrontError("cannot write to standard output; look for a full disk or a closed pipe");
}

/// What a program's name that is none may be.
const char* adviceAbout(const std::string& program)
{
    if (program.front() == '-')
        return "  next: Options of authchip-sim stand before '--', the program and its options behind it.\n";
    if (program.find(' ') != std::string::npos)
        return "  next: Leave the quotes out: the program and its arguments are words of their own.\n";
    return "";
}

int reportNotStarted(const std::string& program, int error)
{
    std::cerr << "authchip-sim: cannot run '" << escaped(program) << "': " << std::strerror(error) << '\n'
              << (program.empty() ? "" : adviceAbout(program));
    return exitStatusOfNotStarted(error);
}

/// Reports a difference from the replay, and ends the program by a signal to this process.
class ReplayWatch
{
public:
    ReplayedBus::Report report()
    {
        return [this](const std::string& difference) {
            m_hasDiffered = true;
            std::cerr << "authchip-sim: " + difference +
                             "\n  next: Give the program the same input as then, or use --replay-loosely.\n";
            kill(getpid(), SIGTERM);
        };
    }
    /// The exit status: the program's if no message differed.
    int statusOf(int result) const { return m_hasDiffered ? kExitNoNode : result; }

private:
    std::atomic<bool> m_hasDiffered{false};
};

/// Serves the bus while @p stay runs. Returns the exit status.
int serveBus(const Options& options, const std::function<int(ServedBus&)>& stay)
{
    ReplayWatch watch;
    ServedBus bus(options, watch.report());
    const int result = stay(bus);
    for (const std::string& remark : bus.remarks())
        std::cerr << "authchip-sim: " << escapedLines(remark) << '\n';
    bus.requireLog();
    return watch.statusOf(result);
}

int runProgram(ChildProgram& program, const Options& options, const std::string& variable)
{
    const int result = program.run(options.command, {variable});
    return result < 0 ? reportNotStarted(options.command.front(), -result) : result;
}

int simulateNode(const Options& options)
{
    ChildProgram program;
    return serveBus(options, [&](ServedBus& bus) {
        const PreloadPath library(simulatorsLibrary());
        const std::string preload = preloads(library.get());
        const UmockdevFront front(bus.node(), bus.device());
        return runProgram(program, options, "LD_PRELOAD=" + preload);
    });
}

/// Where the USB device is.
struct DeviceAddress
{
    std::string name;     // for people and scripts
    std::string variable; // for the program's environment
    int connection;       // to the kernel that has the device; -1: none
};

using Stay = std::function<int(const DeviceAddress&)>;

int attach(UsbAdapter& device, const Stay& stay)
{
    const VhciAttachment attachment(device);
    return stay({attachment.node(), "AUTHCHIP_DEVICE=" + attachment.node(), attachment.hangUpDescriptor()});
}

int serve(UsbAdapter& device, AL::U16 port, const Stay& stay)
{
    const UsbIpServer server(device, port);
    const std::string address = "127.0.0.1:" + std::to_string(server.port());
    return stay({address, "AUTHCHIP_USBIP=" + address, -1});
}

/// Offers the USB device while @p stay runs.
int simulateUsbDevice(const Options& options, const Stay& stay)
{
    return serveBus(options, [&](ServedBus& bus) {
        I2cTinyUsb device(bus.bus());
        return options.attach ? attach(device, stay) : serve(device, options.usbIpPort, stay);
    });
}

int waitForSignal(const TerminationSignals& signals, const DeviceAddress& address)
{
    print(address.name + '\n'); // at once: scripts wait for this line
    if (!signals.wait(address.connection))
        throw FrontError("the kernel has released " + address.name);
    return 0;
}

int simulate(const Options& options)
{
    if (!options.usbIp)
        return simulateNode(options);
    if (options.command.empty()) {
        const TerminationSignals signals;
        return simulateUsbDevice(options,
                                 [&](const DeviceAddress& address) { return waitForSignal(signals, address); });
    }
    ChildProgram program;
    return simulateUsbDevice(
        options, [&](const DeviceAddress& address) { return runProgram(program, options, address.variable); });
}

int report(const std::exception& error, int status)
{
    std::cerr << "authchip-sim: " << escapedLines(error.what()) << '\n';
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    VorelKestrel::occupyStandardDescriptors();
    try {
        const Options options = parseOptions(argc, argv);
        if (options.help.empty())
            return simulate(options);
        print(options.help);
        return 0;
    } catch (const UsageError& error) {
        std::cerr << "authchip-sim: " << escapedLines(error.what()) << "\nTry 'authchip-sim --help'.\n";
        return kExitUsage;
    } catch (const CredentialsError& error) {
        return report(error, kExitUsage);
    } catch (const std::exception& error) {
        return report(error, kExitNoNode);
    }
}
