#ifndef SIMULATOR_NODE_UMOCKDEVFRONT_H
#define SIMULATOR_NODE_UMOCKDEVFRONT_H

#include <memory>
#include <string>

#include "simulator/node/i2cdevnode.h"

namespace VorelKestrel::Simulator {

class UmockdevFrontPrivate; // defined in the source

/**
 * Connects the node with other processes. Those that start with preloads() find it under its path; a thread of umockdev
 * in this process answers their calls.
 *
 * The node, and the environment variable UMOCKDEV_DIR by which the preload library finds it, exist from constructor to
 * destructor.
 *
 * Requires:  no other thread uses the environment while constructor or destructor runs.
 * Ownership: the node stays the caller's and outlives the front.
 * Errors:    the constructor throws FrontError.
 */
class UmockdevFront
{
public:
    /// Requires: @p path is a plain path below /dev, like "/dev/i2c-7" or "/dev/bus/a".
    UmockdevFront(I2cDevNode& node, const std::string& path);
    UmockdevFront(const UmockdevFront&) = delete;
    UmockdevFront& operator=(const UmockdevFront&) = delete;
    ~UmockdevFront();

private:
    std::unique_ptr<UmockdevFrontPrivate> m_data;
};

} // namespace VorelKestrel::Simulator

#endif
