#ifndef AUTHCHIPDRIVER_AUTHCHIPFACTORY_H
#define AUTHCHIPDRIVER_AUTHCHIPFACTORY_H

#include <abstractionlibrary/export.h>
#include <authchipdriver/authchipdriver.h>

namespace VorelKestrel { namespace ACD {

/**
 * The host's way in: finds out which chip is on the bus and hands out the driver for it.
 *
 * Threads:   make the first call from one thread; nothing guards two first calls against each other. Once a driver
 *            exists, any thread may call.
 * Ownership: the factory owns the driver; it lives until the process ends.
 * Errors:    null, with the reason in a console line (DbgError) on std::cout.
 */
class AUTHCHIPDRIVER_API AuthChipFactory
{
public:
    AuthChipFactory() = delete;

    /**
     * Returns the driver for the chip at @p address (7-bit) on the i2c-dev node @p device (for example "/dev/i2c-1").
     *
     * The first call opens the node and reads the chip's device version (register 0x00): 3 and 5 yield an
     * AuthChipDriver20B, 7 an AuthChipDriver30; every other value, a node that does not open and a chip that does not
     * answer yield null. After a null the call may be repeated; each such failure but that of opening the node or
     * selecting the address leaves a descriptor open. After a success every call returns the same driver and ignores
     * its arguments.
     */
    static AuthChipDriver* getAuthChipDriverInstance(const char* device, int address);

private:
    static AuthChipDriver* m_authChipDriverInstance; // owned, never deleted; null until a chip has been detected
};

}} // namespace VorelKestrel::ACD

#endif
