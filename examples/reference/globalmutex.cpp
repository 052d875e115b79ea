// A host keeps every process off the chip for a while, for example while it switches the chip's power.
// Usage: globalmutex NODE ADDRESS

#include <cstdio>
#include <cstdlib>

#include <abstractionlibrary/globalmutex.h>
#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

namespace {

void switchPower() {}

//! [example]
/// Holds the bus against all processes that use the library, from construction to the end of the scope.
class BusReservation
{
public:
    BusReservation() { m_lock.lock(); }
    ~BusReservation() { m_lock.unlock(); }
    BusReservation(const BusReservation&) = delete;
    BusReservation& operator=(const BusReservation&) = delete;

private:
    AL::GlobalMutex m_lock;
};

void resetChip()
{
    const BusReservation reservation; // call no driver operation in here: it would wait forever
    switchPower();
}
//! [example]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    ACD::AuthChipDriver* chip =
        ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0)));
    resetChip();
    AL::U8 version = 0;
    if (chip == nullptr || chip->getDeviceVersion(version) != ACD::Success)
        return EXIT_FAILURE;
    std::printf("device version %d after the reset\n", version);
}
