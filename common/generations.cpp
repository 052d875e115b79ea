#include "common/generations.h"

namespace VorelKestrel {

std::string supportedProtocols()
{
    std::string text;
    const Generation* last = nullptr;
    for (const DeviceVersion& version : kDeviceVersions) {
        if (version.generation == nullptr)
            continue;
        if (version.generation == last) {
            text += " or " + std::to_string(version.number);
            continue;
        }
        text += text.empty() ? "" : ") or ";
        text += std::string(version.protocol) + " (device version " + std::to_string(version.number);
        last = version.generation;
    }
    return text + ")";
}

} // namespace VorelKestrel
