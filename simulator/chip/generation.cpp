#include "simulator/chip/generation.h"

#include "authchipdriver/registermap.h"

namespace VorelKestrel::Simulator {

const Generation& generationOf(AL::U8 deviceVersion)
{
    const Generation* generation = nullptr;
    for (const DeviceVersion& version : kDeviceVersions) {
        if (version.generation != nullptr && (generation == nullptr || version.number <= deviceVersion))
            generation = version.generation;
    }
    return *generation;
}

std::size_t certificateMaximumLength(const Generation& generation)
{
    return static_cast<std::size_t>(generation.certificatePages) * ACD::kCertificatePageSize;
}

} // namespace VorelKestrel::Simulator
