#include "tests/support/failures.h"

#include <cstdlib>
#include <map>

#include "tests/support/operations.h"

namespace testsupport {

using namespace VorelKestrel::ACD;
using VorelKestrel::AL::U8;

namespace {

using Arrange = std::function<void(FakeBus&)>;

/// One access of an operation to a register.
struct Access
{
    bool isWrite;
    U8 reg;
};

struct Fault
{
    const char* name;
    void (*arrange)(FakeBus& bus, U8 reg);
};

const Fault kReadFaults[] = {
    {"Refused", [](FakeBus& bus, U8 reg) { bus.refusesRegister(reg); }},
    {"Unread", [](FakeBus& bus, U8 reg) { bus.failsReadsOf(reg); }},
    {"Short", [](FakeBus& bus, U8 reg) { bus.deliversOnly(reg, 0); }},
};

const Fault kWriteFaults[] = {
    {"Unwritten", [](FakeBus& bus, U8 reg) { bus.refusesData(reg); }},
    {"TakenInPart", [](FakeBus& bus, U8 reg) { bus.takesOnly(reg, 1); }},
};

constexpr Access reads(U8 reg)
{
    return {false, reg};
}

constexpr Access writes(U8 reg)
{
    return {true, reg};
}

using Accesses = std::map<std::string, std::vector<Access>>;

/// The registers that each operation accesses; for the certificate only the first and the last page.
Accesses accesses(bool protocol30)
{
    Accesses accesses = {
        {"getDeviceVersion", {reads(0x00)}},
        {"getFirmwareVersion", {reads(0x01)}},
        {"getAuthenticationProtocolMajorVersion", {reads(0x02)}},
        {"getAuthenticationProtocolMinorVersion", {reads(0x03)}},
        {"getDeviceID", {reads(0x04)}},
        {"getAccessoryCertificateDataLength", {reads(0x30)}},
        {"getAccessoryCertificateData", {reads(0x31), reads(0x38)}},
        {"rawWriteOf1Byte", {writes(0x21)}},
        {"rawWriteOf128Bytes", {writes(0x21)}},
        {"rawReadOf1Byte", {reads(0x31)}},
        {"rawReadOf128Bytes", {reads(0x31)}},
        {"readByte", {reads(0x00)}},
        {"readWord", {reads(0x30)}},
        {"readDWord", {reads(0x04)}},
        {"writeByte", {writes(0x20)}},
        {"writeWord", {writes(0x20)}},
        {"writeDWord", {writes(0x20)}},
    };
    if (protocol30)
        accesses["newSignature"] = {writes(0x21), reads(0x20), writes(0x10), reads(0x10), reads(0x11), reads(0x12)};
    else
        accesses["newSignature"] = {writes(0x11), writes(0x20), writes(0x21), writes(0x10),
                                    reads(0x10),  reads(0x11),  reads(0x12)};
    return accesses;
}

template<int length>
int readCertificate(AuthChipDriver& driver)
{
    static U8 buffer[length > 0 ? length : 1];
    int count = length;
    return driver.getAccessoryCertificateData(buffer, count);
}

template<int challengeLength>
int sign(AuthChipDriver& driver)
{
    static const U8 challenge[challengeLength] = {};
    U8* response = nullptr;
    int responseLength = 0;
    const Error error = driver.newSignature(challenge, challengeLength, &response, &responseLength);
    std::free(response);
    return error;
}

int signIntoNothing(AuthChipDriver& driver)
{
    static const U8 challenge[32] = {};
    int responseLength = 0;
    return driver.newSignature(challenge, sizeof(challenge), nullptr, &responseLength);
}

int rawWriteOfANegativeLength(AuthChipDriver& driver)
{
    const U8 byte = 0;
    return driver.rawWrite(0x21, &byte, -5) - (-5);
}

int rawReadOfANegativeLength(AuthChipDriver& driver)
{
    U8 byte = 0;
    return driver.rawRead(0x31, &byte, -5) - (-5);
}

/// Wrong answers of the chip, or wrong arguments of the caller, while every transfer succeeds.
std::vector<FailingCall> refusedContents(bool protocol30)
{
    const auto holds = [](U8 reg, const Bytes& content) -> Arrange {
        return [reg, content](FakeBus& bus) { bus.holds(reg, content); };
    };
    const Arrange nothing = [](FakeBus&) {};
    std::vector<FailingCall> failures = {
        {"newSignatureWithABadStatus", sign<32>, holds(0x10, {0x20})},
        {"newSignatureOfWhichLessComesThanTheLengthSays", sign<32>, holds(0x11, {0xff, 0xff})},
        {"getAccessoryCertificateDataOfANegativeLength", readCertificate<-5>, nothing},
        {"rawWriteOfANegativeLength", rawWriteOfANegativeLength, nothing},
        {"rawReadOfANegativeLength", rawReadOfANegativeLength, nothing},
        {"getAccessoryCertificateDataBeyondTheLastPage", readCertificate<2000>, [](FakeBus& bus) {
             for (U8 page = 0x31; page <= 0x3f; ++page)
                 bus.holds(page, counting(128));
         }}};
    if (protocol30) {
        failures.push_back({"newSignatureWithAnotherChallengeLengthReturned", sign<32>, holds(0x20, {0, 31})});
        failures.push_back({"newSignatureOfAChallengeOf20Bytes", sign<20>, nothing});
        failures.push_back({"newSignatureIntoNothing", signIntoNothing, nothing});
    }
    return failures;
}

std::string nameOf(const DriverOperation& operation, const Access& access, const Fault& fault)
{
    return operation.name + std::string("WithRegister") + hex({access.reg}) + fault.name;
}

template<typename Faults>
void addFailures(std::vector<FailingCall>& failures, const DriverOperation& operation, const Access& access,
                 const Faults& faults)
{
    for (const Fault& fault : faults) {
        failures.push_back({nameOf(operation, access, fault), operation.call,
                            [fault, access](FakeBus& bus) { fault.arrange(bus, access.reg); }});
    }
}

std::vector<FailingCall> failures(bool protocol30)
{
    std::vector<DriverOperation> operations = protocol30 ? operations30() : operations20B();
    const auto& others = operationsWithoutTransaction();
    operations.insert(operations.end(), others.begin(), others.end());
    auto accessesOf = accesses(protocol30);
    std::vector<FailingCall> failures = refusedContents(protocol30);
    for (const DriverOperation& operation : operations) {
        for (const Access& access : accessesOf[operation.name]) {
            if (access.isWrite)
                addFailures(failures, operation, access, kWriteFaults);
            else
                addFailures(failures, operation, access, kReadFaults);
        }
    }
    return failures;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const FailingCall& failure)
{
    return stream << failure.name;
}

const std::vector<FailingCall>& failures20B()
{
    static const std::vector<FailingCall> failuresOf20B = failures(false);
    return failuresOf20B;
}

const std::vector<FailingCall>& failures30()
{
    static const std::vector<FailingCall> failuresOf30 = failures(true);
    return failuresOf30;
}

} // namespace testsupport
