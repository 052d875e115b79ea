#ifndef TESTS_SUPPORT_CONSOLELOG_H
#define TESTS_SUPPORT_CONSOLELOG_H

#include <streambuf>
#include <string>
#include <vector>

#include "tests/support/journal.h"

namespace testsupport {

/**
 * During its lifetime, writes everything from std::cout into the journal, line by line. The journal shows the line
 * number of a log statement as "#": "VorelKestrelDbgTrace(authchipdriver/i2c_linuxdev.cpp:#) i2cClose()"; lines()
 * returns the unchanged lines. Starts and ends with the console level of a new process, 3.
 */
class ConsoleLog : private std::streambuf
{
public:
    explicit ConsoleLog(Journal& journal);
    ~ConsoleLog() override;
    ConsoleLog(const ConsoleLog&) = delete;
    ConsoleLog& operator=(const ConsoleLog&) = delete;

    static void setLevel(int level);
    const std::vector<std::string>& lines() const { return m_lines; }

private:
    int_type overflow(int_type character) override;

    Journal& m_journal;
    std::streambuf* m_before;
    std::string m_line;
    std::vector<std::string> m_lines;
};

/// A console line of one source file in the form of the journal, for example
/// consoleLine("DbgError", "i2c_linuxdev", "Unable to open /dev/i2c-7").
std::string consoleLine(const std::string& kind, const std::string& source, const std::string& message);

} // namespace testsupport

#endif
