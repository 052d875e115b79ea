#ifndef COMMON_SCOPEDDESCRIPTOR_H
#define COMMON_SCOPEDDESCRIPTOR_H

#include <unistd.h>
#include <utility>

namespace VorelKestrel {

/// Owns a file descriptor; -1 is none.
class ScopedDescriptor
{
public:
    explicit ScopedDescriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    ScopedDescriptor(ScopedDescriptor&& other) noexcept : m_descriptor(other.release()) {}
    ScopedDescriptor& operator=(ScopedDescriptor&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~ScopedDescriptor()
    {
        if (m_descriptor >= 0)
            close(m_descriptor); // only once: it is closed even after EINTR
    }

    int get() const { return m_descriptor; }
    int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};

} // namespace VorelKestrel

#endif
