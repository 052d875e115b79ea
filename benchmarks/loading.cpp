#include "benchmarks/loading.h"

#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "benchmarks/stopwatch.h"

namespace {

constexpr long kBytesPerKilobyte = 1024;

/// The name of a file without its folder and what follows the first ".so".
std::string stem(const std::string& path)
{
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.substr(0, name.find(".so"));
}

/// Bytes of private dirty memory in mappings of files with that stem; of all mappings if it is empty.
long privateDirty(const std::string& wantedStem)
{
    std::ifstream maps("/proc/self/smaps");
    std::string line;
    bool wanted = false;
    long kilobytes = 0;
    while (std::getline(maps, line)) {
        long amount = 0;
        const bool isHeader = line.find('-') < line.find(' ');
        if (isHeader)
            wanted = wantedStem.empty() || stem(line) == wantedStem;
        else if (wanted && std::sscanf(line.c_str(), "Private_Dirty: %ld", &amount) == 1)
            kilobytes += amount;
    }
    return kilobytes * kBytesPerKilobyte;
}

/// The child's part.
Loading load(const std::vector<std::string>& libraries)
{
    Loading loading = {};
    const long before = privateDirty("");
    const Stopwatch stopwatch;
    for (const auto& library : libraries) {
        if (dlopen(library.c_str(), RTLD_NOW) == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            _exit(1);
        }
    }
    loading.nanoseconds = stopwatch.nanoseconds();
    loading.privateDirty = privateDirty("") - before;
    loading.privateDirtyOfLast = privateDirty(stem(libraries.back()));
    return loading;
}

} // namespace

Loading loadInNewProcess(const std::vector<std::string>& libraries)
{
    int channel[2];
    if (pipe(channel) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        const Loading loading = load(libraries);
        _exit(write(channel[1], &loading, sizeof(loading)) == sizeof(loading) ? 0 : 1);
    }
    close(channel[1]);
    Loading loading = {};
    const ssize_t count = read(channel[0], &loading, sizeof(loading));
    close(channel[0]);
    waitpid(child, nullptr, 0);
    if (count != sizeof(loading))
        throw std::runtime_error("the library could not be loaded");
    return loading;
}
