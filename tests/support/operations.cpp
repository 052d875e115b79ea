#include "tests/support/operations.h"

#include <cstdlib>

#include "authchipdriver/bustransaction.h"

namespace testsupport {

using namespace VorelKestrel::ACD;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

namespace {

U8 g_buffer[kCertificateLength];

template<Error (AuthChipDriver::*query)(U8&)>
int readVersion(AuthChipDriver& driver)
{
    U8 version = 0;
    return (driver.*query)(version);
}

int readDeviceId(AuthChipDriver& driver)
{
    U32 id = 0;
    return driver.getDeviceID(id);
}

int readCertificateLength(AuthChipDriver& driver)
{
    int length = 0;
    return driver.getAccessoryCertificateDataLength(length);
}

int readCertificate(AuthChipDriver& driver)
{
    int length = kCertificateLength;
    return driver.getAccessoryCertificateData(g_buffer, length);
}

int sign(AuthChipDriver& driver)
{
    constexpr int kChallengeLength = 32; // for protocol 3.0; 2.0B cuts it
    U8* response = nullptr;
    int responseLength = 0;
    const Error error = driver.newSignature(g_buffer, kChallengeLength, &response, &responseLength);
    std::free(response);
    return error;
}

template<int length>
int rawWrite(AuthChipDriver& driver)
{
    return driver.rawWrite(0x21, g_buffer, length) - length;
}

template<int length>
int rawRead(AuthChipDriver& driver)
{
    return driver.rawRead(0x31, g_buffer, length) - length;
}

template<typename Value, Error (AuthChipDriver::*read)(int, Value&), int reg>
int readInTransaction(AuthChipDriver& driver)
{
    const BusTransaction transaction; // the caller's part
    Value value = 0;
    return (driver.*read)(reg, value);
}

template<Error (AuthChipDriver::*write)(int, int)>
int writeInTransaction(AuthChipDriver& driver)
{
    const BusTransaction transaction;
    return (driver.*write)(0x20, 20);
}

template<void (AuthChipDriver::*query)(int&)>
int readLimit(AuthChipDriver& driver)
{
    int length = 0;
    (driver.*query)(length);
    return length > 0 ? 0 : 1;
}

std::vector<DriverOperation> operationsWithSignature(std::vector<const char*> transfers, int allocations)
{
    return {
        {"getDeviceVersion", readVersion<&AuthChipDriver::getDeviceVersion>, {"write", "read"}, 0},
        {"getFirmwareVersion", readVersion<&AuthChipDriver::getFirmwareVersion>, {"write", "read"}, 0},
        {"getAuthenticationProtocolMajorVersion",
         readVersion<&AuthChipDriver::getAuthenticationProtocolMajorVersion>,
         {"write", "read"},
         0},
        {"getAuthenticationProtocolMinorVersion",
         readVersion<&AuthChipDriver::getAuthenticationProtocolMinorVersion>,
         {"write", "read"},
         0},
        {"getDeviceID", readDeviceId, {"write", "read"}, 0},
        {"getAccessoryCertificateDataLength", readCertificateLength, {"write", "read"}, 0},
        {"getAccessoryCertificateData",
         readCertificate,
         {"write", "read", "write", "read", "write", "read", "write", "read", //
          "write", "read", "write", "read", "write", "read", "write", "read"},
         0},
        {"newSignature", sign, std::move(transfers), allocations},
        {"rawWriteOf1Byte", rawWrite<1>, {"write"}, 1},
        {"rawWriteOf128Bytes", rawWrite<128>, {"write"}, 1},
        {"rawReadOf1Byte", rawRead<1>, {"write", "read"}, 0},
        {"rawReadOf128Bytes", rawRead<128>, {"write", "read"}, 0},
    };
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const DriverOperation& operation)
{
    return stream << operation.name;
}

const std::vector<DriverOperation>& operations20B()
{
    // Signature length, challenge length, challenge, command, status, signature length, signature.
    static const std::vector<DriverOperation> operations = operationsWithSignature(
        {"write", "write", "write", "write", "write", "read", "write", "read", "write", "read"}, 5);
    return operations;
}

const std::vector<DriverOperation>& operations30()
{
    // Challenge, its length, command, status, response length, response.
    static const std::vector<DriverOperation> operations = operationsWithSignature(
        {"write", "write", "read", "write", "write", "read", "write", "read", "write", "read"}, 3);
    return operations;
}

const std::vector<DriverOperation>& operationsWithoutTransaction()
{
    using Driver = AuthChipDriver;
    static const std::vector<DriverOperation> operations = {
        {"getChallengeResponseDataMaximumLength", readLimit<&Driver::getChallengeResponseDataMaximumLength>, {}, 0},
        {"getChallengeDataMaximumLength", readLimit<&Driver::getChallengeDataMaximumLength>, {}, 0},
        {"readByte", readInTransaction<U8, &Driver::readByte, 0x00>, {"write", "read"}, 0},
        {"readWord", readInTransaction<U16, &Driver::readWord, 0x30>, {"write", "read"}, 0},
        {"readDWord", readInTransaction<U32, &Driver::readDWord, 0x04>, {"write", "read"}, 0},
        {"writeByte", writeInTransaction<&Driver::writeByte>, {"write"}, 1},
        {"writeWord", writeInTransaction<&Driver::writeWord>, {"write"}, 1},
        {"writeDWord", writeInTransaction<&Driver::writeDWord>, {"write"}, 1},
    };
    return operations;
}

} // namespace testsupport
