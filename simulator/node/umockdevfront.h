#ifndef SIMULATOR_NODE_UMOCKDEVFRONT_H
#define SIMULATOR_NODE_UMOCKDEVFRONT_H

#include <memory>
#include <string>

#include "simulator/node/i2cdevnode.h"

namespace VorelKestrel::Simulator {

class UmockdevFrontPrivate; // defined in the source

/**
 * The way to the node for other processes: those that are started with preloads() find it under its path, and their
 * calls are answered here by a thread of umockdev's.
 *
 * The node and the environment variable UMOCKDEV_DIR, through which the preload library finds it, are there from
 * constructor to destructor.
 *
 * Requires:  nobody else reads or changes the environment while constructor or destructor runs.
 * Ownership: the node stays the caller's and outlives the front.
 * Errors:    the constructor throws FrontError.
 */
class UmockdevFront
{
public:
    /// Requires: @p path, that of the node, lies below /dev and is plain, like "/dev/i2c-7" and "/dev/bus/a".
    UmockdevFront(I2cDevNode& node, const std::string& path);
    UmockdevFront(const UmockdevFront&) = delete;
    UmockdevFront& operator=(const UmockdevFront&) = delete;
    ~UmockdevFront();

private:
    std::unique_ptr<UmockdevFrontPrivate> m_data;
};

} // namespace VorelKestrel::Simulator

#endif
