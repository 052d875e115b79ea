#include "simulator/servedbus.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

#include "simulator/node/fronterror.h"
#include "simulator/replay/replayedregisters.h"

namespace VorelKestrel::Simulator {
namespace {

Credentials makeCredentials(const Options& options)
{
    const Generation& generation = generationOf(options.simulation.chip.deviceVersion);
    if (options.issuerFile.empty())
        return options.keyFile.empty()
                   ? Credentials::generate(generation, options.certificateLength)
                   : Credentials::load(generation, options.keyFile, options.certificateFile, options.certificateLength);
    const Issuer issuer = readIssuer(options.issuerFile, options.issuerKeyFile);
    const Key key = options.keyFile.empty() ? newKey(generation) : readKeyOf(generation, options.keyFile);
    return options.counterfeit == nullptr ? Credentials::issue(generation, key, &issuer, options.certificateLength)
                                          : options.counterfeit->make({generation, key, issuer});
}

Capture::Recording load(const std::string& path)
{
    const auto fail = [&path](const std::string& reason) {
        return FrontError("cannot replay " + path + ": " + reason);
    };
    try {
        Capture::Recording recording = Capture::loadRecording(path);
        if (!recording.damage.empty())
            throw fail(recording.damage);
        if (recording.messages.empty())
            throw fail("it contains no message");
        return recording;
    } catch (const Capture::RecordingError& error) {
        throw fail(error.what());
    }
}

/// 7 for "/dev/i2c-7"; 0 without digits at the end.
unsigned busNumberOf(const std::string& device)
{
    const std::size_t digits = device.find_last_not_of("0123456789") + 1;
    return static_cast<unsigned>(std::strtoul(device.c_str() + digits, nullptr, 10));
}

} // namespace

ServedBus::ServedBus(const Options& options, ReplayedBus::Report report)
    : m_device(options.device.empty() ? kDefaultDevice : options.device), m_captureFile(options.captureFile),
      m_logFile(options.logFile)
{
    if (options.replayFile.empty())
        startChip(options);
    else
        startReplay(options, std::move(report));
    addLayers(options);
}

void ServedBus::startChip(const Options& options)
{
    m_hasRandomFaults = options.simulation.faults.oneIn > 0;
    m_simulation.emplace(options.simulation, std::make_shared<const Credentials>(makeCredentials(options)), m_clock);
    m_bus = &m_simulation->bus();
}

void ServedBus::startReplay(const Options& options, ReplayedBus::Report report)
{
    m_recording = load(options.replayFile);
    if (options.device.empty())
        m_device = nodeOf(m_recording);
    if (options.replayLoosely) {
        m_replay = std::make_unique<ReplayedRegisters>(m_recording);
    } else {
        auto replay = std::make_unique<ReplayedBus>(m_recording, std::move(report));
        m_orderedReplay = replay.get();
        m_replay = std::move(replay);
    }
    m_bus = m_replay.get();
}

void ServedBus::addLayers(const Options& options)
{
    if (!options.captureFile.empty()) {
        m_capture.emplace(options.captureFile, "authchip-sim");
        m_bus = &m_capturedBus.emplace(*m_bus, m_clock, *m_capture, busNumberOf(m_device));
    }
    if (!options.logFile.empty()) {
        m_log.open(options.logFile);
        if (!m_log)
            throw FrontError("cannot write the log " + options.logFile + ": " + std::strerror(errno));
        m_bus = &m_loggedBus.emplace(*m_bus, m_clock, m_log);
    }
    m_node.emplace(*m_bus, m_simulation ? options.simulation.node : NodeSettings{boundAddressesOf(m_recording)});
}

std::vector<std::string> ServedBus::remarks() const
{
    std::vector<std::string> remarks;
    if (m_capture && m_capture->error() != 0)
        remarks.push_back("cannot write the capture " + m_captureFile + ": " + std::strerror(m_capture->error()) +
                          "; later messages are missing");
    if (m_hasRandomFaults) {
        const RandomFaultCounts& counts = m_simulation->faults().randomFaults();
        remarks.push_back("at random: " + std::to_string(counts.refused) + " messages refused, " +
                          std::to_string(counts.cut) + " reads cut");
    }
    const std::size_t left = m_orderedReplay == nullptr ? 0 : m_orderedReplay->messagesLeft();
    if (left > 0)
        remarks.push_back("the program ended before the end of the recording: " + std::to_string(left) + " of " +
                          std::to_string(m_orderedReplay->messageCount()) + " messages are left");
    return remarks;
}

void ServedBus::requireLog() const
{
    if (m_loggedBus && !m_log.good())
        throw FrontError("cannot write the log " + m_logFile + "; look for a full disk");
}

} // namespace VorelKestrel::Simulator
