#ifndef TESTS_ABSTRACTIONLIBRARY_VALUES_H
#define TESTS_ABSTRACTIONLIBRARY_VALUES_H

// What goes through events and queues: pointers that nobody follows.
inline int g_a = 0;
inline int g_b = 0;
inline int g_c = 0;

#endif
