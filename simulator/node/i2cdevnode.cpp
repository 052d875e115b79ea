#include "simulator/node/i2cdevnode.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <iterator>
#include <utility>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include "common/i2cdevice.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr unsigned long kSevenBitMaximum = 0x7f;
constexpr unsigned long kTenBitMaximum = 0x3ff;

/// The parts of an SMBus transfer: whether it starts with the command byte, and how many data bytes follow. A word is
/// sent low byte first, which is its order in memory on our machines.
struct SmbusShape
{
    AL::U32 size; // the kernel's code for the kind of transfer
    bool commandBeforeWrite;
    bool commandBeforeRead;
    std::size_t writeLength;
    std::size_t readLength;
};

constexpr SmbusShape kSmbusShapes[] = {
    {I2C_SMBUS_QUICK, false, false, 0, 0},        {I2C_SMBUS_BYTE, true, false, 0, 1},
    {I2C_SMBUS_BYTE_DATA, true, true, 1, 1},      {I2C_SMBUS_WORD_DATA, true, true, 2, 2},
    {I2C_SMBUS_I2C_BLOCK_DATA, true, true, 1, 1}, // at least; the data begins with its length
};

} // namespace

const unsigned long kBusFunctions = I2C_FUNC_I2C | I2C_FUNC_SMBUS_QUICK | I2C_FUNC_SMBUS_BYTE |
                                    I2C_FUNC_SMBUS_BYTE_DATA | I2C_FUNC_SMBUS_WORD_DATA | I2C_FUNC_SMBUS_I2C_BLOCK;

I2cDevNode::I2cDevNode(Bus& bus, NodeSettings settings) : m_bus(bus), m_settings(std::move(settings)) {}

std::unique_ptr<I2cDevFile> I2cDevNode::open()
{
    return std::make_unique<I2cDevFile>(*this);
}

ssize_t I2cDevFile::read(void* buffer, std::size_t count)
{
    if (count > SSIZE_MAX)
        return -EINVAL;
    if (m_node.m_settings.smbusOnly)
        return -EOPNOTSUPP;
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    return resultOf(m_node.m_bus.read(m_address, static_cast<AL::U8*>(buffer), std::min(count, kMessageMaximumLength)));
}

ssize_t I2cDevFile::write(const void* buffer, std::size_t count)
{
    if (count > SSIZE_MAX)
        return -EINVAL;
    if (m_node.m_settings.smbusOnly)
        return -EOPNOTSUPP;
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    return resultOf(
        m_node.m_bus.write(m_address, static_cast<const AL::U8*>(buffer), std::min(count, kMessageMaximumLength)));
}

int I2cDevFile::ioctl(unsigned long request, void* argument)
{
    const auto number = reinterpret_cast<std::uintptr_t>(argument);
    switch (request) {
    case I2C_SLAVE:
        return selectAddress(number, false);
    case I2C_SLAVE_FORCE:
        return selectAddress(number, true);
    case I2C_TENBIT:
        m_tenBit = number != 0;
        return 0;
    case I2C_PEC:
        return 0;
    case I2C_RETRIES:
        return number > INT_MAX ? -EINVAL : 0;
    case I2C_TIMEOUT:
        return setTimeout(number);
    default:
        break;
    }
    if (request != I2C_FUNCS && request != I2C_RDWR && request != I2C_SMBUS)
        return -ENOTTY;
    if (argument == nullptr)
        return -EFAULT;
    if (request == I2C_FUNCS) {
        *static_cast<unsigned long*>(argument) =
            m_node.m_settings.smbusOnly ? kBusFunctions & ~static_cast<unsigned long>(I2C_FUNC_I2C) : kBusFunctions;
        return 0;
    }
    if (request == I2C_SMBUS)
        return transferSmbus(*static_cast<const i2c_smbus_ioctl_data*>(argument));
    const auto& messages = *static_cast<const i2c_rdwr_ioctl_data*>(argument);
    return transferMessages(messages.msgs, messages.nmsgs);
}

