#include "tests/support/processcounts.h"

#include <filesystem>
#include <iterator>

#include "tests/support/allocations.h"

namespace testsupport {

namespace {

int entriesOf(const char* folder)
{
    const allocations::Pause pause;
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

} // namespace

int descriptorCount()
{
    return entriesOf("/proc/self/fd");
}

int threadCount()
{
    return entriesOf("/proc/self/task");
}

} // namespace testsupport
