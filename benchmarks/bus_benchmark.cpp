// Where the time of an operation goes on a bus: wire, chip, pauses between retries, and the library.
//
// The bus and the chip are simulated on a clock that only counts, so their time is exact. The
// library's time is real: all that passes between the system calls of one operation. It holds half of what looking at
// the clock costs at each of them, so it is rather too long than too short.

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <vector>

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/i2c.h>

#include "benchmarks/sidebyside.h"
#include "simulator/node/inprocessfront.h"
#include "simulator/simulation.h"
#include "tests/support/operations.h"
#include "tests/support/systemcalls.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Simulator;
using namespace testsupport;
using VorelKestrel::ACD::AuthChipDriver;

namespace {

constexpr char kDevice[] = "/dev/i2c-7";
constexpr int kAddress = 0x2a;

/// Adds up the real time that passes inside its scopes, which do not nest.
class Tally
{
public:
    class Scope
    {
    public:
        explicit Scope(Tally& tally) : m_tally(tally) {}
        ~Scope() { m_tally.m_nanoseconds += m_stopwatch.nanoseconds(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Tally& m_tally;
        const Stopwatch m_stopwatch;
    };

    double nanoseconds() const { return m_nanoseconds; }

private:
    double m_nanoseconds = 0;
};

/// A simulated chip at the C library's door.
class SimulatedDoor : public SystemCallHandler
{
public:
    explicit SimulatedDoor(const SimulationSettings& settings)
        : m_simulation(settings,
                       std::make_shared<const Credentials>(
                           Credentials::generate(generationOf(settings.chip.deviceVersion), kCertificateLength)),
                       m_clock),
          m_front(m_simulation.node(), kDevice), m_semaphores(semget(IPC_PRIVATE, 1, 0600))
    {
        semctl(m_semaphores, 0, SETVAL, 1);
        SystemCallHandler::install(this);
    }
    ~SimulatedDoor() override
    {
        SystemCallHandler::install(nullptr);
        semctl(m_semaphores, 0, IPC_RMID);
    }
    SimulatedDoor(const SimulatedDoor&) = delete;
    SimulatedDoor& operator=(const SimulatedDoor&) = delete;

    /// Of the simulated time, in nanoseconds since the start.
    double now() const { return static_cast<double>(m_clock.now().count()); }
    /// The simulated time of messages that the chip took.
    double wire() const { return m_wire; }
    /// The real time that passed inside the system calls.
    double outside() const { return m_outside.nanoseconds(); }

    bool answersFor(const char* path) override { return m_front.owns(path); }
    bool answersFor(int descriptor) override { return m_front.owns(descriptor); }
    bool answersForPausesAndLocks() override { return true; }
    int open(const char* /*path*/, int /*flags*/) override { return m_front.open(); }
    int ioctl(int descriptor, unsigned long request, unsigned long argument) override
    {
        return m_front.ioctl(descriptor, request,
                             reinterpret_cast<void*>(argument)); // NOLINT(performance-no-int-to-ptr)
    }
    ssize_t read(int descriptor, void* data, std::size_t count) override
    {
        return transfer([&] { return m_front.read(descriptor, data, count); });
    }
    ssize_t write(int descriptor, const void* data, std::size_t count) override
    {
        return transfer([&] { return m_front.write(descriptor, data, count); });
    }
    int close(int descriptor) override { return m_front.close(descriptor); }
    int usleep(unsigned microseconds) override
    {
        const Tally::Scope scope(m_outside);
        m_clock.advance(std::chrono::microseconds(microseconds));
        return 0;
    }
    int changeSemaphore(int delta) override
    {
        const Tally::Scope scope(m_outside);
        sembuf operation = {0, static_cast<short>(delta), SEM_UNDO};
        return realcalls::semop(m_semaphores, &operation, 1);
    }

private:
    template<typename Call>
    ssize_t transfer(Call call)
    {
        const Tally::Scope scope(m_outside);
        const double start = now();
        const ssize_t result = call();
        if (result >= 0)
            m_wire += now() - start;
        return result;
    }

    ManualClock m_clock;
    Simulation m_simulation;
    InProcessFront m_front;
    const int m_semaphores;
    double m_wire = 0;
    Tally m_outside;
};

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// @p signTime is in milliseconds; 0 for operations that do not sign.
void BM_OnABus(benchmark::State& state, const DriverOperation& operation, bool protocol30, unsigned kilohertz,
               int signTime)
{
    SimulationSettings settings;
    settings.chip.deviceVersion = protocol30 ? 7 : 3;
    settings.chip.busyTime = std::chrono::milliseconds(signTime);
    settings.bitsPerSecond = kilohertz * 1000;
    SimulatedDoor door(settings);
    ACD::i2cInit(kDevice, kAddress);
    const std::unique_ptr<AuthChipDriver> driver(protocol30 ? static_cast<AuthChipDriver*>(new ACD::AuthChipDriver30)
                                                            : new ACD::AuthChipDriver20B);
    operation.call(*driver);

    std::vector<double> library;
    double total = 0;
    double wire = 0;
    for (auto _ : state) {
        const double startOfTotal = door.now();
        const double startOfWire = door.wire();
        const double startOfOutside = door.outside();
        const Stopwatch stopwatch;
        if (operation.call(*driver) != 0)
            state.SkipWithError("the operation failed");
        const double elapsed = stopwatch.nanoseconds();
        library.push_back(elapsed - (door.outside() - startOfOutside));
        total = door.now() - startOfTotal;
        wire = door.wire() - startOfWire;
        state.SetIterationTime(library.back() * 1e-9);
    }
    const double chip = signTime * 1e6;
    state.counters["wire_ns"] = wire;
    state.counters["chip_ns"] = chip;
    state.counters["pause_ns"] = total - wire - chip; // slept on although the chip was ready
    state.counters["library_ns"] = median(library);
    ACD::i2cClose();
}

void registerOperation(const std::string& generation, bool protocol30, const DriverOperation& operation)
{
    const std::string name = operation.name;
    const bool signs = name == "newSignature";
    if (name.rfind("rawWrite", 0) == 0) // what it would write is no challenge
        return;
    for (const unsigned kilohertz : {100U, 400U}) {
        for (const int signTime : signs ? std::vector<int>{30, 100, 500} : std::vector<int>{0}) {
            std::string title = "bus/" + std::to_string(kilohertz) + " kHz/" + generation + '/' + name;
            if (signs)
                title += ", signed in " + std::to_string(signTime) + " ms";
            benchmark::RegisterBenchmark(title.c_str(), BM_OnABus, operation, protocol30, kilohertz, signTime)
                ->Iterations(signs ? 50 : 500)
                ->UseManualTime();
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    for (const auto& operation : operations20B())
        registerOperation("2.0B", false, operation);
    for (const auto& operation : operations30())
        registerOperation("3.0", true, operation);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
