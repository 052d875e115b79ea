#include "simulator/i2cdevnode.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <utility>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

namespace VorelKestrel::Simulator {
namespace {

constexpr std::size_t kMessageMaximumLength = 8192; // the kernel's, of one message
constexpr unsigned long kSevenBitMaximum = 0x7f;
constexpr unsigned long kTenBitMaximum = 0x3ff;
constexpr unsigned long kFunctions = I2C_FUNC_I2C | I2C_FUNC_SMBUS_QUICK | I2C_FUNC_SMBUS_BYTE |
                                     I2C_FUNC_SMBUS_BYTE_DATA | I2C_FUNC_SMBUS_WORD_DATA | I2C_FUNC_SMBUS_I2C_BLOCK;

int resultOf(const Transfer& transfer)
{
    switch (transfer.outcome) {
    case Outcome::Done:
        return static_cast<int>(transfer.count);
    case Outcome::Refused:
        return -ENXIO;
    case Outcome::Failed:
        return -EIO;
    case Outcome::TimedOut:
        return -ETIMEDOUT;
    }
    return -EIO;
}

} // namespace

I2cDevNode::I2cDevNode(Bus& bus, std::set<unsigned> boundAddresses)
    : m_bus(bus), m_boundAddresses(std::move(boundAddresses))
{}

std::unique_ptr<I2cDevFile> I2cDevNode::open()
{
    return std::make_unique<I2cDevFile>(*this);
}

ssize_t I2cDevFile::read(void* buffer, std::size_t count)
{
    if (count > SSIZE_MAX)
        return -EINVAL;
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    return resultOf(m_node.m_bus.read(m_address, static_cast<AL::U8*>(buffer), std::min(count, kMessageMaximumLength)));
}

ssize_t I2cDevFile::write(const void* buffer, std::size_t count)
{
    if (count > SSIZE_MAX)
        return -EINVAL;
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
    case I2C_TIMEOUT:
        return number > INT_MAX ? -EINVAL : 0;
    default:
        break;
    }
    if (request != I2C_FUNCS && request != I2C_RDWR && request != I2C_SMBUS)
        return -ENOTTY;
    if (argument == nullptr)
        return -EFAULT;
    if (request == I2C_FUNCS) {
        *static_cast<unsigned long*>(argument) = kFunctions;
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
    if (!evenIfBound && m_node.m_boundAddresses.count(static_cast<unsigned>(address)) != 0)
        return -EBUSY;
    m_address = static_cast<unsigned>(address);
    return 0;
}

int I2cDevFile::transferMessages(i2c_msg* messages, std::size_t count)
{
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

/// The SMBus transfers that are made of plain messages.
int I2cDevFile::transferSmbus(const i2c_smbus_ioctl_data& request)
{
    const bool reading = request.read_write == I2C_SMBUS_READ;
    if (!reading && request.read_write != I2C_SMBUS_WRITE)
        return -EINVAL;
    const bool hasData = request.size != I2C_SMBUS_QUICK && (request.size != I2C_SMBUS_BYTE || reading);
    if (hasData && request.data == nullptr)
        return -EINVAL;

    std::size_t length = 0; // of the data after the command byte
    AL::U8* data = hasData ? request.data->block : nullptr;
    switch (request.size) {
    case I2C_SMBUS_QUICK:
    case I2C_SMBUS_BYTE:
        length = reading && hasData ? 1 : 0;
        break;
    case I2C_SMBUS_BYTE_DATA:
        length = 1;
        break;
    case I2C_SMBUS_WORD_DATA:
        length = 2;
        break;
    case I2C_SMBUS_I2C_BLOCK_DATA:
        length = *data++;
        if (length == 0 || length > I2C_SMBUS_BLOCK_MAX)
            return -EINVAL;
        break;
    default:
        return -EOPNOTSUPP;
    }

    std::array<AL::U8, 1 + I2C_SMBUS_BLOCK_MAX> message{request.command};
    if (!reading && length > 0)
        std::copy_n(data, length, message.begin() + 1);
    const bool named = request.size != I2C_SMBUS_QUICK && (request.size != I2C_SMBUS_BYTE || !reading);
    const std::lock_guard<std::mutex> lock(m_node.m_adapter);
    if (named || !reading) {
        const std::size_t written = named ? 1 + (reading ? 0 : length) : 0;
        const int result = resultOf(m_node.m_bus.write(m_address, message.data(), written));
        if (result < 0 || !reading)
            return std::min(result, 0);
    }
    return std::min(resultOf(m_node.m_bus.read(m_address, data, length)), 0);
}

} // namespace VorelKestrel::Simulator
