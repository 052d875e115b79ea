// Asks the chip for everything that a verifier wants to know.
// Usage: authchipdriver NODE ADDRESS

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

namespace {

//! [certificate]
std::vector<AL::U8> readCertificate(ACD::AuthChipDriver& chip)
{
    int length = 0;
    if (chip.getAccessoryCertificateDataLength(length) != ACD::Success)
        return {};
    std::vector<AL::U8> certificate(static_cast<std::size_t>(length));
    if (chip.getAccessoryCertificateData(certificate.data(), length) != ACD::Success)
        return {}; // length now tells how many bytes came
    return certificate;
}
//! [certificate]

//! [signature]
std::vector<AL::U8> sign(ACD::AuthChipDriver& chip, const std::vector<AL::U8>& challenge)
{
    AL::U8* block = nullptr;
    int length = 0;
    if (chip.newSignature(challenge.data(), static_cast<int>(challenge.size()), &block, &length) != ACD::Success)
        return {}; // there is no block to free
    std::vector<AL::U8> signature(block, block + length);
    std::free(block);
    return signature;
}
//! [signature]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    const char* node = argv[1];
    const int address = static_cast<int>(std::strtol(argv[2], nullptr, 0));
    //! [detection]
    ACD::AuthChipDriver* chip = ACD::AuthChipFactory::getAuthChipDriverInstance(node, address);
    if (chip == nullptr)
        return EXIT_FAILURE; // a console line says why
    //! [detection]
    int challengeLength = 0;
    chip->getChallengeDataMaximumLength(challengeLength);
    // From the verifier; zeros do for a look at the lengths.
    const std::vector<AL::U8> challenge(static_cast<std::size_t>(challengeLength));
    const std::size_t signatureLength = sign(*chip, challenge).size();
    std::printf("challenge %d, signature %zu, certificate %s\n", challengeLength, signatureLength,
                readCertificate(*chip).empty() ? "missing" : "read");
}
