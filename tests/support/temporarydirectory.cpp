#include "tests/support/temporarydirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace testsupport {

TemporaryDirectory::TemporaryDirectory()
    : m_path((std::filesystem::temp_directory_path() / "authchipdriver-test-XXXXXX").string())
{
    if (mkdtemp(m_path.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), m_path);
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored; // leftovers are no reason to fail a test
    std::filesystem::remove_all(m_path, ignored);
}

} // namespace testsupport
