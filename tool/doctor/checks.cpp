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
        {"certificate", {"generation"}, checkCertificate},
        {"signature", {"generation"}, checkSignature}, // a chip without a certificate may sign
    };
    return checks;
}

} // namespace VorelKestrel::Tool
