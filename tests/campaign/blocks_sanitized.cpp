#include "tests/campaign/blocks.h"

namespace campaign {

/// Nothing is counted: the sanitizer tells of what is lost.
long blocksLeftBy(const Script& /*script*/)
{
    return 0;
}

} // namespace campaign
