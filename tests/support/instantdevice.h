#ifndef TESTS_SUPPORT_INSTANTDEVICE_H
#define TESTS_SUPPORT_INSTANTDEVICE_H

#include <array>
#include <vector>

#include <abstractionlibrary/types.h>

#include "tests/support/fakenode.h"

struct i2c_msg;

namespace testsupport {

/// One message of an exchange, as the device saw it.
struct RecordedMessage
{
    bool isWrite;
    std::vector<VorelKestrel::AL::U8> bytes; ///< what was written, or as many zeroes as were asked for
};

/**
 * An i2c-dev node for measurements: a chip that answers at once. Each transfer enters the kernel once, on /dev/zero,
 * and then gets the bytes of the register that was named last; locks and pauses are the system's own. Unlike FakeBus
 * it writes nothing down, so that what it costs is small and the same for whoever calls.
 */
class InstantDevice : public FakeNode
{
public:
    using U8 = VorelKestrel::AL::U8;

    InstantDevice();
    ~InstantDevice() override;
    InstantDevice(const InstantDevice&) = delete;
    InstantDevice& operator=(const InstantDevice&) = delete;

    /// What reads of a register deliver, from now on.
    void holds(U8 reg, std::vector<U8> content) { m_content[reg] = std::move(content); }
    /// All messages go to @p messages as well; to nowhere if it is null.
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
