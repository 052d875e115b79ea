#include "simulator/chip/counterfeits.h"

#include <algorithm>
#include <utility>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/objects.h>

#include "common/opensslpointer.h"

namespace VorelKestrel::Simulator {
namespace {

using Group = OpensslPointer<EC_GROUP, EC_GROUP_free>;
using Number = OpensslPointer<BIGNUM, BN_free>;

constexpr std::size_t kCutOrPaddedBytes = 16;
constexpr unsigned char kRevokedSerialByte = 0x0d;

Bytes certificateFor(const Material& material, const CertificateText& text = {})
{
    return contained({makeIssued(material.key, text, material.issuer)});
}

Credentials withCertificate(const Material& material, Bytes certificate)
{
    return {material.generation, std::move(certificate), signerWith(material.generation, material.key)};
}

Credentials withSigner(const Material& material, Credentials::Signer signer)
{
    return {material.generation, certificateFor(material), std::move(signer)};
}

/// An authority below another, with a new key.
Issuer makeAuthority(const char* name, const char* basicConstraints, const Issuer& above)
{
    CertificateText text;
    text.name = name;
    text.basicConstraints = basicConstraints;
    const Key key = newEcKey(kGeneration30.keyGroup);
    return {key, makeIssued(key, text, above)};
}

Credentials selfMade(const Material& material)
{
    return withCertificate(material, contained({makeSelfSigned(material.key, {})}));
}

Credentials unknownIssuer(const Material& material)
{
    CertificateText text;
    text.name = "Unknown issuer";
    text.basicConstraints = "critical,CA:TRUE";
    const Key key = newEcKey(kGeneration30.keyGroup);
    const Issuer stranger = {key, makeSelfSigned(key, text)};
    return withCertificate(material, contained({makeIssued(material.key, {}, stranger)}));
}

Credentials anotherKey(const Material& material)
{
    return withSigner(material, signerWith(material.generation, newKey(material.generation)));
}

Credentials recordedSignature(const Material& material)
{
    const Bytes challenge(material.generation.challengeLength, 0x5a);
    return withSigner(material, [recorded = signAsChip(material.key, material.generation.digest, challenge)](
                                    const Bytes&) { return recorded; });
}

Credentials anotherChallenge(const Material& material)
{
    return withSigner(material, [sign = signerWith(material.generation, material.key)](Bytes challenge) {
        challenge.back() ^= 1U;
        return sign(challenge);
    });
}

Credentials cutCertificate(const Material& material)
{
    Bytes certificate = certificateFor(material);
    certificate.resize(certificate.size() - kCutOrPaddedBytes);
    return withCertificate(material, certificate);
}

Credentials paddedCertificate(const Material& material)
{
    Bytes certificate = certificateFor(material);
    certificate.resize(certificate.size() + kCutOrPaddedBytes);
    return withCertificate(material, certificate);
}

Credentials otherGeneration(const Material& material)
{
    const Generation& other = &material.generation == &kGeneration30 ? kGeneration20B : kGeneration30;
    return withCertificate(material, contained({makeIssued(newKey(other), {}, material.issuer)}));
}

Credentials expired(const Material& material)
{
    CertificateText text;
    text.notBefore = -2 * kSecondsOfADay;
    text.notAfter = -kSecondsOfADay;
    return withCertificate(material, certificateFor(material, text));
}

Credentials notYetValid(const Material& material)
{
    CertificateText text;
    text.notBefore = kSecondsOfADay;
    return withCertificate(material, certificateFor(material, text));
}

Credentials revoked(const Material& material)
{
    CertificateText text;
    text.serialByte = kRevokedSerialByte;
    return withCertificate(material, certificateFor(material, text));
}

Credentials issuerNoCa(const Material& material)
{
    const Issuer other = makeAuthority("Another chip", "critical,CA:FALSE", material.issuer);
    return withCertificate(material, contained({makeIssued(material.key, {}, other), other.certificate}));
}

Credentials chainTooLong(const Material& material)
{
    const Issuer first = makeAuthority("Last", "critical,CA:TRUE,pathlen:0", material.issuer);
    const Issuer second = makeAuthority("More", "critical,CA:TRUE", first);
    CertificateText text;
    text.serialLength = 1; // a chip's memory is short
    return withCertificate(material,
                           contained({makeIssued(material.key, text, second), second.certificate, first.certificate}));
}

Credentials escapesInName(const Material& material)
{
    CertificateText text;
    text.name = "\x1b]0;authentic\x07\x1b[2Jauthentic\r\n\x1b[8m";
    return withCertificate(material, contained({makeSelfSigned(material.key, text)}));
}

Credentials otherKeyKind(const Material& material)
{
    const Key key = isRsa(material.key) ? newRsaKey(2048) : newEcKey("P-384");
    return {material.generation, contained({makeIssued(key, {}, material.issuer)}),
            signerWith(material.generation, key)};
}

void requireEcdsa(const Material& material)
{
    if (isRsa(material.key))
        throw CredentialsError(std::string("protocol ") + material.generation.protocol +
                               " signs with RSA, whose signatures have no r and s");
}

Credentials derSignature(const Material& material)
{
    requireEcdsa(material);
    return withSigner(material, [key = material.key, digest = material.generation.digest](const Bytes& challenge) {
        return signDigest(key, digest, challenge);
    });
}

Credentials exchanged(const Material& material)
{
    requireEcdsa(material);
    return withSigner(material, [sign = signerWith(material.generation, material.key)](const Bytes& challenge) {
        Bytes signature = sign(challenge);
        std::rotate(signature.begin(), signature.begin() + static_cast<std::ptrdiff_t>(signature.size() / 2),
                    signature.end());
        return signature;
    });
}

Credentials zeroSignature(const Material& material)
{
    return withSigner(material, [length = material.generation.responseLength](const Bytes&) { return Bytes(length); });
}

Bytes bytesOf(const BIGNUM* number, std::size_t length)
{
    Bytes bytes(length);
    require(number != nullptr && BN_bn2binpad(number, bytes.data(), static_cast<int>(length)) >= 0,
            "encoding a number failed");
    return bytes;
}

/// The order of the curve's group, as r and as s; or the modulus of the RSA key.
Bytes orderOf(const Material& material)
{
    const std::size_t length = material.generation.responseLength;
    if (isRsa(material.key)) {
        BIGNUM* modulus = nullptr;
        EVP_PKEY_get_bn_param(material.key.get(), OSSL_PKEY_PARAM_RSA_N, &modulus);
        return bytesOf(Number(modulus).get(), length);
    }
    const Group group(EC_GROUP_new_by_curve_name(OBJ_txt2nid(material.generation.keyGroup)));
    require(group != nullptr, "finding the curve failed");
    const Bytes order = bytesOf(EC_GROUP_get0_order(group.get()), length / 2);
    Bytes twice = order;
    twice.insert(twice.end(), order.begin(), order.end());
    return twice;
}

Credentials groupOrder(const Material& material)
{
    return withSigner(material, [order = orderOf(material)](const Bytes&) { return order; });
}

} // namespace

const std::vector<Counterfeit>& counterfeits()
{
    static const std::vector<Counterfeit> table = {
        {"self-made", "a certificate that the chip's own key has signed", selfMade},
        {"unknown-issuer", "a certificate of another issuer", unknownIssuer},
        {"another-key", "a genuine certificate, and signatures of another key", anotherKey},
        {"recorded-signature", "the same recorded signature for every challenge", recordedSignature},
        {"another-challenge", "a signature over another challenge", anotherChallenge},
        {"cut-certificate", "a genuine certificate without its last bytes", cutCertificate},
        {"padded-certificate", "a genuine certificate with bytes behind it", paddedCertificate},
        {"other-generation", "a certificate for a key of the other protocol", otherGeneration},
        {"expired", "a certificate that was valid until yesterday", expired},
        {"not-yet-valid", "a certificate that is valid from tomorrow on", notYetValid},
        {"revoked", "a certificate with the serial number 0d0d... (16 bytes), for a revocation list", revoked},
        {"issuer-no-ca", "a certificate that another chip's key has signed", issuerNoCa},
        {"chain-too-long", "a certificate below more issuers than its issuer allows", chainTooLong},
        {"escapes-in-name", "a self-made certificate whose name contains terminal escape sequences", escapesInName},
        {"other-key-kind", "a key on another curve or of another size", otherKeyKind},
        {"der-signature", "signatures in DER (3.0 only)", derSignature},
        {"exchanged", "signatures with r and s exchanged (3.0 only)", exchanged},
        {"zero", "signatures of zeros", zeroSignature},
        {"group-order", "signatures of the curve's order, or of the RSA modulus", groupOrder},
    };
    return table;
}

const Counterfeit* findCounterfeit(const std::string& name)
{
    const auto& table = counterfeits();
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const Counterfeit& each) { return each.name == name; });
    return found == table.end() ? nullptr : &*found;
}

} // namespace VorelKestrel::Simulator
