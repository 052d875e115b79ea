#ifndef SIMULATOR_NODE_I2CDEVNODE_H
#define SIMULATOR_NODE_I2CDEVNODE_H

#include <cstddef>
#include <memory>
#include <mutex>
#include <set>

#include <sys/types.h>

#include "simulator/bus/bus.h"

struct i2c_msg;
struct i2c_smbus_ioctl_data;

namespace VorelKestrel::Simulator {

class I2cDevFile;

/// The functions of the bus, as bits of I2C_FUNCS.
extern const unsigned long kBusFunctions;

/// The special properties of a node.
struct NodeSettings
{
    std::set<unsigned> boundAddresses; // held by a kernel driver
    bool smbusOnly = false;            // the adapter supports no plain messages
};

/**
 * The i2c-dev node of a bus, with the kernel's behaviour: each open file has its own address, and the messages of all
 * files take turns on the bus. It does not know how the system calls reach it.
 *
 * Threads:   any; the bus carries one transfer at a time.
 * Ownership: the bus stays the caller's and outlives the node, the node outlives its files.
 */
class I2cDevNode
{
public:
    explicit I2cDevNode(Bus& bus, NodeSettings settings = {});
    I2cDevNode(const I2cDevNode&) = delete;
    I2cDevNode& operator=(const I2cDevNode&) = delete;

    std::unique_ptr<I2cDevFile> open();

private:
    friend class I2cDevFile;

    Bus& m_bus;
    const NodeSettings m_settings;
    std::mutex m_adapter; // held during the messages of one system call
};

/**
 * The node, opened.
 *
 * Threads:   any.
 * Errors:    results as in the kernel: the result of the system call, or a negative errno.
 */
class I2cDevFile
{
public:
    explicit I2cDevFile(I2cDevNode& node) : m_node(node) {}

    ssize_t read(void* buffer, std::size_t count);
    ssize_t write(const void* buffer, std::size_t count);
    /// @p argument  the number or pointer of the system call; a pointer is valid in this process.
    int ioctl(unsigned long request, void* argument);

private:
    int selectAddress(unsigned long address, bool evenIfBound);
    int setTimeout(unsigned long tensOfMilliseconds);
    int transferMessages(i2c_msg* messages, std::size_t count);
    int transferMessage(const i2c_msg& message);
    int transferSmbus(const i2c_smbus_ioctl_data& request);
    int writeSmbus(bool hasCommand, AL::U8 command, const AL::U8* data, std::size_t length);
    int readSmbus(bool hasCommand, AL::U8 command, AL::U8* data, std::size_t length);

    I2cDevNode& m_node;
    unsigned m_address = 0; // 0 until one is selected
    bool m_tenBit = false;
};

} // namespace VorelKestrel::Simulator

#endif
