#ifndef COMMON_STANDARDDESCRIPTORS_H
#define COMMON_STANDARDDESCRIPTORS_H

namespace VorelKestrel {

/**
 * Opens standard input, output and error if they are closed. Otherwise the next opened file, for example the bus, would
 * get such a descriptor, and standard output would go there. Reading and writing these descriptors still fails.
 *
 * Requires: main() calls it first.
 */
void occupyStandardDescriptors();

} // namespace VorelKestrel

#endif
