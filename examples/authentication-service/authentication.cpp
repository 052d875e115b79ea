#include "authentication.h"

#include <cstdlib>

using namespace VorelKestrel;

namespace {

constexpr AL::U8 kBusy = 255; // beyond every ACD::Error

void append(Bytes& answer, unsigned long value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        answer.push_back(static_cast<AL::U8>(value >> static_cast<unsigned>(shift)));
}

void appendBlock(Bytes& answer, const Bytes& block)
{
    append(answer, block.size(), 2);
    answer.insert(answer.end(), block.begin(), block.end());
}

ACD::Error readCertificate(ACD::AuthChipDriver& chip, Bytes& certificate)
{
    int length = 0;
    const ACD::Error error = chip.getAccessoryCertificateDataLength(length);
    if (error != ACD::Success)
        return error;
    certificate.resize(static_cast<std::size_t>(length));
    return chip.getAccessoryCertificateData(certificate.data(), length);
}

ACD::Error sign(ACD::AuthChipDriver& chip, const Bytes& challenge, Bytes& signature)
{
    AL::U8* block = nullptr;
    int length = 0;
    const ACD::Error error = chip.newSignature(challenge.data(), static_cast<int>(challenge.size()), &block, &length);
    if (error != ACD::Success)
        return error;
    signature.assign(block, block + length);
    std::free(block);
    return error;
}

} // namespace

Bytes authenticate(ACD::AuthChipDriver& chip, const Bytes& challenge)
{
    int length = 0;
    chip.getChallengeDataMaximumLength(length);
    if (challenge.size() != static_cast<std::size_t>(length)) // a shorter one would be easier to guess
        return invalidAnswer();

    AL::U32 deviceId = 0;
    Bytes certificate;
    Bytes signature;
    ACD::Error error = chip.getDeviceID(deviceId);
    if (error == ACD::Success)
        error = readCertificate(chip, certificate);
    if (error == ACD::Success)
        error = sign(chip, challenge, signature);

    Bytes answer = {static_cast<AL::U8>(error)};
    if (error != ACD::Success)
        return answer;
    append(answer, deviceId, 4);
    appendBlock(answer, certificate);
    appendBlock(answer, signature);
    return answer;
}

Bytes busyAnswer()
{
    return {kBusy};
}

Bytes invalidAnswer()
{
    return {static_cast<AL::U8>(ACD::ErrorInvalid)};
}
