// A host that does with the library what hosts do: detects the chip, reads the certificate, has a challenge signed.
// Usage: authenticatinghost DEVICE ADDRESS TIMES [stay]
// Exit status: 0 authentic each time, 1 failure, 3 not authentic. With "stay" it prints the status and ends with its
// standard input: the system-wide lock of the bus goes away with the process that made it, whoever still needs it.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <authchipdriver/authchipfactory.h>

#include "tests/simulator/chip/signaturecheck.h"

using VorelKestrel::Bytes;
using VorelKestrel::ACD::AuthChipDriver;
using VorelKestrel::ACD::AuthChipFactory;
using VorelKestrel::ACD::Success;
using VorelKestrel::AL::U8;

namespace {

int failed(const char* what)
{
    std::cerr << what << " failed\n";
    return 1;
}

int authenticate(AuthChipDriver& driver)
{
    int certificateLength = 0;
    if (driver.getAccessoryCertificateDataLength(certificateLength) != Success)
        return failed("reading the certificate's length");
    Bytes certificate(static_cast<std::size_t>(certificateLength));
    if (driver.getAccessoryCertificateData(certificate.data(), certificateLength) != Success)
        return failed("reading the certificate");

    int challengeLength = 0;
    driver.getChallengeDataMaximumLength(challengeLength);
    Bytes challenge(static_cast<std::size_t>(challengeLength));
    std::random_device random;
    std::generate(challenge.begin(), challenge.end(), [&] { return static_cast<U8>(random()); });

    U8* response = nullptr;
    int responseLength = 0;
    if (driver.newSignature(challenge.data(), challengeLength, &response, &responseLength) != Success)
        return failed("signing");
    const std::unique_ptr<U8, decltype(&std::free)> owner(response, &std::free);
    return isAuthentic(certificate, challenge, Bytes(response, response + responseLength)) ? 0 : 3;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return 2;
    AuthChipDriver* driver = AuthChipFactory::getAuthChipDriverInstance(argv[1], std::stoi(argv[2], nullptr, 0));
    if (driver == nullptr)
        return failed("detecting the chip");
    int status = 0;
    for (int time = std::stoi(argv[3]); time > 0 && status == 0; --time)
        status = authenticate(*driver);
    if (argc > 4) {
        std::cout << "status " << status << std::endl;
        std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    }
    return status;
}
