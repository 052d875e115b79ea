// Loading the library into a new process, compared with loading only what it needs (Qt Core and log4cplus).
// The program exports the hook and is linked with none of them. loadtime does the same where google-benchmark is not to
// be had (another architecture).

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/loading.h"
#include "benchmarks/sidebyside.h"

namespace {

void BM_Load(benchmark::State& state)
{
    const auto load = [](const std::vector<std::string>& libraries) {
        const Loading loading = loadInNewProcess(libraries);
        return loading.nanoseconds;
    };
    const std::vector<std::string> needs = {QT_CORE, LOG4CPLUS};
    measureInTurns(
        state, [&] { return load({AUTHCHIPDRIVER}); }, [&] { return load(needs); });
    state.counters["ours_private_dirty_bytes"] = static_cast<double>(loadInNewProcess({AUTHCHIPDRIVER}).privateDirty);
    state.counters["peer_private_dirty_bytes"] = static_cast<double>(loadInNewProcess(needs).privateDirty);
    state.counters["own_private_dirty_bytes"] =
        static_cast<double>(loadInNewProcess({AUTHCHIPDRIVER}).privateDirtyOfLast);
}

BENCHMARK(BM_Load)->Name("size/time to load/Qt Core and log4cplus alone")->UseManualTime();

} // namespace

BENCHMARK_MAIN();
