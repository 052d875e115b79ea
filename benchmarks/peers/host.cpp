// The library's side of a comparison with other programs. Answers each line "version TIMES" or "authentication TIMES"
// of standard input, after this many exchanges, with the nanoseconds that they took.

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <log4cplus/logger.h>

#include <authchipdriver/authchipdriver30.h>
#include <authchipdriver/i2c.h>

#include "benchmarks/stopwatch.h"

using namespace VorelKestrel::ACD;
using VorelKestrel::AL::U8;

namespace {

void queryVersion(AuthChipDriver& driver)
{
    U8 version = 0;
    driver.getDeviceVersion(version);
}

void authenticate(AuthChipDriver& driver)
{
    static const std::vector<U8> challenge(32);
    int length = 0;
    driver.getAccessoryCertificateDataLength(length);
    std::vector<U8> certificate(static_cast<std::size_t>(length));
    driver.getAccessoryCertificateData(certificate.data(), length);
    U8* response = nullptr;
    driver.newSignature(challenge.data(), static_cast<int>(challenge.size()), &response, &length);
    std::free(response);
}

} // namespace

int main()
{
    log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    if (i2cInit("/dev/i2c-7", 0x2a) != 0)
        return 1;
    AuthChipDriver30 driver;
    std::string exchange;
    int times = 0;
    while (std::cin >> exchange >> times) {
        const Stopwatch stopwatch;
        for (int time = 0; time < times; ++time)
            exchange == "version" ? queryVersion(driver) : authenticate(driver);
        std::cout << static_cast<long long>(stopwatch.nanoseconds()) << std::endl;
    }
    return 0;
}
