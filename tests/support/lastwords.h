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
 * Matches the standard error of a process that prints its journal and then dies. Exactly these entries must come first.
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
    if (assertion.empty()) // a report of a sanitizer or of the emulator may follow
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

/// True for the exit status of a process that accessed invalid memory.
inline bool diedOfTheAccess(int status)
{
#if defined(__SANITIZE_ADDRESS__) ||                                                                                   \
    defined(__SANITIZE_THREAD__) // the sanitizer reports the access and ends the process
    return !WIFEXITED(status) || WEXITSTATUS(status) != 0;
#else
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV;
#endif
}

} // namespace testsupport

#endif
