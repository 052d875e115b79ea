#ifndef COMMON_ESCAPED_H
#define COMMON_ESCAPED_H

#include <string>

namespace VorelKestrel {

/**
 * Makes a text from outside (a name of a process, user, file or certificate) safe to print on one line of a terminal:
 * control characters, characters that reverse or hide text, and bytes that are not UTF-8 become "\xNN".
 */
std::string escaped(const std::string& text);
/// The same for several lines: line feeds stay.
std::string escapedLines(const std::string& text);

} // namespace VorelKestrel

#endif
