#ifndef SIMULATOR_CHIP_COUNTERFEITS_H
#define SIMULATOR_CHIP_COUNTERFEITS_H

#include <string>
#include <vector>

#include "simulator/chip/credentials.h"

namespace VorelKestrel::Simulator {

/// What a counterfeit starts from: a key of its own, and the issuer that the host trusts.
struct Material
{
    const Generation& generation;
    Key key;
    Issuer issuer;
};

/// A kind of counterfeit chip.
struct Counterfeit
{
    const char* name; // the value of the option
    const char* what; // in the help
    Credentials (*make)(const Material& material);
};

/// Every kind, in the order of the help. Help, completion and the tests read this table; a test compares the manual
/// page and the guide with it.
const std::vector<Counterfeit>& counterfeits();
/// Null if there is no such kind.
const Counterfeit* findCounterfeit(const std::string& name);

} // namespace VorelKestrel::Simulator

#endif
