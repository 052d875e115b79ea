// Calls each operation of both drivers a fixed number of times inside a function called measured(), for a profiler
// that collects in there only, and writes the names of the operations to standard output in their order.
// Usage: measuredoperations [library|floor]    library (default): the operation; floor: the bare exchange below it

#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/dbglog.h>
#include <authchipdriver/i2c.h>

#include "tests/support/bareexchange.h"
#include "tests/support/healthychip.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;

namespace {

constexpr int kTimes = 100;

} // namespace

extern "C" __attribute__((noinline)) void measured(const std::function<void()>& action)
{
    for (int time = 0; time < kTimes; ++time)
        action();
}

namespace {

template<typename Driver>
void measureAll(InstantDevice& device, const char* generation, const std::vector<DriverOperation>& operations,
                bool floor)
{
    arrangeHealthyChip(device, std::is_same_v<Driver, AuthChipDriver30>);
    Driver driver;
    const int descriptor = open(InstantDevice::kDevice, O_RDWR);
    for (const auto& operation : operations) {
        const auto call = [&] { operation.call(driver); }; // the first call, below, lets the allocator settle
        BareExchange exchange(device, call);
        if (floor)
            measured([&] { exchange.run(descriptor); });
        else
            measured(call);
        std::cout << generation << ' ' << operation.name << '\n';
    }
    close(descriptor);
}

} // namespace

int main(int argc, char** argv)
{
    const bool floor = argc > 1 && std::strcmp(argv[1], "floor") == 0;
    log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    InstantDevice device;
    i2cInit(InstantDevice::kDevice, InstantDevice::kAddress);
    measureAll<AuthChipDriver20B>(device, "2.0B", operations20B(), floor);
    measureAll<AuthChipDriver30>(device, "3.0", operations30(), floor);
    return 0;
}
