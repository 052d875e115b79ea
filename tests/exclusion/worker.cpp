// One process of those that share a chip: two threads that call operations, chosen at random, until the arbiter says
// that it is over. Usage: exclusionworker DESCRIPTOR PROCESS SEED locked|unlocked    the memory of the chip; who this
// is among the
//        processes; what to choose; whether it respects the lock

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

#include <log4cplus/logger.h>

#include <authchipdriver/authchipfactory.h>

#include "tests/exclusion/sharedchip.h"
#include "tests/support/corruption.h"
#include "tests/support/fakebus.h"
#include "tests/support/healthychip.h"

using namespace testsupport;
using VorelKestrel::ACD::AuthChipDriver;
using VorelKestrel::ACD::AuthChipFactory;
using VorelKestrel::ACD::Error;
using VorelKestrel::ACD::Success;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

using Random = std::mt19937;

template<Error (AuthChipDriver::*query)(U8&)>
bool readVersion(AuthChipDriver& driver, Random& /*random*/)
{
    U8 version = 0;
    return (driver.*query)(version) == Success && version != 0;
}

bool readDeviceId(AuthChipDriver& driver, Random& /*random*/)
{
    U32 id = 0;
    return driver.getDeviceID(id) == Success && id == 0x00010203;
}

bool readCertificateLength(AuthChipDriver& driver, Random& /*random*/)
{
    int length = 0;
    return driver.getAccessoryCertificateDataLength(length) == Success && length == kCertificateLength;
}

bool readCertificate(AuthChipDriver& driver, Random& /*random*/)
{
    Bytes certificate(kCertificateLength);
    int length = kCertificateLength;
    return driver.getAccessoryCertificateData(certificate.data(), length) == Success &&
           certificate == counting(kCertificateLength);
}

/// The answer must be the one to this challenge and to no other's.
bool sign(AuthChipDriver& driver, Random& random)
{
    Bytes challenge(32);
    std::generate(challenge.begin(), challenge.end(), [&] { return static_cast<U8>(random()); });
    U8* response = nullptr;
    int responseLength = 0;
    if (driver.newSignature(challenge.data(), 32, &response, &responseLength) != Success)
        return false;
    int signedLength = 0;
    driver.getChallengeDataMaximumLength(signedLength);
    const bool isMine = std::equal(challenge.begin(), challenge.begin() + signedLength, response,
                                   [](U8 mine, U8 answer) { return SharedChip::answerTo(mine) == answer; });
    std::free(response);
    return isMine;
}

bool rawRead(AuthChipDriver& driver, Random& /*random*/)
{
    const Bytes data(128);
    return driver.rawRead(0x31, data.data(), 128) == 128 && data == counting(128);
}

bool rawWrite(AuthChipDriver& driver, Random& random)
{
    const Bytes data(1 + random() % 32, static_cast<U8>(random()));
    const int length = static_cast<int>(data.size());
    return driver.rawWrite(0x21, data.data(), length) == length;
}

struct SharedOperation
{
    int transfers; ///< on a chip that answers everything
    bool (*call)(AuthChipDriver& driver, Random& random);
};

constexpr SharedOperation kOperations[] = {
    {2, readVersion<&AuthChipDriver::getDeviceVersion>},
    {2, readVersion<&AuthChipDriver::getFirmwareVersion>},
    {2, readVersion<&AuthChipDriver::getAuthenticationProtocolMajorVersion>},
    {2, readVersion<&AuthChipDriver::getAuthenticationProtocolMinorVersion>},
    {2, readDeviceId},
    {2, readCertificateLength},
    {16, readCertificate},
    {10, sign},
    {2, rawRead},
    {1, rawWrite},
};
constexpr int kDetection = std::size(kOperations); // a kind that is not called again
constexpr int kDetectionTransfers = 2;

void work(SharedChip& chip, AuthChipDriver& driver, ChipUser& user, Random random)
{
    SharedChipNode::attends(user);
    while (!chip.arbiter.isOver()) {
        const std::size_t kind = random() % std::size(kOperations);
        user.begins(static_cast<int>(kind), kOperations[kind].transfers);
        user.ends(kOperations[kind].call(driver, random));
    }
}

AuthChipDriver* detect(ChipUser& user)
{
    SharedChipNode::attends(user);
    user.begins(kDetection, kDetectionTransfers);
    AuthChipDriver* const driver =
        AuthChipFactory::getAuthChipDriverInstance(SharedChipNode::kDevice, SharedChipNode::kAddress);
    user.ends(driver != nullptr);
    return driver;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::cerr << "exclusionworker: four arguments are wanted\n";
        return 2;
    }
    const SharedChipMemory memory(std::atoi(argv[1]));
    const int process = std::atoi(argv[2]);
    const auto seed = static_cast<unsigned>(std::atol(argv[3]));
    const bool isLocked = std::strcmp(argv[4], "locked") == 0;

    log4cplus::Logger::getInstance("Wexfordmallow").setLogLevel(log4cplus::OFF_LOG_LEVEL);
    SharedChip& chip = memory.chip();
    const SharedChipNode node(chip, isLocked ? SharedChipNode::Locks::Real : SharedChipNode::Locks::Ignored);
    ChipUser first(chip, process, 1);
    ChipUser second(chip, process, 2);
    AuthChipDriver* const driver = detect(first);
    if (driver == nullptr)
        return 1;
    std::thread other([&] { work(chip, *driver, second, Random(seed + 1)); });
    work(chip, *driver, first, Random(seed));
    other.join();
    return 0;
}
