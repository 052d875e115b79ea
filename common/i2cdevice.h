#ifndef COMMON_I2CDEVICE_H
#define COMMON_I2CDEVICE_H

#include <cstddef>
#include <string>

#include <sys/stat.h>

namespace VorelKestrel {

constexpr unsigned kI2cMajor = 89;                  // the kernel's major number of i2c-dev
constexpr std::size_t kMessageMaximumLength = 8192; // bytes; the kernel's limit for one message

/// Whether a file can be the i2c-dev node of a bus: a device with the kernel's number for them. A simulated node need
/// not have the number, but has the name.
bool mayBeI2cNode(const std::string& path, const struct stat& status);

} // namespace VorelKestrel

#endif
