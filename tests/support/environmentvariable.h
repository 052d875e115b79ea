#ifndef TESTS_SUPPORT_ENVIRONMENTVARIABLE_H
#define TESTS_SUPPORT_ENVIRONMENTVARIABLE_H

#include <cstdlib>
#include <optional>
#include <string>

namespace testsupport {

/// Sets an environment variable and restores it at the end of the scope. Meanwhile the test may change it.
class EnvironmentVariable
{
public:
    EnvironmentVariable(const char* name, const std::string& value) : m_name(name)
    {
        const char* const before = std::getenv(name);
        if (before != nullptr)
            m_before = before;
        setenv(name, value.c_str(), 1);
    }
    ~EnvironmentVariable()
    {
        if (m_before)
            setenv(m_name.c_str(), m_before->c_str(), 1);
        else
            unsetenv(m_name.c_str());
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    const std::string m_name;
    std::optional<std::string> m_before;
};

} // namespace testsupport

#endif
