// Loads libraries in new processes, alternating, and writes the median and the quartiles of the ratio, the median times
// in nanoseconds, and private dirty bytes; for architectures on which there is no google-benchmark.
// Usage: loadtime OURS NEEDED...

#include <algorithm>
#include <iostream>

#include "benchmarks/loading.h"

namespace {

constexpr std::size_t kTurns = 31;

double quantile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "usage: loadtime OURS NEEDED...\n";
        return 2;
    }
    const std::vector<std::string> ours = {argv[1]};
    const std::vector<std::string> needed(argv + 2, argv + argc);
    std::vector<double> oursTimes;
    std::vector<double> neededTimes;
    std::vector<double> ratios;
    for (std::size_t turn = 0; turn < kTurns; ++turn) {
        oursTimes.push_back(loadInNewProcess(ours).nanoseconds);
        neededTimes.push_back(loadInNewProcess(needed).nanoseconds);
        ratios.push_back(oursTimes.back() / neededTimes.back());
    }
    const Loading last = loadInNewProcess(ours);
    std::cout << "ratio " << quantile(ratios, 0.5) << "\nratio_low " << quantile(ratios, 0.25) << "\nratio_high "
              << quantile(ratios, 0.75) << "\nours_ns " << quantile(oursTimes, 0.5) << "\npeer_ns "
              << quantile(neededTimes, 0.5) << "\nours_private_dirty_bytes " << last.privateDirty
              << "\nown_private_dirty_bytes " << last.privateDirtyOfLast << "\npeer_private_dirty_bytes "
              << loadInNewProcess(needed).privateDirty << "\nturns " << kTurns << '\n';
    return 0;
}
