// Measures what hosts wait for: a register, the certificate, a signature.
// Usage: nodetimes DEVICE ADDRESS TIMES
//
// The share of the library is the time that is spent neither in the node's calls nor asleep; the calls go through the
// functions below on their way to the C library.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <sys/types.h>

#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

Clock::duration g_elsewhere{}; // in the node's calls, and asleep
int g_depth = 0;               // a preloaded library makes calls inside ours

template<typename Call>
auto timed(Call call)
{
    const auto start = Clock::now();
    ++g_depth;
    const auto result = call();
    if (--g_depth == 0)
        g_elsewhere += Clock::now() - start;
    return result;
}

/// The function that the program's own hides.
template<typename Function>
Function* hidden(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

struct Sample
{
    Milliseconds whole;
    Milliseconds library;
};

Sample measure(const std::function<bool()>& operation)
{
    g_elsewhere = {};
    const auto start = Clock::now();
    if (!operation())
        throw std::runtime_error("the operation failed");
    const auto whole = Clock::now() - start;
    return {whole, whole - g_elsewhere};
}

void report(const char* name, int times, const std::function<bool()>& operation)
{
    std::vector<Sample> samples(static_cast<std::size_t>(times));
    std::generate(samples.begin(), samples.end(), [&] { return measure(operation); });
    std::sort(samples.begin(), samples.end(), [](const Sample& a, const Sample& b) { return a.whole < b.whole; });
    const Sample& median = samples[samples.size() / 2];
    std::printf("%-13s median %8.3f ms  longest %8.3f ms  library %7.3f ms %5.1f %%\n", name, median.whole.count(),
                samples.back().whole.count(), median.library.count(),
                100 * median.library.count() / median.whole.count());
}

bool readCertificate(ACD::AuthChipDriver& driver)
{
    int length = 0;
    if (driver.getAccessoryCertificateDataLength(length) != ACD::Success)
        return false;
    std::vector<AL::U8> certificate(static_cast<std::size_t>(length));
    return driver.getAccessoryCertificateData(certificate.data(), length) == ACD::Success;
}

bool sign(ACD::AuthChipDriver& driver)
{
    int challengeLength = 0;
    driver.getChallengeDataMaximumLength(challengeLength);
    const std::vector<AL::U8> challenge(static_cast<std::size_t>(challengeLength));
    AL::U8* response = nullptr;
    int length = 0;
    if (driver.newSignature(challenge.data(), challengeLength, &response, &length) != ACD::Success)
        return false;
    std::free(response);
    return true;
}

} // namespace

extern "C" ssize_t read(int file, void* buffer, size_t count)
{
    static auto* const next = hidden<ssize_t(int, void*, size_t)>("read");
    return timed([&] { return next(file, buffer, count); });
}

extern "C" ssize_t write(int file, const void* buffer, size_t count)
{
    static auto* const next = hidden<ssize_t(int, const void*, size_t)>("write");
    return timed([&] { return next(file, buffer, count); });
}

extern "C" int usleep(unsigned microseconds)
{
    static auto* const next = hidden<int(unsigned)>("usleep");
    return timed([&] { return next(microseconds); });
}

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    auto* driver = ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], std::stoi(argv[2], nullptr, 0));
    if (driver == nullptr)
        return 1;
    const int times = std::stoi(argv[3]);
    AL::U8 version = 0;
    try {
        report("register read", times, [&] { return driver->getDeviceVersion(version) == ACD::Success; });
        report("certificate", times, [&] { return readCertificate(*driver); });
        report("signature", times, [&] { return sign(*driver); });
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nodetimes: %s\n", error.what());
        return 1;
    }
    return 0;
}
