#ifndef AUTHCHIPDRIVER_CONSOLELOG_H
#define AUTHCHIPDRIVER_CONSOLELOG_H

#include <iostream>

#include <abstractionlibrary/debugstdiologger.h>

#include "authchipdriver/loggername.h"

/**
 * Console log statements. @p message is a chain of stream insertions. Each statement reads the level from the
 * `g_logger` of its own source file; while its gate is closed no operand of the message is evaluated. They are macros
 * because the source path and line in the output are those of the statement.
 *
 * The formatting state of std::cout is neither saved nor restored: a message that switches to hexadecimal switches
 * back itself. Only the line number is always decimal.
 */
#define DBG_ERROR(message) DBG_STATEMENT("DbgError", 1, message)
#define DBG_INFO(message) DBG_STATEMENT("DbgInfo", 3, message)
#define DBG_TRACE(message) DBG_STATEMENT("DbgTrace", 5, message)

// NOLINTBEGIN(bugprone-macro-parentheses): a chain of insertions is not an operand.
#define DBG_STATEMENT(kind, gate, message)                                                                             \
    do {                                                                                                               \
        if (g_logger->getLogLevel() > (gate))                                                                          \
            std::cout << "VorelKestrel" << (kind) << "(" << __FILE__ << ":" << std::dec << __LINE__ << ") " << message \
                      << std::endl;                                                                                    \
    } while (false)
// NOLINTEND(bugprone-macro-parentheses)

#endif
