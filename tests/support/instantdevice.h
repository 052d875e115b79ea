#ifndef TESTS_SUPPORT_INSTANTDEVICE_H
#define TESTS_SUPPORT_INSTANTDEVICE_H

#include <array>
#include <vector>

#include <abstractionlibrary/types.h>

#include "tests/support/fakenode.h"

struct i2c_msg;

namespace testsupport {

/// One message of an exchange.
struct RecordedMessage
{
    bool isWrite;
    std::vector<VorelKestrel::AL::U8> bytes; ///< the bytes written, or as many zeros as requested
};

/**
 * An i2c-dev node for measurements: a chip that answers at once. Each transfer enters the kernel once, on /dev/zero,
 * and then gets the bytes of the last named register. Locks and pauses are those of the system. Unlike FakeBus it
 * records nothing, so that its cost is small and the same for every caller.
 */
class InstantDevice : public FakeNode
{
public:
    using U8 = VorelKestrel::AL::U8;

    InstantDevice();
    ~InstantDevice() override;
    InstantDevice(const InstantDevice&) = delete;
    InstantDevice& operator=(const InstantDevice&) = delete;

    /// Sets what reads of a register deliver from now on.
    void holds(U8 reg, std::vector<U8> content) { m_content[reg] = std::move(content); }
    /// Also stores all messages in @p messages; null: stops this.
    void recordTo(std::vector<RecordedMessage>* messages) { m_recording = messages; }

    using FakeNode::answersFor;
    bool answersFor(int descriptor) override
    {
        return descriptor >= 0 && descriptor < kDescriptors && m_isOpen[descriptor];
    }
    int open(const char* path, int flags) override;
    int ioctl(int descriptor, unsigned long request, unsigned long argument) override;
    ssize_t read(int descriptor, void* data, std::size_t count) override;
    ssize_t write(int descriptor, const void* data, std::size_t count) override;
    int close(int descriptor) override;

private:
    static constexpr int kDescriptors = 1024; // more than any measurement opens

    ssize_t transfer(int descriptor, const i2c_msg& message);

    std::array<bool, kDescriptors> m_isOpen = {}; // by descriptor, each of /dev/zero
    U8 m_register = 0;
    std::array<std::vector<U8>, 256> m_content;
    std::vector<RecordedMessage>* m_recording = nullptr; // not owned
};

} // namespace testsupport

#endif
