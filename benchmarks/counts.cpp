// Counts the system calls and the allocations of each operation, with logging off, and writes them as JSON next to the
// least that the exchange needs: a lock, its messages, an unlock; the block of the answer.

#include <cstring>
#include <iostream>

#include <log4cplus/logger.h>
#include <nlohmann/json.hpp>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/i2c.h>

#include "tests/support/allocations.h"
#include "tests/support/healthychip.h"
#include "tests/support/kerneltrace.h"
#include "tests/support/operations.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;

namespace {

constexpr std::size_t kLockAndUnlock = 2;

template<typename Driver>
void count(nlohmann::json& rows, const char* generation, const std::vector<DriverOperation>& operations)
{
    for (const auto& operation : operations) {
        InstantDevice device;
        arrangeHealthyChip(device, std::is_same_v<Driver, AuthChipDriver30>);
        i2cInit(InstantDevice::kDevice, InstantDevice::kAddress);
        Driver driver;
        operation.call(driver); // the first time, so that the allocator has what it needs
        const auto calls = tracedSystemCalls([&](const std::function<void()>& mark) {
            mark();
            const int failed = operation.call(driver);
            mark();
            return failed == 0;
        });
        const allocations::Counter counter;
        operation.call(driver);
        const int allocationCount = counter.count();
        const bool signs = std::strcmp(operation.name, "newSignature") == 0;
        rows.push_back({{"generation", generation},
                        {"operation", operation.name},
                        {"systemCalls", calls ? nlohmann::json(calls->size()) : nlohmann::json()},
                        {"leastSystemCalls", operation.transfers.size() + kLockAndUnlock},
                        {"allocations", allocationCount},
                        {"leastAllocations", signs ? 1 : 0}});
        i2cClose();
    }
}

} // namespace

int main()
{
    log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    nlohmann::json rows;
    count<AuthChipDriver20B>(rows, "2.0B", operations20B());
    count<AuthChipDriver30>(rows, "3.0", operations30());
    std::cout << rows.dump(2) << '\n';
    return 0;
}
