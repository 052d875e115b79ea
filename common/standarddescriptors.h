#ifndef COMMON_STANDARDDESCRIPTORS_H
#define COMMON_STANDARDDESCRIPTORS_H

namespace VorelKestrel {

/**
 * Fills the places of standard input, output and error that whoever started this program has closed. Otherwise the next
 * file that is opened takes the place, be it the bus, and what is meant for standard output goes there. Reading from
 * such a place, or writing to it, fails as before.
 *
 * Requires: it is the first thing that main() calls.
 */
void occupyStandardDescriptors();

} // namespace VorelKestrel

#endif
