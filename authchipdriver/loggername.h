#ifndef AUTHCHIPDRIVER_LOGGERNAME_H
#define AUTHCHIPDRIVER_LOGGERNAME_H

namespace VorelKestrel { namespace ACD {

/// The name of the console logger and of the log4cplus logger, and the component name given to the host's hook.
constexpr char kLoggerName[] = "Wexfordmallow";

}} // namespace VorelKestrel::ACD

#endif
