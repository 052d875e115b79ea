#include "common/standarddescriptors.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace VorelKestrel;

namespace {

const int g_flags = fcntl(STDERR_FILENO, F_GETFL); // of what this program was started with

/// Whether @p holds is true in a process that has closed the descriptors from @p first to @p last and occupied them.
bool holdsAfterClosing(int first, int last, bool (*holds)())
{
    const pid_t process = fork();
    if (process == 0) {
        for (int descriptor = first; descriptor <= last; ++descriptor)
            close(descriptor);
        occupyStandardDescriptors();
        _exit(holds() ? 0 : 1);
    }
    int status = 1;
    waitpid(process, &status, 0);
    return status == 0;
}

bool isNull(int descriptor)
{
    struct stat ours = {};
    struct stat null = {};
    return fstat(descriptor, &ours) == 0 && stat("/dev/null", &null) == 0 && ours.st_rdev == null.st_rdev;
}

TEST(StandardDescriptorsTest, NoFileTakesThePlaceOfOneThatWasClosed)
{
    for (int first = 0; first < 3; ++first) {
        for (int last = first; last < 3; ++last)
            EXPECT_TRUE(holdsAfterClosing(first, last, [] { return open("/", O_RDONLY) > STDERR_FILENO; }));
    }
}

TEST(StandardDescriptorsTest, WhatIsWrittenOrReadThereFailsAsOnAClosedOne)
{
    EXPECT_TRUE(holdsAfterClosing(0, 2, [] {
        char byte = 0;
        return isNull(0) && read(0, &byte, 1) == -1 && errno == EBADF && isNull(1) && write(1, "a", 1) == -1 &&
               errno == EBADF && isNull(2) && write(2, "a", 1) == -1 && errno == EBADF;
    }));
}

TEST(StandardDescriptorsTest, OnesThatAreOpenStay)
{
    EXPECT_TRUE(holdsAfterClosing(0, 0, [] { return dup2(STDERR_FILENO, 7) == 7 && fcntl(7, F_GETFL) == g_flags; }));
}

} // namespace
