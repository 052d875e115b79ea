// The command-line tool from its start to its end, where there is no node: beside i2cget in the same place, plus a
// process that loads the library, with and without that process's end. What is left is what the tool costs by itself.

#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "benchmarks/loading.h"
#include "benchmarks/sidebyside.h"
#include "benchmarks/stopwatch.h"
#include "tool/report/exitstatus.h"

extern char** environ;

namespace {

constexpr int kNodeMissing = static_cast<int>(VorelKestrel::Tool::ExitStatus::Environment);

/// Nanoseconds from the start of a program to its end. It finds no node, so that its status has to be @p status.
double run(std::vector<std::string> words, int status)
{
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const Stopwatch stopwatch;
    pid_t process = 0;
    int result = 0;
    const bool ran = posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ) == 0 &&
                     waitpid(process, &result, 0) == process;
    const double nanoseconds = stopwatch.nanoseconds();
    posix_spawn_file_actions_destroy(&actions);
    if (!ran || !WIFEXITED(result) || WEXITSTATUS(result) != status)
        throw std::runtime_error(words[0] + " did not run as it should");
    return nanoseconds;
}

double runTool()
{
    return run({AUTHCHIP, "-d", "/dev/i2c-250", "-a", "0x2a", "info"}, kNodeMissing);
}

double runI2cget()
{
    return run({"i2cget", "-y", "250", "0x2a", "0x00"}, 1);
}

void BM_BesideLoading(benchmark::State& state)
{
    measureInTurns(state, runTool, [] { return runI2cget() + loadInNewProcess({AUTHCHIPDRIVER}).nanoseconds; });
}

void BM_BesideLoadingAndUnloading(benchmark::State& state)
{
    measureInTurns(state, runTool, [] { return runI2cget() + loadAndEndInNewProcess({AUTHCHIPDRIVER}); });
}

BENCHMARK(BM_BesideLoading)->Name("tool/startup/i2cget, and loading the library")->UseManualTime();
BENCHMARK(BM_BesideLoadingAndUnloading)
    ->Name("tool/startup/i2cget, and loading and unloading the library")
    ->UseManualTime();

} // namespace

BENCHMARK_MAIN();
