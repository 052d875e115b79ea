// Reads a register past the drivers.
// Usage: i2c NODE ADDRESS

#include <cstdio>
#include <cstdlib>

#include <authchipdriver/i2c.h>

using namespace VorelKestrel;

namespace {

//! [example]
/// Holds the bus from construction to the end of the scope.
class Transaction
{
public:
    Transaction() { ACD::i2cStartTransaction(); }
    ~Transaction() { ACD::i2cStopTransaction(); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
};

bool readDeviceId(AL::U8 (&id)[4])
{
    constexpr AL::U8 kDeviceId = 0x04;
    const Transaction transaction;
    return ACD::i2cRead(kDeviceId, sizeof(id), id) == sizeof(id); // 0, -1 and a short count are failures
}
//! [example]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3 || ACD::i2cInit(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0))) != 0)
        return 2;
    AL::U8 id[4] = {};
    const bool isRead = readDeviceId(id);
    ACD::i2cClose();
    if (!isRead)
        return EXIT_FAILURE;
    std::printf("%02x%02x%02x%02x\n", id[0], id[1], id[2], id[3]);
}
