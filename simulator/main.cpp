#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>

#include "common/program.h"
#include "simulator/exitstatus.h"
#include "simulator/node/fronterror.h"
#include "simulator/node/preloads.h"
#include "simulator/node/umockdevfront.h"
#include "simulator/options.h"
#include "simulator/program/terminationsignals.h"
#include "simulator/simulation.h"
#include "simulator/usb/i2ctinyusb.h"
#include "simulator/usb/usbipserver.h"
#include "simulator/usb/vhciattachment.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;

namespace {

std::shared_ptr<const Credentials> credentialsFor(const Options& options)
{
    const Generation& generation = generationOf(options.simulation.chip.deviceVersion);
    return std::make_shared<const Credentials>(
        options.keyFile.empty()
            ? Credentials::generate(generation, options.certificateLength)
            : Credentials::load(generation, options.keyFile, options.certificateFile, options.certificateLength));
}

std::unique_ptr<std::ofstream> openLog(const std::string& path)
{
    if (path.empty())
        return nullptr;
    auto log = std::make_unique<std::ofstream>(path);
    if (!*log)
        throw FrontError("cannot write the log " + path + ": " + std::strerror(errno));
    return log;
}

int reportNotStarted(const std::string& program, int error)
{
    std::cerr << "authchip-sim: cannot run '" << program << "': " << std::strerror(error) << '\n';
    return exitStatusOfNotStarted(error);
}

/// The chip and its bus, as the options want them.
struct SimulatedBus
{
    explicit SimulatedBus(const Options& options)
        : log(openLog(options.logFile)), simulation(options.simulation, credentialsFor(options), clock, log.get())
    {}

    SystemClock clock;
    const std::unique_ptr<std::ofstream> log;
    Simulation simulation;
};

int runProgram(Program& program, const Options& options, const std::string& variable)
{
    const int result = program.run(options.command, {variable});
    return result < 0 ? reportNotStarted(options.command.front(), -result) : result;
}

int simulateNode(const Options& options)
{
    Program program;
    SimulatedBus bus(options);
    const std::string preload = preloads();
    const UmockdevFront front(bus.simulation.node(), options.device);
    return runProgram(program, options, "LD_PRELOAD=" + preload);
}

/// Where the USB device is to be found.
struct Place
{
    std::string name;     // for people and scripts
    std::string variable; // for the program's environment
    int connection;       // to the kernel that has the device; -1 if none has it for good
};

/// Puts the USB device up for as long as @p stay takes.
int simulateUsbDevice(const Options& options, const std::function<int(const Place&)>& stay)
{
    SimulatedBus bus(options);
    I2cTinyUsb device(bus.simulation.bus());
    if (options.attach) {
        const VhciAttachment attachment(device);
        return stay({attachment.node(), "AUTHCHIP_DEVICE=" + attachment.node(), attachment.hangUpDescriptor()});
    }
    const UsbIpServer server(device, options.usbIpPort);
    const std::string address = "127.0.0.1:" + std::to_string(server.port());
    return stay({address, "AUTHCHIP_USBIP=" + address, -1});
}

int waitForSignal(const TerminationSignals& signals, const Place& place)
{
    std::cout << place.name << std::endl; // whoever reads it waits for it
    if (!signals.wait(place.connection))
        throw FrontError("the kernel has let go of " + place.name);
    return 0;
}

int simulate(const Options& options)
{
    if (!options.usbIp)
        return simulateNode(options);
    if (options.command.empty()) {
        const TerminationSignals signals;
        return simulateUsbDevice(options, [&](const Place& place) { return waitForSignal(signals, place); });
    }
    Program program;
    return simulateUsbDevice(options, [&](const Place& place) { return runProgram(program, options, place.variable); });
}

int report(const std::exception& error, int status)
{
    std::cerr << "authchip-sim: " << error.what() << '\n';
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parseOptions(argc, argv);
        if (options.help.empty())
            return simulate(options);
        std::cout << options.help;
        return 0;
    } catch (const UsageError& error) {
        std::cerr << "authchip-sim: " << error.what() << "\nTry 'authchip-sim --help'.\n";
        return kExitUsage;
    } catch (const CredentialsError& error) {
        return report(error, kExitUsage);
    } catch (const std::exception& error) {
        return report(error, kExitNoNode);
    }
}
