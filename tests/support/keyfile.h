#ifndef TESTS_SUPPORT_KEYFILE_H
#define TESTS_SUPPORT_KEYFILE_H

#include <string>

namespace testsupport {

/// The key file of the lock between processes, in a folder for temporary files.
std::string keyFileIn(const std::string& folder);

/// The number of the semaphore with the key of that file, or -1.
int semaphoreOf(const std::string& keyFile);

/// Creates the file so that no semaphore has its key yet. The key contains only 16 bits of the file's inode number, so
/// an old semaphore on the machine may have the same key.
void makeKeyFileOfItsOwn(const std::string& keyFile);

} // namespace testsupport

#endif
