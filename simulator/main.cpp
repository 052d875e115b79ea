#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "simulator/exitstatus.h"
#include "simulator/options.h"
#include "simulator/preloads.h"
#include "simulator/program.h"
#include "simulator/simulation.h"
#include "simulator/umockdevfront.h"

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
    return error == ENOENT ? kExitNotFound : kExitNotRunnable;
}

int simulate(const Options& options)
{
    Program program;
    SystemClock clock;
    const auto log = openLog(options.logFile);
    Simulation simulation(options.simulation, credentialsFor(options), clock, log.get());
    const std::string preload = preloads();
    const UmockdevFront front(simulation.node(), options.device);
    const int result = program.run(options.command, {"LD_PRELOAD=" + preload});
    return result < 0 ? reportNotStarted(options.command.front(), -result) : result;
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
