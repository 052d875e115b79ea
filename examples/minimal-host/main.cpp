// The least that a host does: finds the chip, reads its certificate and has a challenge signed.
// Usage: minimal-host NODE ADDRESS      for example: minimal-host /dev/i2c-1 0x2a

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <log4cplus/consoleappender.h>
#include <log4cplus/logger.h>

#include <authchipdriver/authchipfactory.h>
#include <authchipdriver/dbglog.h>

using namespace VorelKestrel;

// Every host defines this: the name of a function in the drivers' trace lines.
std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& /*component*/)
{
    return prettyFunction;
}

namespace {

/// Opens what was closed when the program started: the node would get the number of a closed standard output, and the
/// chip every line that goes there, also the library's own.
void occupyStandardDescriptors()
{
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO)
        opened = open("/dev/null", O_RDWR);
    close(opened); // was not needed
}

/// Without an appender log4cplus complains about itself at the driver's first line.
void sendLogToStandardError()
{
    const log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(console);
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

/// Empty if the chip does not deliver it.
std::vector<AL::U8> readCertificate(ACD::AuthChipDriver& chip)
{
    int length = 0;
    if (chip.getAccessoryCertificateDataLength(length) != ACD::Success)
        return {};
    std::vector<AL::U8> certificate(static_cast<std::size_t>(length));
    if (chip.getAccessoryCertificateData(certificate.data(), length) != ACD::Success)
        return {};
    return certificate;
}

/// Fresh for each authentication: an answer to an old challenge proves nothing.
std::vector<AL::U8> randomChallenge(ACD::AuthChipDriver& chip)
{
    int length = 0;
    chip.getChallengeDataMaximumLength(length);
    std::random_device source;
    std::vector<AL::U8> challenge(static_cast<std::size_t>(length));
    for (AL::U8& byte : challenge)
        byte = static_cast<AL::U8>(source());
    return challenge;
}

int failed(const char* what)
{
    std::fprintf(stderr, "minimal-host: %s failed\n", what);
    return EXIT_FAILURE;
}

int authenticate(const char* node, int address)
{
    ACD::AuthChipDriver* chip = ACD::AuthChipFactory::getAuthChipDriverInstance(node, address);
    if (chip == nullptr)
        return failed("finding the chip"); // the library has said why, on standard output

    const std::vector<AL::U8> certificate = readCertificate(*chip);
    const std::vector<AL::U8> challenge = randomChallenge(*chip);
    AL::U8* signature = nullptr;
    int length = static_cast<int>(challenge.size());
    if (certificate.empty() || chip->newSignature(challenge.data(), length, &signature, &length) != ACD::Success)
        return failed("asking the chip");

    // Here a host verifies the signature with the certificate's key, and the certificate with its issuer's.
    std::printf("certificate of %zu bytes, challenge of %zu bytes, signature of %d bytes\n", certificate.size(),
                challenge.size(), length);
    std::free(signature);
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: minimal-host NODE ADDRESS\n");
        return 2;
    }
    occupyStandardDescriptors();
    sendLogToStandardError();
    return authenticate(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0)));
}