int I2cDevFile::selectAddress(unsigned long address, bool evenIfBound)
{
    if (address > (m_tenBit ? kTenBitMaximum : kSevenBitMaximum))
        return -EINVAL;
    const auto selected = static_cast<unsigned>(address);
    const bool isBound = !evenIfBound && m_node.m_settings.boundAddresses.count(selected) != 0;
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    m_node.m_bus.addressSelected(selected, isBound ? EBUSY : 0);
    if (isBound)
        return -EBUSY;
    m_address = selected;
    return 0;
}

/// Applies to all files of the bus, also after this one is closed, as in the kernel.
int I2cDevFile::setTimeout(unsigned long tensOfMilliseconds)
{
    if (tensOfMilliseconds > INT_MAX)
        return -EINVAL;
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    m_node.m_bus.setTimeout(10 * std::chrono::milliseconds(tensOfMilliseconds));
    return 0;
}

int I2cDevFile::transferMessages(i2c_msg* messages, std::size_t count)
{
    if (m_node.m_settings.smbusOnly)
        return -EOPNOTSUPP;
    if (messages == nullptr || count == 0 || count > I2C_RDWR_IOCTL_MAX_MSGS)
        return -EINVAL;
    const auto unsupported = [](const i2c_msg& message) {
        return message.len > kMessageMaximumLength || (message.flags & I2C_M_RECV_LEN) != 0;
    };
    if (std::any_of(messages, messages + count, unsupported))
        return -EINVAL;
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    for (std::size_t i = 0; i < count; ++i) {
        const int result = transferMessage(messages[i]);
        if (result < 0)
            return result;
    }
    return static_cast<int>(count);
}

int I2cDevFile::transferMessage(const i2c_msg& message)
{
    if ((message.flags & I2C_M_RD) != 0)
        return resultOf(m_node.m_bus.read(message.addr, message.buf, message.len));
    return resultOf(m_node.m_bus.write(message.addr, message.buf, message.len));
}

/// The SMBus transfers that consist of plain messages.
int I2cDevFile::transferSmbus(const i2c_smbus_ioctl_data& request)
{
    if (request.read_write != I2C_SMBUS_READ && request.read_write != I2C_SMBUS_WRITE)
        return -EINVAL;
    const auto* shape = std::find_if(std::begin(kSmbusShapes), std::end(kSmbusShapes),
                                     [&](const SmbusShape& row) { return row.size == request.size; });
    if (shape == std::end(kSmbusShapes))
        return -EOPNOTSUPP;
    const bool reading = request.read_write == I2C_SMBUS_READ;
    std::size_t length = reading ? shape->readLength : shape->writeLength;
    if (length > 0 && request.data == nullptr)
        return -EINVAL;
    AL::U8* data = length > 0 ? request.data->block : nullptr;
    if (request.size == I2C_SMBUS_I2C_BLOCK_DATA) {
        length = *data++;
        if (length == 0 || length > I2C_SMBUS_BLOCK_MAX)
            return -EINVAL;
    }
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    const bool hasCommand = reading ? shape->commandBeforeRead : shape->commandBeforeWrite;
    const int result = reading ? readSmbus(hasCommand, request.command, data, length)
                               : writeSmbus(hasCommand, request.command, data, length);
    return std::min(result, 0);
}

int I2cDevFile::writeSmbus(bool hasCommand, AL::U8 command, const AL::U8* data, std::size_t length)
{
    std::array<AL::U8, 1 + I2C_SMBUS_BLOCK_MAX> message{command};
    if (length > 0)
        std::copy_n(data, length, message.begin() + 1);
    return resultOf(m_node.m_bus.write(m_address, message.data(), (hasCommand ? 1 : 0) + length));
}

int I2cDevFile::readSmbus(bool hasCommand, AL::U8 command, AL::U8* data, std::size_t length)
{
    if (hasCommand) {
        const int result = resultOf(m_node.m_bus.write(m_address, &command, 1));
        if (result < 0)
            return result;
    }
    return resultOf(m_node.m_bus.read(m_address, data, length));
}

} // namespace VorelKestrel::Simulator
