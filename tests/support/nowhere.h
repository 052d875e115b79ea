#ifndef TESTS_SUPPORT_NOWHERE_H
#define TESTS_SUPPORT_NOWHERE_H

#include <iostream>
#include <streambuf>

namespace testsupport {

/// Discards everything written to std::cout during its lifetime.
class Nowhere : private std::streambuf
{
public:
    Nowhere() : m_before(std::cout.rdbuf(this)) {}
    ~Nowhere() override { std::cout.rdbuf(m_before); }
    Nowhere(const Nowhere&) = delete;
    Nowhere& operator=(const Nowhere&) = delete;

private:
    int_type overflow(int_type character) override { return character; }

    std::streambuf* m_before;
};

} // namespace testsupport

#endif
