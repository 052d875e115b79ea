// The fuzzer plays the certificate of an unverified chip: the tool parses it, shows all of it, and
// tries a signature with its key.

#include "tool/chip/certificate.h"

#include "fuzzers/target.h"
#include "tool/chip/verification.h"

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

namespace {

void show(const Certificate& certificate)
{
    for (const std::string& text :
         {certificate.subject(), certificate.issuer(), certificate.serial(), certificate.notBefore(),
          certificate.notAfter(), certificate.keyDescription(), certificate.sha256(), certificate.pem()}) {
        volatile std::size_t length = text.size();
        (void)length;
    }
}

void tryKey(const Certificate& certificate)
{
    for (const Generation* generation : {&kGeneration20B, &kGeneration30})
        findFlaw(*generation, certificate.publicKey(), Bytes(generation->challengeLength, 0x5a),
                 Bytes(generation->responseLength, 0x01));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length)
{
    // A separate block, because the fuzzer's may be longer.
    const Bytes bytes(data, data + length);
    try {
        const Certificate certificate(bytes.data(), bytes.size());
        show(certificate);
        tryKey(certificate);
    } catch (const CertificateError&) {
        // The answer to an invalid certificate.
    }
    return 0;
}
