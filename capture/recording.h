#ifndef CAPTURE_RECORDING_H
#define CAPTURE_RECORDING_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "capture/facts.h"
#include "common/bytes.h"

namespace VorelKestrel::Capture {

/// A message as a capture file tells it.
struct Message
{
    std::size_t number = 0; // in the file, from 1
    Facts facts;
    Bytes data;             // what moved, behind the address byte; less than length if bytes were left out
    std::size_t length = 0; // how many bytes moved
    Bytes tried;            // what a write that did not get through whole was meant to send
    std::size_t triedLength = 0;

    /// An address was selected, or that was refused; nothing was on the bus.
    bool isSelection() const { return facts.call == Call::SelectAddress; }
    /// The bytes that the program passed or received, also if the message failed.
    const Bytes& bytes() const { return tried.empty() ? data : tried; }
    std::size_t byteCount() const { return triedLength == 0 ? length : triedLength; }
};

/// What a capture file holds.
struct Recording
{
    std::vector<Message> messages;
    /// Empty, or what is wrong with the file behind the last message, in a sentence without a full stop.
    std::string damage;
};

/// A file that is no capture of an I2C bus, or cannot be read; what() says why.
class RecordingError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads a capture of either byte order. Throws RecordingError if it does not begin like one; a file that is broken
/// further on gives the messages before that. Whatever the bytes are, it ends, and keeps to memory of their size.
Recording parseRecording(const AL::U8* data, std::size_t length);
/// The same for a file.
Recording loadRecording(const std::string& path);

} // namespace VorelKestrel::Capture

#endif
