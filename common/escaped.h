#ifndef COMMON_ESCAPED_H
#define COMMON_ESCAPED_H

#include <string>

namespace VorelKestrel {

/**
 * A text from outside (the name of a process, a user, a file; a certificate's names), fit for a terminal and for one
 * line: control characters, characters that reverse or hide text, and bytes that are no UTF-8 become "\xNN".
 */
std::string escaped(const std::string& text);
/// The same for a text of several lines: line feeds stay.
std::string escapedLines(const std::string& text);

} // namespace VorelKestrel

#endif
