#include "common/i2cdevice.h"

#include <sys/sysmacros.h>

namespace VorelKestrel {

bool mayBeI2cNode(const std::string& path, const struct stat& status)
{
    return S_ISCHR(status.st_mode) && (major(status.st_rdev) == kI2cMajor || path.find("/i2c-") != std::string::npos);
}

} // namespace VorelKestrel
