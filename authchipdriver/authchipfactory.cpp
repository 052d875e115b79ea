#include "authchipdriver/authchipfactory.h"

#include <cerrno>
#include <cstring>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "authchipdriver/bustransaction.h"
#include "authchipdriver/consolelog.h"
#include "authchipdriver/registermap.h"

namespace VorelKestrel { namespace ACD {
namespace {

constexpr AL::U8 kDeviceVersion10 = 1;
constexpr AL::U8 kDeviceVersion20A = 2;
constexpr AL::U8 kDeviceVersion20B = 3;
constexpr AL::U8 kDeviceVersion20BLater = 5;
constexpr AL::U8 kDeviceVersion30 = 7;

AL::DebugStdioLogger* g_logger = AL::DebugStdioLogger::getInstance(kLoggerName);

/// Makes the driver that speaks the chip's protocol; null, and a line that says why, if there is none.
AuthChipDriver* createDriver(AL::U8 deviceVersion)
{
    switch (deviceVersion) {
    case kDeviceVersion20B:
    case kDeviceVersion20BLater:
        return new AuthChipDriver20B;
    case kDeviceVersion30:
        return new AuthChipDriver30;
    case kDeviceVersion10:
        DBG_ERROR("Authentication chip driver version 1.0 is not yet supported");
        return nullptr;
    case kDeviceVersion20A:
        DBG_ERROR("Authentication chip driver version 2.0A is not yet supported");
        return nullptr;
    default:
        DBG_ERROR("Unknown authentication chip driver version: " << static_cast<unsigned>(deviceVersion));
        return nullptr;
    }
}

} // namespace

AuthChipDriver* AuthChipFactory::m_authChipDriverInstance = nullptr;

// Deliberate: no lock around the check and the assignment; hosts make the first call from one thread.
AuthChipDriver* AuthChipFactory::getAuthChipDriverInstance(const char* device, int address)
{
    if (m_authChipDriverInstance != nullptr)
        return m_authChipDriverInstance;

    if (i2cInit(device, address) != 0)
        return nullptr;

    // Deliberate: from here on a failure leaves the device open; the factory never closes it.
    const BusTransaction transaction;
    if (!transaction.started())
        return nullptr;

    // Deliberate: not cleared; the error line below shows what the stack held (valgrind: the suppression
    // factory-prints-the-uncleared-version in tests/support/valgrind.supp).
    AL::U8 deviceVersion; // NOLINT(cppcoreguidelines-init-variables)
    const int readRes = i2cRead(kRegisterDeviceVersion, sizeof(deviceVersion), &deviceVersion);
    if (readRes != sizeof(deviceVersion)) {
        DBG_ERROR("Error in i2cRead, readRes=" << readRes << " deviceVersion=" << static_cast<unsigned>(deviceVersion)
                                               << " errno=" << errno << " str=" << strerror(errno));
        return nullptr;
    }
    DBG_INFO("Authentication chip driver version: " << static_cast<unsigned>(deviceVersion));
    AuthChipDriver* const driver = createDriver(deviceVersion);
    if (driver != nullptr) // never back to null: hosts keep the driver that another first call has made meanwhile
        m_authChipDriverInstance = driver;
    return driver;
}

}} // namespace VorelKestrel::ACD
