#include "capture/preload/messages.h"

#include <cerrno>
#include <climits>
#include <cstring>

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include "capture/preload/recorder.h"

namespace VorelKestrel::Capture {
namespace {

class KeptErrno
{
public:
    KeptErrno() : m_errno(errno) {}
    ~KeptErrno() { errno = m_errno; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

    int get() const { return m_errno; }

private:
    const int m_errno;
};

/// Whether the kernel reads the program's memory before it returns this error. Otherwise the memory may be invalid.
bool hasSeenMemory(int error)
{
    switch (error) {
    case EFAULT:
    case EINVAL:
    case EBADF:
    case ENOMEM:
    case ENOTTY:
    case EINTR:
        return false;
    default:
        return true;
    }
}

std::int32_t limited(long result)
{
    return static_cast<std::int32_t>(result > INT_MAX ? INT_MAX : result);
}

AL::U32 limited(std::size_t count)
{
    return static_cast<AL::U32>(count > UINT_MAX ? UINT_MAX : count);
}

/// The facts that all messages of a system call share.
Record startRecord(const OpenNode& node, const EndedCall& call, Call kind)
{
    Record record;
    record.facts.time = call.begin;
    record.facts.duration = call.end - call.begin;
    record.facts.call = kind;
    record.facts.address = node.address;
    return record;
}

void recordTransfer(OpenNode& node, const EndedCall& call, int error, const i2c_rdwr_ioctl_data* transfer)
{
    if (call.result < 0 && !hasSeenMemory(error))
        return;
    Record all = startRecord(node, call, Call::Transfer);
    all.facts.messageCount = static_cast<AL::U16>(transfer->nmsgs);
    for (AL::U32 i = 0; i < transfer->nmsgs; ++i) {
        const i2c_msg& message = transfer->msgs[i];
        Record record = all;
        record.facts.place = static_cast<AL::U16>(i);
        record.facts.address = message.addr;
        record.facts.isRead = (message.flags & I2C_M_RD) != 0;
        record.facts.requested = message.len;
        record.facts.result = call.result < 0 ? -error : i < static_cast<AL::U32>(call.result) ? message.len : 0;
        record.data = message.buf;
        Capture::record(node, record);
        all.facts.time = call.end; // the time of the call counts once
        all.facts.duration = 0;
    }
}

/// An SMBus transfer as messages: what is sent before the data, and how many bytes of data are sent and received.
struct SmbusShape
{
    bool hasCommand;
    std::size_t out;
    std::size_t in;
};

SmbusShape shapeOf(const i2c_smbus_ioctl_data& request)
{
    const bool isRead = request.read_write == I2C_SMBUS_READ;
    const auto simple = [isRead](std::size_t length) {
        return SmbusShape{true, isRead ? 0 : length, isRead ? length : 0};
    };
    const std::size_t blockLength = request.data == nullptr ? 0U : request.data->block[0];
    switch (request.size) {
    case I2C_SMBUS_QUICK:
        return {false, 0, 0};
    case I2C_SMBUS_BYTE:
        return {!isRead, 0, isRead ? 1U : 0U};
    case I2C_SMBUS_BYTE_DATA:
        return simple(1);
    case I2C_SMBUS_WORD_DATA:
        return simple(2);
    case I2C_SMBUS_PROC_CALL:
        return {true, 2, 2};
    case I2C_SMBUS_I2C_BLOCK_DATA:
    case I2C_SMBUS_I2C_BLOCK_BROKEN:
        return simple(blockLength);
    default: // blocks, which begin with their length
        return simple(1 + blockLength);
    }
}

void recordSmbus(OpenNode& node, const EndedCall& call, int error, const i2c_smbus_ioctl_data& request)
{
    const bool failed = call.result < 0;
    if (failed && !hasSeenMemory(error))
        return;
    constexpr std::size_t kRoom = I2C_SMBUS_BLOCK_MAX + 1; // for data; a block begins with its length
    const SmbusShape shape = shapeOf(request);
    const bool isBlockOfI2c = request.size == I2C_SMBUS_I2C_BLOCK_DATA || request.size == I2C_SMBUS_I2C_BLOCK_BROKEN;
    const AL::U8* data = request.data == nullptr ? nullptr : request.data->block + (isBlockOfI2c ? 1 : 0);
    AL::U8 message[1 + kRoom] = {request.command};
    if (shape.out > 0 && shape.out <= kRoom && data != nullptr)
        std::memcpy(message + 1, data, shape.out);

    Record record = startRecord(node, call, Call::Smbus);
    record.facts.smbusSize = request.size;
    const bool isOnlyRead = !shape.hasCommand && request.read_write == I2C_SMBUS_READ;
    const bool hasRead = shape.in > 0 && !isOnlyRead && !failed; // either may have failed: use the first
    record.facts.messageCount = hasRead ? 2 : 1;
    record.facts.isRead = isOnlyRead;
    const std::size_t length =
        isOnlyRead ? shape.in : (shape.hasCommand ? 1 : 0) + (shape.out <= kRoom ? shape.out : 0);
    record.facts.requested = limited(length);
    record.facts.result = failed ? -error : static_cast<std::int32_t>(length);
    record.data = isOnlyRead ? data : message;
    Capture::record(node, record);
    if (!hasRead || shape.in > kRoom || data == nullptr)
        return;
    record.facts.place = 1;
    record.facts.time = call.end;
    record.facts.duration = 0;
    record.facts.isRead = true;
    record.facts.requested = limited(shape.in);
    record.facts.result = static_cast<std::int32_t>(shape.in);
    record.data = data;
    Capture::record(node, record);
}

void recordSelection(OpenNode& node, const EndedCall& call, int error, unsigned long address)
{
    Record record = startRecord(node, call, Call::SelectAddress);
    record.facts.address = static_cast<AL::U16>(address);
    record.facts.result = call.result < 0 ? -error : 0;
    if (call.result >= 0) {
        node.address = record.facts.address;
        node.conversation = Conversation(); // a conversation with another chip
    }
    Capture::record(node, record);
}

} // namespace

void recordWrite(OpenNode& node, const EndedCall& call, const void* data, std::size_t count)
{
    const KeptErrno error;
    Record record = startRecord(node, call, Call::Write);
    record.facts.requested = limited(count);
    record.facts.result = call.result < 0 ? -error.get() : limited(call.result);
    if (call.result >= 0 || hasSeenMemory(error.get()))
        record.data = static_cast<const AL::U8*>(data);
    Capture::record(node, record);
}

void recordRead(OpenNode& node, const EndedCall& call, const void* data, std::size_t count)
{
    const KeptErrno error;
    Record record = startRecord(node, call, Call::Read);
    record.facts.isRead = true;
    record.facts.requested = limited(count);
    record.facts.result = call.result < 0 ? -error.get() : limited(call.result);
    record.data = static_cast<const AL::U8*>(data);
    Capture::record(node, record);
}

/// The kernel sends each piece as a message and stops at the first that fails.
void recordVector(OpenNode& node, const EndedCall& call, bool isRead, const iovec* pieces, int pieceCount)
{
    const KeptErrno error;
    if (call.result < 0 && !hasSeenMemory(error.get()))
        return;
    EndedCall piece = call;
    long left = call.result;
    for (int i = 0; i < pieceCount; ++i) {
        const auto length = static_cast<long>(pieces[i].iov_len);
        piece.result = left < length ? left : length;
        errno = error.get();
        (isRead ? recordRead : recordWrite)(node, piece, pieces[i].iov_base, pieces[i].iov_len);
        left -= length;
        if (left <= 0)
            return;
        piece.begin = call.end; // the time of the call counts once
    }
}

void recordIoctl(OpenNode& node, const EndedCall& call, unsigned long request, unsigned long argument)
{
    const KeptErrno error;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the C library's ioctl() passes the argument as a number.
    const void* pointer = reinterpret_cast<const void*>(argument);
    switch (static_cast<AL::U32>(request)) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        return recordSelection(node, call, error.get(), argument);
    case I2C_RDWR:
        return recordTransfer(node, call, error.get(), static_cast<const i2c_rdwr_ioctl_data*>(pointer));
    case I2C_SMBUS:
        return recordSmbus(node, call, error.get(), *static_cast<const i2c_smbus_ioctl_data*>(pointer));
    default:
        return;
    }
}

} // namespace VorelKestrel::Capture
