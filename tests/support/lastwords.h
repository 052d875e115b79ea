#ifndef TESTS_SUPPORT_LASTWORDS_H
#define TESTS_SUPPORT_LASTWORDS_H

#include <csignal>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/journal.h"

namespace testsupport {

/**
 * What a process leaves behind on standard error that echoes its journal and then dies. Nothing may have happened
 * before that but these entries.
 *
 *     EXPECT_DEATH({ m_journal.echo(); sign(-1); }, assertionFailedAfter({"lock", "write 11 00 80"}, "value > 0"));
 *     EXPECT_EXIT({ m_journal.echo(); sign(nullptr); }, diedOfTheAccess, lastWords({"lock", "write 11 00 80"}));
 */
MATCHER_P2(LastWords, entries, assertion, "the entries \"" + join(entries, "; ") + "\" and then " + assertion)
{
    const std::string& text = arg;
    const std::string before = join(entries, "\n") + (entries.empty() ? "" : "\n");
    if (text.compare(0, before.size(), before) != 0)
        return false;
    const std::string after = text.substr(before.size());
    if (assertion.empty()) // what follows is the report of a sanitizer or of the emulator, if anything
        return after.empty() || after.front() == '=' || after.find("Sanitizer") != std::string::npos ||
               after.rfind("qemu: uncaught target signal 11 ", 0) == 0 ||
               after.find("runtime error") != std::string::npos;
    return after.substr(0, after.find('\n')).find(": Assertion `" + assertion + "' failed.") != std::string::npos;
}

inline auto assertionFailedAfter(const std::vector<std::string>& entries, const std::string& text)
{
    return LastWords(entries, text);
}

inline auto lastWords(const std::vector<std::string>& entries)
{
    return LastWords(entries, std::string());
}

/// True for the exit status of a process that touched memory which it does not have.
inline bool diedOfTheAccess(int status)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) // it reports the access and ends the process itself
    return !WIFEXITED(status) || WEXITSTATUS(status) != 0;
#else
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV;
#endif
}

} // namespace testsupport

#endif
