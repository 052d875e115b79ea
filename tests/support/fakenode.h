#ifndef TESTS_SUPPORT_FAKENODE_H
#define TESTS_SUPPORT_FAKENODE_H

#include <cstring>

#include "tests/support/systemcalls.h"

namespace testsupport {

/// An i2c-dev node that opens, accepts every address and closes. The chip's answers come from the fakes derived from
/// it.
class FakeNode : public SystemCallHandler
{
public:
    static constexpr const char* kDevice = "/dev/i2c-7";
    static constexpr int kAddress = 0x2a;

    bool answersFor(const char* path) override { return std::strcmp(path, kDevice) == 0; }
    bool answersFor(int descriptor) override { return descriptor == kDescriptor; }

    int open(const char* /*path*/, int /*flags*/) override { return kDescriptor; }
    int ioctl(int /*descriptor*/, unsigned long /*request*/, unsigned long /*argument*/) override { return 0; }
    int close(int /*descriptor*/) override { return 0; }

protected:
    static constexpr int kDescriptor = 1 << 20; // above the descriptors of a process
};

} // namespace testsupport

#endif
