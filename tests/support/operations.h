#ifndef TESTS_SUPPORT_OPERATIONS_H
#define TESTS_SUPPORT_OPERATIONS_H

#include <ostream>
#include <vector>

#include <authchipdriver/authchipdriver.h>

#include "tests/support/healthychip.h"

namespace testsupport {

/// One operation of a driver on a chip that answers everything, and what it costs at least.
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

/// The operations of the interface that hold no transaction of their own: the six register helpers, each inside a
/// transaction here as its caller has to see to, and the two limits, which do not touch the bus.
const std::vector<DriverOperation>& operationsWithoutTransaction();

} // namespace testsupport

#endif
