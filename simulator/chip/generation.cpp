#include "simulator/chip/generation.h"

#include "authchipdriver/registermap.h"

namespace VorelKestrel::Simulator {

const Generation kGeneration20B = {"2.0B", "RSA-1024", 2, 0, 20, 128, 15, true};
const Generation kGeneration30 = {"3.0", "P-256", 3, 0, 32, 64, 10, false};

const Generation& generationOf(AL::U8 deviceVersion)
{
    return deviceVersion >= ACD::kDeviceVersion30 ? kGeneration30 : kGeneration20B;
}

std::size_t certificateMaximumLength(const Generation& generation)
{
    return static_cast<std::size_t>(generation.certificatePages) * ACD::kCertificatePageSize;
}

} // namespace VorelKestrel::Simulator
