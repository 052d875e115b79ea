#ifndef TESTS_SUPPORT_UNCOUNTEDBUS_H
#define TESTS_SUPPORT_UNCOUNTEDBUS_H

#include "tests/support/allocations.h"
#include "tests/support/fakebus.h"

namespace testsupport {

/// A fake bus whose own allocations are neither counted nor refused. For programs that link allocations.cpp.
class UncountedBus : public FakeBus
{
public:
    using FakeBus::FakeBus;

    int open(const char* path, int flags) override
    {
        const allocations::Pause pause;
        return FakeBus::open(path, flags);
    }
    int ioctl(int descriptor, unsigned long request, unsigned long argument) override
    {
        const allocations::Pause pause;
        return FakeBus::ioctl(descriptor, request, argument);
    }
    ssize_t read(int descriptor, void* data, std::size_t count) override
    {
        const allocations::Pause pause;
        return FakeBus::read(descriptor, data, count);
    }
    ssize_t write(int descriptor, const void* data, std::size_t count) override
    {
        const allocations::Pause pause;
        return FakeBus::write(descriptor, data, count);
    }
    int close(int descriptor) override
    {
        const allocations::Pause pause;
        return FakeBus::close(descriptor);
    }
    int usleep(unsigned microseconds) override
    {
        const allocations::Pause pause;
        return FakeBus::usleep(microseconds);
    }
    int changeSemaphore(int delta) override
    {
        const allocations::Pause pause;
        return FakeBus::changeSemaphore(delta);
    }
};

} // namespace testsupport

#endif
