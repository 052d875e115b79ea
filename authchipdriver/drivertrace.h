#ifndef AUTHCHIPDRIVER_DRIVERTRACE_H
#define AUTHCHIPDRIVER_DRIVERTRACE_H

#include <log4cplus/loggingmacros.h>

#include <authchipdriver/dbglog.h>

#include "authchipdriver/loggername.h"

/**
 * The two lines that bracket a driver operation, at TRACE on the `g_logger` of the source file. @p details and
 * @p result are chains of stream insertions; "" is an empty one. They are macros because the log record and the
 * label carry the signature of the function that they stand in. With TRACE off neither is evaluated.
 */
#define TRACE_ENTER(details) TRACE_STATEMENT("Enter ", details)
#define TRACE_LEAVE(result) TRACE_STATEMENT("Leave ", result)

// NOLINTBEGIN(bugprone-macro-parentheses): a chain of insertions is not an operand.
#define TRACE_STATEMENT(verb, details)                                                                                 \
    LOG4CPLUS_TRACE(g_logger, (verb) << dbglog_scopedFunction(__PRETTY_FUNCTION__, kLoggerName) << ": " << details)
// NOLINTEND(bugprone-macro-parentheses)

#endif
