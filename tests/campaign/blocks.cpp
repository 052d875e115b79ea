#include "tests/campaign/blocks.h"

#include "tests/campaign/trial.h"
#include "tests/support/allocations.h"

using namespace testsupport;

namespace campaign {

long blocksLeftBy(const Script& script)
{
    perform(script); // allocates what is allocated only once
    const long before = allocations::living().blocks;
    perform(script);
    return allocations::living().blocks - before;
}

} // namespace campaign
