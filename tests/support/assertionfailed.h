#ifndef TESTS_SUPPORT_ASSERTIONFAILED_H
#define TESTS_SUPPORT_ASSERTIONFAILED_H

#include <string>

#include <gmock/gmock.h>

namespace testsupport {

/// Matches the message of a process that an assertion stops, with the full text of the assertion:
/// EXPECT_DEATH(i2cClose(), assertionFailed("g_file != -1")).
inline auto assertionFailed(const std::string& text)
{
    return ::testing::HasSubstr(": Assertion `" + text + "' failed.");
}

} // namespace testsupport

#endif
