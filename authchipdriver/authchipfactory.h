#ifndef AUTHCHIPDRIVER_AUTHCHIPFACTORY_H
#define AUTHCHIPDRIVER_AUTHCHIPFACTORY_H

#include <abstractionlibrary/export.h>
#include <authchipdriver/authchipdriver.h>

namespace VorelKestrel { namespace ACD {

/**
 * Where a host begins: detects which chip is on the bus and hands out the driver for it.
 *
 * Threads:   make the first call from one thread; nothing guards two first calls against each other. Once a driver
 *            exists, any thread may call.
 * Ownership: the factory owns the driver, which lives until the process ends.
 * Errors:    null, with the reason in a console line (DbgError) on std::cout.
 *
 * @par Example
 * @snippet reference/authchipdriver.cpp detection
 */
class AUTHCHIPDRIVER_API AuthChipFactory
{
public:
    AuthChipFactory() = delete;

    /**
     * Returns the driver for a chip.
     *
     * The first call opens the node and reads the chip's device version (register 0x00): 3 and 5 yield an
     * AuthChipDriver20B, 7 an AuthChipDriver30. After a success every call returns the same driver and ignores its
     * arguments.
     *
     * @param device   The path of the i2c-dev node, for example "/dev/i2c-1".
     * @param address  The chip's 7-bit address.
     * @return The driver; null if the node does not open, the chip does not answer, or its version is another one. The
     *         call may then be repeated. Each failure leaves a descriptor open, except those of opening the node and
     *         of selecting the address.
     */
    static AuthChipDriver* getAuthChipDriverInstance(const char* device, int address);

private:
    static AuthChipDriver* m_authChipDriverInstance; // owned, never deleted; null until a chip has been detected
};

}} // namespace VorelKestrel::ACD

#endif
