#include "simulator/bus/bus.h"

#include <cerrno>

namespace VorelKestrel::Simulator {

int resultOf(const Transfer& transfer)
{
    if (transfer.outcome != Outcome::Done && transfer.error != 0)
        return -transfer.error;
    switch (transfer.outcome) {
    case Outcome::Done:
        return static_cast<int>(transfer.count);
    case Outcome::Refused:
        return -ENXIO;
    case Outcome::Failed:
        return -EIO;
    case Outcome::TimedOut:
        return -ETIMEDOUT;
    }
    return -EIO;
}

} // namespace VorelKestrel::Simulator
