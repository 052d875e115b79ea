#ifndef TESTS_SIMULATOR_CHIP_TESTCREDENTIALS_H
#define TESTS_SIMULATOR_CHIP_TESTCREDENTIALS_H

#include <memory>

#include "simulator/chip/credentials.h"

/// One set of credentials per generation for all cases of a process: creating a key takes long.
inline std::shared_ptr<const VorelKestrel::Simulator::Credentials>
testCredentials(const VorelKestrel::Generation& generation)
{
    using namespace VorelKestrel;
    using namespace VorelKestrel::Simulator;
    if (&generation == &kGeneration20B) {
        static const auto credentials = std::make_shared<const Credentials>(Credentials::generate(kGeneration20B));
        return credentials;
    }
    static const auto credentials = std::make_shared<const Credentials>(Credentials::generate(kGeneration30));
    return credentials;
}

#endif
