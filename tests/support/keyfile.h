#ifndef TESTS_SUPPORT_KEYFILE_H
#define TESTS_SUPPORT_KEYFILE_H

#include <string>

namespace testsupport {

/// The file of a folder for temporary files from which Qt makes the key of the lock between processes.
std::string keyFileIn(const std::string& folder);

/// The system's number of the semaphore that has the key of that file, or -1.
int semaphoreOf(const std::string& keyFile);

/// Makes the file, so that nobody has a semaphore of its key yet: the key has 16 bits of the file's number, and what
/// others have left on the machine may have the same.
void makeKeyFileOfItsOwn(const std::string& keyFile);

} // namespace testsupport

#endif
