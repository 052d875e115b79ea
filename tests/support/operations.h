#ifndef TESTS_SUPPORT_OPERATIONS_H
#define TESTS_SUPPORT_OPERATIONS_H

#include <ostream>
#include <vector>

#include <authchipdriver/authchipdriver.h>

#include "tests/support/healthychip.h"

namespace testsupport {

/// One operation of a driver on a healthy chip, and its minimum cost.
struct DriverOperation
{
    const char* name;
    int (*call)(VorelKestrel::ACD::AuthChipDriver& driver); ///< 0 on success
    std::vector<const char*> transfers;                     ///< the messages of the exchange, in their order
    int allocations; ///< one per i2cWrite() (its buffer), one per newSignature() (the answer)
};

std::ostream& operator<<(std::ostream& stream, const DriverOperation& operation);

/// Every operation that touches the bus, for a chip of protocol 2.0B.
const std::vector<DriverOperation>& operations20B();

/// The same for protocol 3.0.
const std::vector<DriverOperation>& operations30();

/// The operations without a transaction of their own: the six register helpers, which run inside a transaction of the
/// caller here, and the two limits, which do not use the bus.
const std::vector<DriverOperation>& operationsWithoutTransaction();

} // namespace testsupport

#endif
