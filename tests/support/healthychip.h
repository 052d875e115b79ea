#ifndef TESTS_SUPPORT_HEALTHYCHIP_H
#define TESTS_SUPPORT_HEALTHYCHIP_H

#include "tests/support/fakebus.h"
#include "tests/support/instantdevice.h"

constexpr int kCertificateLength = 907; // of the healthy chip

/// Puts what every operation reads from a chip that does all it is asked into the bus, for either generation.
void arrangeHealthyChip(FakeBus& bus, bool protocol30);
/// The same for a device that is measured.
void arrangeHealthyChip(InstantDevice& device, bool protocol30);

#endif
