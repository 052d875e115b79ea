#include "tests/support/instantdevice.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

namespace testsupport {

InstantDevice::InstantDevice()
{
    SystemCallHandler::install(this);
}

InstantDevice::~InstantDevice()
{
    SystemCallHandler::install(nullptr);
    for (int descriptor = 0; descriptor < kDescriptors; ++descriptor) {
        if (m_isOpen[descriptor])
            realcalls::close(descriptor);
    }
}

int InstantDevice::open(const char* /*path*/, int /*flags*/)
{
    const int descriptor = realcalls::open("/dev/zero", O_RDWR);
    m_isOpen.at(static_cast<std::size_t>(descriptor)) = true;
    return descriptor;
}

int InstantDevice::ioctl(int descriptor, unsigned long request, unsigned long argument)
{
    // NOLINTBEGIN(performance-no-int-to-ptr): the system call's own way to pass a pointer.
    switch (request) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        return 0;
    case I2C_FUNCS:
        *reinterpret_cast<unsigned long*>(argument) = I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
        return 0;
    case I2C_RDWR: {
        const auto& messages = *reinterpret_cast<const i2c_rdwr_ioctl_data*>(argument);
        for (unsigned i = 0; i < messages.nmsgs; ++i)
            transfer(descriptor, messages.msgs[i]);
        return static_cast<int>(messages.nmsgs);
    }
    default:
        errno = ENOTTY;
        return -1;
    }
    // NOLINTEND(performance-no-int-to-ptr)
}

ssize_t InstantDevice::transfer(int descriptor, const i2c_msg& message)
{
    return (message.flags & I2C_M_RD) != 0 ? read(descriptor, message.buf, message.len)
                                           : write(descriptor, message.buf, message.len);
}

ssize_t InstantDevice::read(int descriptor, void* data, std::size_t count)
{
    const ssize_t result = realcalls::read(descriptor, data, count);
    const auto& content = m_content[m_register];
    std::copy_n(content.begin(), std::min(count, content.size()), static_cast<U8*>(data));
    if (m_recording != nullptr)
        m_recording->push_back({false, std::vector<U8>(count)});
    return result;
}

ssize_t InstantDevice::write(int descriptor, const void* data, std::size_t count)
{
    const auto* const message = static_cast<const U8*>(data);
    if (count > 0)
        m_register = message[0];
    if (m_recording != nullptr)
        m_recording->push_back({true, std::vector<U8>(message, message + count)});
    return realcalls::write(descriptor, data, count);
}

int InstantDevice::close(int descriptor)
{
    m_isOpen[descriptor] = false;
    return realcalls::close(descriptor);
}

} // namespace testsupport
