#ifndef SIMULATOR_NODE_INPROCESSFRONT_H
#define SIMULATOR_NODE_INPROCESSFRONT_H

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <sys/types.h>

#include "simulator/node/i2cdevnode.h"

namespace VorelKestrel::Simulator {

/**
 * Connects the node with a program that defines open(), ioctl(), read(), write() and close() itself. Each of these
 * functions asks owns() and passes the call on, either to this object or to the C library.
 *
 *     ssize_t read(int fd, void* buffer, size_t count)
 *     {
 *         return g_front.owns(fd) ? g_front.read(fd, buffer, count) : realRead(fd, buffer, count);
 *     }
 *
 * The descriptors are numbers that the system never uses. No system call is made.
 *
 * Threads:   any.
 * Ownership: the node stays the caller's and outlives the front.
 * Errors:    like the system calls: -1 and errno.
 */
class InProcessFront
{
public:
    InProcessFront(I2cDevNode& node, std::string path);

    bool owns(const char* path) const { return m_path == path; }
    bool owns(int descriptor) const { return descriptor >= kFirstDescriptor; }

    int open();
    int close(int descriptor);
    int ioctl(int descriptor, unsigned long request, void* argument);
    ssize_t read(int descriptor, void* buffer, std::size_t count);
    ssize_t write(int descriptor, const void* buffer, std::size_t count);
    /// How many descriptors are open.
    std::size_t openCount() const;

private:
    static constexpr int kFirstDescriptor = 1 << 24; // above every limit on open files

    std::shared_ptr<I2cDevFile> find(int descriptor) const;

    I2cDevNode& m_node;
    const std::string m_path;
    mutable std::mutex m_mutex;
    std::map<int, std::shared_ptr<I2cDevFile>> m_files; // guarded by m_mutex
    int m_nextDescriptor = kFirstDescriptor;            // guarded by m_mutex
};

} // namespace VorelKestrel::Simulator

#endif
