#include "benchmarks/loading.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <iostream>
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

void loadAll(const std::vector<std::string>& libraries)
{
    for (const auto& library : libraries) {
        if (dlopen(library.c_str(), RTLD_NOW) == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            _exit(1);
        }
    }
}

/// The child's part.
Loading load(const std::vector<std::string>& libraries)
{
    Loading loading = {};
    const long before = privateDirty("");
    const Stopwatch stopwatch;
    loadAll(libraries);
    loading.nanoseconds = stopwatch.nanoseconds();
    loading.privateDirty = privateDirty("") - before;
    loading.privateDirtyOfLast = privateDirty(stem(libraries.back()));
    return loading;
}

/// Runs @p child, which writes a message to a descriptor and ends the process, in a new process; returns the message.
template<typename Message, typename Child>
Message inNewProcess(Child&& child)
{
    int channel[2];
    if (pipe(channel) != 0)
        throw std::runtime_error("no pipe");
    std::cout << std::flush; // or an orderly end of the child prints it once more
    const pid_t process = fork();
    if (process == 0)
        child(channel[1]);
    close(channel[1]);
    Message message = {};
    const ssize_t count = read(channel[0], &message, sizeof(message));
    close(channel[0]);
    int status = 0;
    waitpid(process, &status, 0);
    if (count != sizeof(message) || status != 0)
        throw std::runtime_error("the library could not be loaded");
    return message;
}

} // namespace

Loading loadInNewProcess(const std::vector<std::string>& libraries)
{
    return inNewProcess<Loading>([&](int channel) {
        const Loading loading = load(libraries);
        _exit(write(channel, &loading, sizeof(loading)) == sizeof(loading) ? 0 : 1);
    });
}

double loadAndEndInNewProcess(const std::vector<std::string>& libraries)
{
    const auto begin = inNewProcess<Stopwatch>([&](int channel) {
        const Stopwatch stopwatch; // of the clock that all processes have
        loadAll(libraries);
        std::exit(write(channel, &stopwatch, sizeof(stopwatch)) == sizeof(stopwatch) ? 0 : 1);
    });
    return begin.nanoseconds();
}
