#ifndef TESTS_CAMPAIGN_TRIAL_H
#define TESTS_CAMPAIGN_TRIAL_H

#include "tests/campaign/script.h"

namespace campaign {

/// What the library makes of a script on the fake bus, in this process.
Behaviour perform(const Script& script);

/// The same in a child process that an assertion is expected to stop.
Behaviour performToTheEnd(const Script& script);

} // namespace campaign

#endif
