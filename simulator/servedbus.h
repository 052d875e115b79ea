#ifndef SIMULATOR_SERVEDBUS_H
#define SIMULATOR_SERVEDBUS_H

#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/capturefile.h"
#include "capture/recording.h"
#include "simulator/bus/capturedbus.h"
#include "simulator/bus/loggedbus.h"
#include "simulator/node/i2cdevnode.h"
#include "simulator/options.h"
#include "simulator/replay/replayedbus.h"
#include "simulator/simulation.h"

namespace VorelKestrel::Simulator {

/**
 * The bus that the options describe, with a simulated or a replayed chip, and its node:
 *
 *     node -> [log] -> [capture] -> simulation | replay
 *
 * Errors: the constructor throws FrontError, CredentialsError or CaptureFileError.
 */
class ServedBus
{
public:
    /// @p report  is called if a message differs from the replay.
    ServedBus(const Options& options, ReplayedBus::Report report);
    ServedBus(const ServedBus&) = delete;
    ServedBus& operator=(const ServedBus&) = delete;

    Bus& bus() { return *m_bus; }
    I2cDevNode& node() { return *m_node; }
    /// The path of the node.
    const std::string& device() const { return m_device; }
    /// What to report after the program has ended.
    std::vector<std::string> remarks() const;
    /// Throws FrontError if the log is incomplete.
    void requireLog() const;

private:
    void startChip(const Options& options);
    void startReplay(const Options& options, ReplayedBus::Report report);
    void addLayers(const Options& options);

    SystemClock m_clock;
    std::string m_device;
    std::optional<Simulation> m_simulation;
    bool m_hasRandomFaults = false;
    Capture::Recording m_recording;
    std::unique_ptr<Bus> m_replay;
    ReplayedBus* m_orderedReplay = nullptr; // m_replay, if it is one
    std::optional<Capture::CaptureFile> m_capture;
    std::optional<CapturedBus> m_capturedBus;
    std::ofstream m_log;
    std::optional<LoggedBus> m_loggedBus;
    Bus* m_bus = nullptr; // the outermost; never null after construction
    std::optional<I2cDevNode> m_node;
    const std::string m_captureFile;
    const std::string m_logFile;
};

} // namespace VorelKestrel::Simulator

#endif
