#include "tool/report/causes.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace VorelKestrel::Tool {
namespace {

constexpr Cause kCauses[] = {
    {"no answer", ExitStatus::Bus},
    {"bus stuck", ExitStatus::Bus},
    {"bus busy", ExitStatus::Bus},
    {"bus fails", ExitStatus::Bus},
    {"nothing delivered", ExitStatus::Bus},
    {"short read", ExitStatus::Bus},
    {"late answer", ExitStatus::Bus},
    {"bit errors", ExitStatus::Bus},
    {"bus shared", ExitStatus::Bus},

    {kWrongUsage, ExitStatus::Usage},
    {"8-bit address", ExitStatus::Usage},
    {"decimal address", ExitStatus::Usage},
    {"reserved address", ExitStatus::Usage},

    {"wrong signature", ExitStatus::NotAuthentic},
    {"another challenge", ExitStatus::NotAuthentic},
    {"recorded signature", ExitStatus::NotAuthentic},
    {"wrong kind of key", ExitStatus::NotAuthentic},
    {"signature in DER", ExitStatus::NotAuthentic},
    {"r and s exchanged", ExitStatus::NotAuthentic},
    {"signature out of range", ExitStatus::NotAuthentic},
    {"altered", ExitStatus::NotAuthentic},
    {"self-made", ExitStatus::NotAuthentic},
    {"unknown issuer", ExitStatus::NotAuthentic},
    {"issuer is no CA", ExitStatus::NotAuthentic},
    {"chain too long", ExitStatus::NotAuthentic},
    {"unknown extension", ExitStatus::NotAuthentic},
    {"not trusted", ExitStatus::NotAuthentic},
    {"not yet valid", ExitStatus::NotAuthentic},
    {"expired", ExitStatus::NotAuthentic},
    {"revoked", ExitStatus::NotAuthentic},
    {"no revocation list", ExitStatus::NotAuthentic},
    {"list altered", ExitStatus::NotAuthentic},
    {"list not yet valid", ExitStatus::NotAuthentic},
    {"list expired", ExitStatus::NotAuthentic},
    {"too weak", ExitStatus::NotAuthentic},

    {"node missing", ExitStatus::Environment},
    {"no permission", ExitStatus::Environment},
    {"no driver behind the node", ExitStatus::Environment},
    {"no I2C node", ExitStatus::Environment},
    {"out of descriptors", ExitStatus::Environment},
    {"node does not open", ExitStatus::Environment},
    {"timeout refused", ExitStatus::Environment},
    {"kernel driver bound", ExitStatus::Environment},
    {"address refused", ExitStatus::Environment},
    {"no plain I2C", ExitStatus::Environment},
    {"message too long", ExitStatus::Environment},
    {"file not written", ExitStatus::Environment},
    {"file not read", ExitStatus::Environment},
    {"capture damaged", ExitStatus::Environment},
    {"no capture possible", ExitStatus::Environment},
    {"not installed whole", ExitStatus::Environment},
    {"unexpected", ExitStatus::Environment},

    {"version without driver", ExitStatus::Chip},
    {"register refused", ExitStatus::Chip},
    {"chip busy", ExitStatus::Chip},
    {"wrong status", ExitStatus::Chip},
    {"chip restarted", ExitStatus::Chip},
    {"chip gone", ExitStatus::Chip},
    {"wrong length", ExitStatus::Chip},
    {"no certificate", ExitStatus::Chip},
    {"unreadable certificate", ExitStatus::Chip},

    {"lock held", ExitStatus::Lock},
    {"lock of another user", ExitStatus::Lock},
    {"token lost", ExitStatus::Lock},
    {"too many tokens", ExitStatus::Lock},
    {"key file gone", ExitStatus::Lock},
    {"lock orphaned", ExitStatus::Lock},
    {"lock not safe", ExitStatus::Lock},
    {"no lock possible", ExitStatus::Lock},
    {"second lock", ExitStatus::Lock},
    {"lock not changed", ExitStatus::Lock},
};

} // namespace

const std::vector<CauseClass>& causeClasses()
{
    static const std::vector<CauseClass> classes = {
        {ExitStatus::Bus, "the bus failed"},          {ExitStatus::Usage, "the command line is wrong"},
        {ExitStatus::NotAuthentic, "not authentic"},  {ExitStatus::Environment, "the system refused"},
        {ExitStatus::Chip, "the chip did not do it"}, {ExitStatus::Lock, "the lock"},
    };
    return classes;
}

const std::vector<Cause>& causes()
{
    static const std::vector<Cause> causes(std::begin(kCauses), std::end(kCauses));
    return causes;
}

ExitStatus statusOf(const std::string& cause)
{
    const auto& all = causes();
    const auto row = std::find_if(all.begin(), all.end(), [&](const Cause& each) { return cause == each.name; });
    if (row == all.end())
        throw std::logic_error("the table of causes lacks '" + cause + "'");
    return row->status;
}

} // namespace VorelKestrel::Tool
