#ifndef CAPTURE_RECORDING_H
#define CAPTURE_RECORDING_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "capture/facts.h"
#include "common/bytes.h"

namespace VorelKestrel::Capture {

/// A message of a capture file.
struct Message
{
    std::size_t number = 0; // in the file, from 1
    Facts facts;
    Bytes data;             // the bytes after the address byte; fewer than length if some were omitted
    std::size_t length = 0; // number of bytes moved
    Bytes tried;            // the bytes of a write that failed or was short
    std::size_t triedLength = 0;

    /// Whether this is the selection of an address, successful or not, and not a message on the bus.
    bool isSelection() const { return facts.call == Call::SelectAddress; }
    /// The bytes that the program sent or received, also if the message failed.
    const Bytes& bytes() const { return tried.empty() ? data : tried; }
    std::size_t byteCount() const { return triedLength == 0 ? length : triedLength; }
};

/// The contents of a capture file.
struct Recording
{
    std::vector<Message> messages;
    /// What is wrong with the file after the last message, as a sentence without a full stop; may be empty.
    std::string damage;
};

/// Thrown if a file cannot be read, or is not a capture of an I2C bus; what() says why.
class RecordingError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads a capture of either byte order. Throws RecordingError if it does not begin like one. From a damaged file it
/// returns the messages before the damage. Time and memory are limited by the size of the data.
Recording parseRecording(const AL::U8* data, std::size_t length);
/// Reads a file.
Recording loadRecording(const std::string& path);

} // namespace VorelKestrel::Capture

#endif
