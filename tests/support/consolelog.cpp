#include "tests/support/consolelog.h"

#include <iostream>
#include <regex>

#include <abstractionlibrary/debugstdiologger.h>

namespace testsupport {

namespace {

constexpr int kLevelOfANewProcess = 3;

std::string withoutLineNumber(const std::string& line)
{
    static const std::regex lineNumber(R"(^(VorelKestrelDbg\w+\([^:]+:)\d+\))");
    return std::regex_replace(line, lineNumber, "$1#)");
}

} // namespace

ConsoleLog::ConsoleLog(Journal& journal) : m_journal(journal), m_before(std::cout.rdbuf(this))
{
    setLevel(kLevelOfANewProcess);
}

ConsoleLog::~ConsoleLog()
{
    std::cout.rdbuf(m_before);
    setLevel(kLevelOfANewProcess);
}

void ConsoleLog::setLevel(int level)
{
    VorelKestrel::AL::DebugStdioLogger::getInstance("Wexfordmallow")->setLogLevel(level);
}

ConsoleLog::int_type ConsoleLog::overflow(int_type character)
{
    if (character != '\n') {
        m_line += static_cast<char>(character);
        return character;
    }
    m_lines.push_back(m_line);
    m_journal.add(Journal::Kind::Line, withoutLineNumber(m_line));
    m_line.clear();
    return character;
}

std::string consoleLine(const std::string& kind, const std::string& source, const std::string& message)
{
    return "VorelKestrel" + kind + "(authchipdriver/" + source + ".cpp:#) " + message;
}

} // namespace testsupport
