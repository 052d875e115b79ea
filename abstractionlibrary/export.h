#ifndef ABSTRACTIONLIBRARY_EXPORT_H
#define ABSTRACTIONLIBRARY_EXPORT_H

/// Marks what the shared library exports; every other symbol of it is hidden.
#define AUTHCHIPDRIVER_API __attribute__((visibility("default")))

#endif
