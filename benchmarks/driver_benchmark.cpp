// The driver's operations compared with the bare system calls that they need, and how both grow.

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/i2c.h>

#include "benchmarks/crowd.h"
#include "benchmarks/sidebyside.h"
#include "tests/support/bareexchange.h"
#include "tests/support/healthychip.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U8;

namespace {

constexpr int kRounds = 512; // of a crowd, shared by its members

/// The device of the process, a descriptor for code without the library, and a driver of either generation.
struct Bench
{
    Bench()
    {
        log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
        i2cInit(InstantDevice::kDevice, InstantDevice::kAddress);
        arrangeHealthyChip(device, false);
        descriptor = open(InstantDevice::kDevice, O_RDWR);
    }

    AuthChipDriver& driver(bool protocol30) { return protocol30 ? static_cast<AuthChipDriver&>(driver30) : driver20B; }

    InstantDevice device;
    AuthChipDriver20B driver20B;
    AuthChipDriver30 driver30;
    int descriptor = -1;
};

Bench* g_bench = nullptr; // while main() runs

/// An operation of the library in turns with its floor.
template<typename Call>
void besideFloor(benchmark::State& state, Call&& operation)
{
    const BareExchange exchange(g_bench->device, operation);
    runSideBySide(state, operation, [&] { exchange.run(g_bench->descriptor); });
}

void BM_Operation(benchmark::State& state, const DriverOperation& operation, bool protocol30)
{
    arrangeHealthyChip(g_bench->device, protocol30);
    auto& driver = g_bench->driver(protocol30);
    besideFloor(state, [&] { operation.call(driver); });
}

/// Compared with a loop that also allocates the buffers that the library's interface needs.
void BM_SigningWithBuffers(benchmark::State& state, const DriverOperation& operation, bool protocol30)
{
    arrangeHealthyChip(g_bench->device, protocol30);
    auto& driver = g_bench->driver(protocol30);
    const auto call = [&] { operation.call(driver); };
    const BareExchange exchange(g_bench->device, call);
    runSideBySide(state, call, [&] { exchange.runWithBuffers(g_bench->descriptor); });
}

/// What many programs do: the node is opened, addressed and closed for every exchange.
void BM_OpenAddressClose(benchmark::State& state)
{
    arrangeHealthyChip(g_bench->device, true);
    runSideBySide(
        state,
        [] {
            U8 version = 0;
            g_bench->driver30.getDeviceVersion(version);
        },
        [] {
            const int descriptor = open(InstantDevice::kDevice, O_RDWR);
            ioctl(descriptor, I2C_SLAVE, InstantDevice::kAddress);
            U8 bytes[1] = {0};
            static_cast<void>(!write(descriptor, bytes, sizeof(bytes)));
            static_cast<void>(!read(descriptor, bytes, sizeof(bytes)));
            close(descriptor);
        });
}

void BM_CertificateLength(benchmark::State& state)
{
    std::vector<U8> certificate(static_cast<std::size_t>(state.range(0)));
    besideFloor(state, [&] {
        int length = static_cast<int>(certificate.size());
        g_bench->driver20B.getAccessoryCertificateData(certificate.data(), length);
    });
}

void sign(AuthChipDriver& driver, const std::vector<U8>& challenge)
{
    U8* response = nullptr;
    int length = 0;
    driver.newSignature(challenge.data(), static_cast<int>(challenge.size()), &response, &length);
    std::free(response);
}

void BM_ChallengeLength(benchmark::State& state)
{
    arrangeHealthyChip(g_bench->device, false);
    const std::vector<U8> challenge(static_cast<std::size_t>(state.range(0)));
    besideFloor(state, [&] { sign(g_bench->driver20B, challenge); });
}

void BM_ResponseLength(benchmark::State& state)
{
    arrangeHealthyChip(g_bench->device, false);
    g_bench->device.holds(0x11, {static_cast<U8>(state.range(0) >> 8), static_cast<U8>(state.range(0))});
    const std::vector<U8> challenge(20);
    besideFloor(state, [&] { sign(g_bench->driver20B, challenge); });
}

/// Version queries by a crowd that shares the bus: nanoseconds per query of any member.
void BM_Crowd(benchmark::State& state, Crowd::Kind kind)
{
    arrangeHealthyChip(g_bench->device, true);
    const auto query = [] {
        U8 version = 0;
        g_bench->driver30.getDeviceVersion(version);
    };
    const BareExchange exchange(g_bench->device, query);
    const auto repeatedly = [](auto action) {
        return [action](int /*member*/) -> Work {
            return [action](int times) {
                for (int time = 0; time < times; ++time)
                    action();
            };
        };
    };
    const int size = static_cast<int>(state.range(0));
    Crowd crowd(kind, size, {repeatedly(query), repeatedly([&] { exchange.run(g_bench->descriptor); })});
    const int roundsOfEach = kRounds / size;
    const int rounds = roundsOfEach * size;
    const auto perQuery = [&](int work) { return crowd.run(work, roundsOfEach) / rounds; };
    measureInTurns(
        state, [&] { return perQuery(0); }, [&] { return perQuery(1); });
}

void registerOperations(const char* generation, bool protocol30, const std::vector<DriverOperation>& operations)
{
    for (const auto& operation : operations) {
        benchmark::RegisterBenchmark((std::string("floor/") + generation + '/' + operation.name).c_str(), BM_Operation,
                                     operation, protocol30)
            ->UseManualTime();
        if (std::string(operation.name) != "newSignature")
            continue;
        benchmark::RegisterBenchmark((std::string("floor with buffers/") + generation + '/' + operation.name).c_str(),
                                     BM_SigningWithBuffers, operation, protocol30)
            ->UseManualTime();
    }
}

BENCHMARK(BM_OpenAddressClose)->Name("peers/open, address and close each time")->UseManualTime();
BENCHMARK(BM_CertificateLength)->Name("growth/certificate length")->DenseRange(128, 1792, 128)->UseManualTime();
BENCHMARK(BM_ChallengeLength)->Name("growth/challenge length")->Arg(1)->DenseRange(4, 20, 4)->UseManualTime();
BENCHMARK(BM_ResponseLength)->Name("growth/response length")->RangeMultiplier(2)->Range(16, 2048)->UseManualTime();
BENCHMARK_CAPTURE(BM_Crowd, threads, Crowd::Kind::Threads)
    ->Name("growth/threads")
    ->RangeMultiplier(2)
    ->Range(1, 16)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Crowd, processes, Crowd::Kind::Processes)
    ->Name("growth/processes")
    ->RangeMultiplier(2)
    ->Range(1, 16)
    ->UseManualTime();

} // namespace

int main(int argc, char** argv)
{
    Bench bench;
    g_bench = &bench;
    registerOperations("2.0B", false, operations20B());
    registerOperations("3.0", true, operations30());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
