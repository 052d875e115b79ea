// A host that decides: asks the chip, and verifies its answer with OpenSSL.
// Usage: verifying-host NODE ADDRESS ISSUERS      for example: verifying-host /dev/i2c-1 0x2a issuers.pem
// Exit status: 0 authentic, 1 the chip could not be asked, 2 usage, 3 not authentic

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <log4cplus/consoleappender.h>
#include <log4cplus/logger.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <abstractionlibrary/debugstdiologger.h>
#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

namespace {

using Bytes = std::vector<AL::U8>;

template<typename Type, void (*release)(Type*)>
struct Release
{
    void operator()(Type* object) const { release(object); }
};
template<typename Type, void (*release)(Type*)>
using Owned = std::unique_ptr<Type, Release<Type, release>>;

using Container = Owned<PKCS7, PKCS7_free>;
using Store = Owned<X509_STORE, X509_STORE_free>;
using StoreContext = Owned<X509_STORE_CTX, X509_STORE_CTX_free>;
using KeyContext = Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using EcdsaSignature = Owned<ECDSA_SIG, ECDSA_SIG_free>;

/// What the chip has answered.
struct Answer
{
    Bytes certificate; // a PKCS #7 container, in DER
    Bytes challenge;
    Bytes signature;
};

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
    // The library's console lines go to standard output: 1 silences them, 3 is the default.
    AL::DebugStdioLogger::getInstance("Wexfordmallow")->setLogLevel(1);
}

bool readCertificate(ACD::AuthChipDriver& chip, Bytes& certificate)
{
    int length = 0;
    if (chip.getAccessoryCertificateDataLength(length) != ACD::Success)
        return false;
    certificate.resize(static_cast<std::size_t>(length));
    return chip.getAccessoryCertificateData(certificate.data(), length) == ACD::Success;
}

bool sign(ACD::AuthChipDriver& chip, Bytes& challenge, Bytes& signature)
{
    int challengeLength = 0;
    chip.getChallengeDataMaximumLength(challengeLength);
    challenge.resize(static_cast<std::size_t>(challengeLength));
    if (RAND_bytes(challenge.data(), challengeLength) != 1) // fresh each time: an old answer proves nothing
        return false;
    AL::U8* block = nullptr;
    int length = 0;
    if (chip.newSignature(challenge.data(), challengeLength, &block, &length) != ACD::Success)
        return false;
    signature.assign(block, block + length);
    std::free(block);
    return true;
}

/// The certificate in the container that has signed none of the others: the chip's. Null if there is none.
X509* chipsCertificate(const STACK_OF(X509) * certificates)
{
    for (int i = 0; i < sk_X509_num(certificates); ++i) {
        X509* candidate = sk_X509_value(certificates, i);
        bool isIssuer = false;
        for (int k = 0; k < sk_X509_num(certificates); ++k)
            isIssuer |= k != i && X509_check_issued(candidate, sk_X509_value(certificates, k)) == X509_V_OK;
        if (!isIssuer)
            return candidate;
    }
    return nullptr;
}

/// Whether one of the issuers in the file vouches for the certificate. OpenSSL also checks the dates.
bool isIssued(X509* certificate, STACK_OF(X509) * others, const char* issuers)
{
    const Store store(X509_STORE_new());
    const StoreContext context(X509_STORE_CTX_new());
    return store && context && X509_STORE_load_file(store.get(), issuers) == 1 &&
           X509_STORE_CTX_init(context.get(), store.get(), certificate, others) == 1 &&
           X509_verify_cert(context.get()) == 1;
}

/// OpenSSL takes r and s in DER; the chip sends 32 bytes of each.
Bytes inDer(const Bytes& signature)
{
    const EcdsaSignature pair(ECDSA_SIG_new());
    const int half = static_cast<int>(signature.size() / 2);
    ECDSA_SIG_set0(pair.get(), BN_bin2bn(signature.data(), half, nullptr),
                   BN_bin2bn(signature.data() + half, half, nullptr));
    Bytes der(static_cast<std::size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)));
    AL::U8* end = der.data();
    i2d_ECDSA_SIG(pair.get(), &end);
    return der;
}

/// The chip takes the challenge as a digest: of SHA-1 for the RSA key of protocol 2.0B, of SHA-256 for the P-256 key
/// of 3.0.
bool isSignedBy(EVP_PKEY* key, const Answer& answer)
{
    const bool isRsa = EVP_PKEY_is_a(key, "RSA") == 1;
    const Bytes signature = isRsa ? answer.signature : inDer(answer.signature);
    const KeyContext context(EVP_PKEY_CTX_new(key, nullptr));
    return context && EVP_PKEY_verify_init(context.get()) == 1 &&
           EVP_PKEY_CTX_set_signature_md(context.get(), isRsa ? EVP_sha1() : EVP_sha256()) == 1 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), answer.challenge.data(),
                           answer.challenge.size()) == 1;
}

/// Null if the chip is authentic; otherwise what is wrong.
const char* findFlaw(const Answer& answer, const char* issuers)
{
    const AL::U8* position = answer.certificate.data();
    const Container container(d2i_PKCS7(nullptr, &position, static_cast<long>(answer.certificate.size())));
    if (!container || PKCS7_type_is_signed(container.get()) == 0 || container->d.sign == nullptr)
        return "the certificate is no PKCS #7 container";
    X509* certificate = chipsCertificate(container->d.sign->cert);
    if (certificate == nullptr)
        return "the container holds no certificate";
    if (!isIssued(certificate, container->d.sign->cert, issuers))
        return "none of the issuers vouches for the certificate";
    EVP_PKEY* key = X509_get0_pubkey(certificate);
    return key != nullptr && isSignedBy(key, answer) ? nullptr : "the signature is not of the certificate's key";
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: verifying-host NODE ADDRESS ISSUERS\n");
        return 2;
    }
    occupyStandardDescriptors();
    sendLogToStandardError();
    ACD::AuthChipDriver* chip =
        ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0)));
    Answer answer;
    if (chip == nullptr || !readCertificate(*chip, answer.certificate) ||
        !sign(*chip, answer.challenge, answer.signature)) {
        std::fprintf(stderr, "verifying-host: the chip could not be asked\n");
        return 1;
    }
    const char* flaw = findFlaw(answer, argv[3]);
    std::printf("%s\n", flaw == nullptr ? "authentic" : flaw);
    return flaw == nullptr ? 0 : 3;
}
