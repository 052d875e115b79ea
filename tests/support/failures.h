#ifndef TESTS_SUPPORT_FAILURES_H
#define TESTS_SUPPORT_FAILURES_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <authchipdriver/authchipdriver.h>

#include "tests/support/fakebus.h"

namespace testsupport {

/// One way in which an operation of a driver fails on an otherwise healthy chip.
struct FailingCall
{
    std::string name;                                       ///< "newSignatureWithRegister10Refused"
    int (*call)(VorelKestrel::ACD::AuthChipDriver& driver); ///< not 0: failed
    std::function<void(FakeBus&)> arrange;
};

std::ostream& operator<<(std::ostream& stream, const FailingCall& failure);

/// Every failure of every operation that a chip of protocol 2.0B or the caller can cause.
const std::vector<FailingCall>& failures20B();

/// The same for protocol 3.0.
const std::vector<FailingCall>& failures30();

} // namespace testsupport

#endif
