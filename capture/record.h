#ifndef CAPTURE_RECORD_H
#define CAPTURE_RECORD_H

#include <cstddef>

#include <sys/uio.h>

#include "capture/facts.h"

namespace VorelKestrel::Capture {

/// A message to be recorded. Its bytes stay in the program's memory.
struct Record
{
    Facts facts;
    const AL::U8* data = nullptr; // the bytes that a read got, or that a write was to send
    AL::U8 reg = 0;               // the message's register, if hasRegister
    bool hasRegister = false;
    /// Record only lengths of what can be a challenge, a certificate or a signature.
    bool redact = false;
};

/**
 * A record, encoded as a block of a capture file. It consists of pieces, so that one writev() appends it without
 * copies.
 *
 * Does not allocate or throw, and needs no C++ library, because it runs inside foreign programs.
 *
 * Ownership: refers to the record's bytes until it is destroyed.
 */
class EncodedRecord
{
public:
    explicit EncodedRecord(const Record& record);
    EncodedRecord(const EncodedRecord&) = delete;
    EncodedRecord& operator=(const EncodedRecord&) = delete;

    const iovec* pieces() const { return m_pieces; }
    int pieceCount() const { return kPieceCount; }
    std::size_t length() const;

private:
    static constexpr int kPieceCount = 5;
    static constexpr std::size_t kHeadRoom = 40;
    static constexpr std::size_t kMiddleRoom = 256;
    static constexpr std::size_t kTailRoom = 12;

    void encode(const Record& record, std::size_t onWire, std::size_t tried);

    AL::U8 m_head[kHeadRoom]{};     // up to the address byte
    AL::U8 m_middle[kMiddleRoom]{}; // the options up to the facts
    AL::U8 m_tail[kTailRoom]{};     // the end of the block
    iovec m_pieces[kPieceCount];    // head, bytes on the wire, middle, bytes that were not sent, tail
};

/// Describes what a packet does not show: "not acknowledged: ENXIO, attempt 3". Writes a string that ends with 0,
/// which may be empty. Returns its length.
std::size_t describe(const Record& record, char* text, std::size_t room);

/// Whether a redacted capture may contain @p length bytes of a register.
bool isHarmless(AL::U8 reg, std::size_t length);

} // namespace VorelKestrel::Capture

#endif
