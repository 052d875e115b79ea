#ifndef AUTHCHIPDRIVER_DBGLOG_H
#define AUTHCHIPDRIVER_DBGLOG_H

#include <string>

#include <abstractionlibrary/export.h>

/**
 * The label of a function in the drivers' trace lines. The HOST defines and exports this function. The library only
 * calls it, and cannot be loaded into a process that lacks it. A host that does not care links the ready-made
 * definition (`authchipdriver::defaulthook`), which cuts the signature down to class and method.
 *
 * The drivers call it once for each "Enter ..." and "Leave ..." line, and only while the log4cplus logger is enabled
 * for TRACE.
 *
 * Requires:  it must not log through log4cplus: the unfinished line is in a stream that each thread has once, and would
 *            be lost. It must not call a driver operation: the caller may hold the bus, and the call would wait for
 *            ever.
 * Threads:   called by every thread that calls the driver, several at once.
 * Errors:    an exception leaves the driver operation, which releases the bus on the way out.
 *
 * @param prettyFunction  The signature of the driver operation as the compiler spells it, for example
 *                        "virtual int VorelKestrel::ACD::AuthChipDriver30::rawWrite(uint8_t, const void*, int)".
 * @param component       "Wexfordmallow".
 * @return The label, which the line takes as it is.
 */
AUTHCHIPDRIVER_API std::string dbglog_scopedFunction(const std::string& prettyFunction, const std::string& component);

#endif
