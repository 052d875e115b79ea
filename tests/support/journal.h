#ifndef TESTS_SUPPORT_JOURNAL_H
#define TESTS_SUPPORT_JOURNAL_H

#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

/// What happened, in its order: system calls of the library and lines of its logs. Threads may write concurrently.
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
    /// From now on each entry is also written to standard error, a line each: what a process that dies leaves behind.
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

/// The parts with @p separator between them.
std::string join(const std::vector<std::string>& parts, const std::string& separator);

/// @p part so many times, with "; " between: an expected conversation.
std::string repeated(int times, const std::string& part);

} // namespace testsupport

#endif
