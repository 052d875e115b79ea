#ifndef TESTS_CAMPAIGN_ORACLE_H
#define TESTS_CAMPAIGN_ORACLE_H

#include "tests/campaign/script.h"

namespace campaign {

/**
 * What has to come of a script. A description of the operations of its own, made from their tables of failures: it
 * shares neither code nor the manner of writing with the library, so that both are not wrong in the same way.
 */
Behaviour predict(const Script& script);

} // namespace campaign

#endif
