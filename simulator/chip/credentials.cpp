#include "simulator/chip/credentials.h"

#include <utility>

namespace VorelKestrel::Simulator {

Credentials::Credentials(const Generation& generation, Bytes certificate, Signer signer)
    : m_generation(&generation), m_certificate(std::move(certificate)), m_signer(std::move(signer))
{}

Credentials Credentials::generate(const Generation& generation, std::size_t certificateLength)
{
    return issue(generation, newKey(generation), nullptr, certificateLength);
}

Credentials Credentials::load(const Generation& generation, const std::string& keyFile,
                              const std::string& certificateFile, std::size_t certificateLength)
{
    const Key key = readKeyOf(generation, keyFile);
    if (certificateFile.empty())
        return issue(generation, key, nullptr, certificateLength);
    return {generation, readContained(certificateFile, key), signerWith(generation, key)};
}

Credentials Credentials::issue(const Generation& generation, const Key& key, const Issuer* issuer,
                               std::size_t certificateLength)
{
    return {generation, makeContained(key, issuer, certificateLength), signerWith(generation, key)};
}

Credentials::Signer signerWith(const Generation& generation, const Key& key)
{
    return [digest = generation.digest, key](const Bytes& challenge) { return signAsChip(key, digest, challenge); };
}

Key readKeyOf(const Generation& generation, const std::string& keyFile)
{
    Key key = readKey(keyFile);
    if (!isKeyOf(generation, key))
        throw CredentialsError("the key in " + keyFile + " does not fit: a chip of protocol " + generation.protocol +
                               " signs with " + generation.keyName);
    return key;
}

} // namespace VorelKestrel::Simulator
