#ifndef AUTHCHIPDRIVER_DBGLOG_H
#define AUTHCHIPDRIVER_DBGLOG_H

#include <string>

#include <abstractionlibrary/export.h>

/**
 * The label of a function in the drivers' trace lines. The HOST defines and exports this function; the library only
 * calls it and cannot be loaded into a process that lacks it. A host without wishes of its own links the ready-made
 * definition (`defaulthook/`), which cuts the signature down to class and method.
 *
 * It is called while an "Enter ..." or "Leave ..." line is being built, once per line, and only while the log4cplus
 * logger is enabled for TRACE; the line takes the result as it is.
 *
 * Requires:  it must not log through log4cplus: the line being built stands in a stream that is one per thread and
 *            would be lost. It must not call a driver operation: the caller may hold the bus, and the call would
 *            wait for ever.
 * Threads:   called from whichever threads call the driver, several at once.
 * Errors:    an exception leaves the driver operation, which releases the bus on the way out.
 *
 * @param prettyFunction  The signature of the driver operation as the compiler spells it, for example
 *                        "virtual int VorelKestrel::ACD::AuthChipDriver30::rawWrite(uint8_t, const void*, int)".
 * @param component       "Wexfordmallow".
 */
AUTHCHIPDRIVER_API std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& component);

#endif
