#include "tool/doctor/checks.h"

namespace VorelKestrel::Tool {

const std::vector<Check>& doctorChecks()
{
    static const std::vector<Check> checks = {
        {"node", {}, checkNode},
        {"address", {}, checkAddress}, // an address of 8 bits shows without a node
        {"lock", {}, checkLock},
        {"chip", {"node", "address", "lock"}, checkChip},
        {"generation", {"chip"}, checkGeneration},
    };
    return checks;
}

} // namespace VorelKestrel::Tool
