#include "tests/support/healthychip.h"

#include <algorithm>

#include "common/generations.h"

namespace testsupport {

namespace {

using U8 = VorelKestrel::AL::U8;

template<typename Device>
void arrange(Device& device, bool protocol30)
{
    for (auto& [reg, content] : healthyChip(protocol30))
        device.holds(reg, content);
}

} // namespace

std::map<U8, Bytes> healthyChip(bool protocol30)
{
    const auto& generation = protocol30 ? VorelKestrel::kGeneration30 : VorelKestrel::kGeneration20B;
    const auto responseLength = static_cast<U8>(generation.responseLength);
    std::map<U8, Bytes> registers = {
        {0x00, {1}},
        {0x01, {1}},
        {0x02, {1}},
        {0x03, {1}},
        {0x04, counting(4)},
        {0x10, {0x10}},
        {0x11, {0, responseLength}},
        {0x12, counting(responseLength)},
        {0x20, {0, 32}},
        {0x30, {kCertificateLength >> 8, kCertificateLength & 0xff}},
    };
    U8 reg = 0x31;
    for (int start = 0; start < kCertificateLength; start += kPageSize)
        registers[reg++] = counting(std::min(kPageSize, kCertificateLength - start), start & 0xff);
    return registers;
}

void arrangeHealthyChip(FakeBus& bus, bool protocol30)
{
    arrange(bus, protocol30);
}

void arrangeHealthyChip(InstantDevice& device, bool protocol30)
{
    arrange(device, protocol30);
}

} // namespace testsupport
