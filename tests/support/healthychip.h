#ifndef TESTS_SUPPORT_HEALTHYCHIP_H
#define TESTS_SUPPORT_HEALTHYCHIP_H

#include <map>

#include "tests/support/fakebus.h"
#include "tests/support/instantdevice.h"

namespace testsupport {

constexpr int kCertificateLength = 907; // of the healthy chip

/// The registers of a healthy chip of either generation, as all operations read them.
std::map<VorelKestrel::AL::U8, Bytes> healthyChip(bool protocol30);
/// Stores these registers in the bus.
void arrangeHealthyChip(FakeBus& bus, bool protocol30);
/// Stores these registers in a device for measurements.
void arrangeHealthyChip(InstantDevice& device, bool protocol30);

} // namespace testsupport

#endif
