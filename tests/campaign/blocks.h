#ifndef TESTS_CAMPAIGN_BLOCKS_H
#define TESTS_CAMPAIGN_BLOCKS_H

#include "tests/campaign/script.h"

namespace campaign {

/// Plays a script twice. Returns how many blocks the second time has left allocated, as every further time would.
long blocksLeftBy(const Script& script);

} // namespace campaign

#endif
