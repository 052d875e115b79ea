#ifndef TESTS_SUPPORT_JOURNAL_H
#define TESTS_SUPPORT_JOURNAL_H

#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

/// The library's system calls and log lines, in order. Threads may write concurrently.
class Journal
{
public:
    enum class Kind
    {
        Call, ///< a faked system call
        Line  ///< a console line or a log4cplus record
    };

    void add(Kind kind, const std::string& text);
    void clear();
    /// From now on each entry is also printed to standard error, one per line, so that it remains if the process dies.
    void echo();

    std::vector<std::string> all() const;
    std::vector<std::string> only(Kind kind) const;

private:
    struct Entry
    {
        Kind kind;
        std::string text;
    };

    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries; // these two guarded by m_mutex
    bool m_echoes = false;
};

/// Joins the parts with @p separator between them.
std::string join(const std::vector<std::string>& parts, const std::string& separator);

/// An expected conversation: @p part repeated, with "; " between.
std::string repeated(int times, const std::string& part);

} // namespace testsupport

#endif
