#ifndef TESTS_SUPPORT_HEALTHYCHIP_H
#define TESTS_SUPPORT_HEALTHYCHIP_H

#include <map>

#include "tests/support/fakebus.h"
#include "tests/support/instantdevice.h"

namespace testsupport {

constexpr int kCertificateLength = 907; // of the healthy chip

/// What every operation reads from a chip that does all it is asked, for either generation: the content of its
/// registers.
std::map<VorelKestrel::AL::U8, Bytes> healthyChip(bool protocol30);
/// Puts that into the bus.
void arrangeHealthyChip(FakeBus& bus, bool protocol30);
/// The same for a device that is measured.
void arrangeHealthyChip(InstantDevice& device, bool protocol30);

} // namespace testsupport

#endif
