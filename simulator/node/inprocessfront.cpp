#include "simulator/node/inprocessfront.h"

#include <cerrno>
#include <utility>

namespace VorelKestrel::Simulator {
namespace {

/// Converts the kernel's form of a result to the C library's.
template<typename Result>
Result delivered(Result result)
{
    if (result >= 0)
        return result;
    errno = static_cast<int>(-result);
    return -1;
}

} // namespace

InProcessFront::InProcessFront(I2cDevNode& node, std::string path) : m_node(node), m_path(std::move(path)) {}

int InProcessFront::open()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_files.emplace(m_nextDescriptor, m_node.open());
    return m_nextDescriptor++;
}

int InProcessFront::close(int descriptor)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return delivered(m_files.erase(descriptor) == 1 ? 0 : -EBADF);
}

int InProcessFront::ioctl(int descriptor, unsigned long request, void* argument)
{
    const auto file = find(descriptor);
    return delivered(file == nullptr ? -EBADF : file->ioctl(request, argument));
}

ssize_t InProcessFront::read(int descriptor, void* buffer, std::size_t count)
{
    const auto file = find(descriptor);
    return delivered(file == nullptr ? ssize_t{-EBADF} : file->read(buffer, count));
}

ssize_t InProcessFront::write(int descriptor, const void* buffer, std::size_t count)
{
    const auto file = find(descriptor);
    return delivered(file == nullptr ? ssize_t{-EBADF} : file->write(buffer, count));
}

std::size_t InProcessFront::openCount() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_files.size();
}

// Shared, because another thread may close the descriptor during a call.
std::shared_ptr<I2cDevFile> InProcessFront::find(int descriptor) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_files.find(descriptor);
    return found == m_files.end() ? nullptr : found->second;
}

} // namespace VorelKestrel::Simulator
