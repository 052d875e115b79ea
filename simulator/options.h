#ifndef SIMULATOR_OPTIONS_H
#define SIMULATOR_OPTIONS_H

#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/chip/counterfeits.h"
#include "simulator/simulation.h"
#include "simulator/usb/usbipserver.h"

namespace VorelKestrel::Simulator {

constexpr char kDefaultDevice[] = "/dev/i2c-7";

/// The parsed command line.
struct Options
{
    SimulationSettings simulation;
    std::string device;                // empty: that of the replay, or kDefaultDevice
    std::string keyFile;               // empty: a new key
    std::string certificateFile;       // empty: a self-signed certificate
    std::size_t certificateLength = 0; // 0: the natural length
    std::string issuerFile;            // of the certificate's issuer; empty: self-signed
    std::string issuerKeyFile;
    const Counterfeit* counterfeit = nullptr; // null: an honest chip
    std::string logFile;                      // empty: no log
    std::string captureFile;                  // empty: no capture
    std::string replayFile;                   // empty: a simulated chip
    bool replayLoosely = false;               // answer by register, in any order
    bool usbIp = false;                       // a USB device instead of the umockdev node
    bool attach = false;                      // to the kernel of this machine
    AL::U16 usbIpPort = UsbIpServer::kDefaultPort;
    std::vector<std::string> command; // empty only with usbIp or if help was asked for
    std::string help;                 // not empty: print this and do nothing else
};

/// An invalid command line; what() says why.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads a command line. Throws UsageError.
Options parseOptions(int argc, const char* const* argv);

} // namespace VorelKestrel::Simulator

#endif
