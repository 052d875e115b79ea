#ifndef TESTS_SUPPORT_THROWINGCONSOLE_H
#define TESTS_SUPPORT_THROWINGCONSOLE_H

#include <iostream>
#include <new>
#include <streambuf>

namespace testsupport {

/// A console of a host with exceptions enabled that throws std::bad_alloc at the end of one of its lines; the first
/// line is 1.
class ThrowingConsole : private std::streambuf
{
public:
    explicit ThrowingConsole(int line)
        : m_lines(line), m_before(std::cout.rdbuf(this)), m_masked(std::cout.exceptions())
    {
        std::cout.exceptions(std::ios::badbit);
    }
    ~ThrowingConsole() override
    {
        std::cout.clear();
        std::cout.exceptions(m_masked);
        std::cout.rdbuf(m_before);
    }
    ThrowingConsole(const ThrowingConsole&) = delete;
    ThrowingConsole& operator=(const ThrowingConsole&) = delete;

    bool hasThrown() const { return m_lines <= 0; }

private:
    int_type overflow(int_type character) override
    {
        if (character == '\n' && --m_lines == 0)
            throw std::bad_alloc();
        return character;
    }

    int m_lines;
    std::streambuf* m_before;
    std::ios::iostate m_masked;
};

} // namespace testsupport

#endif
