#ifndef CAPTURE_RECORD_H
#define CAPTURE_RECORD_H

#include <cstddef>

#include <sys/uio.h>

#include "capture/facts.h"

namespace VorelKestrel::Capture {

/// A message to be written down. The bytes stay where the program has them.
struct Record
{
    Facts facts;
    const AL::U8* data = nullptr; // of a read what came, of a write what was meant to be sent
    AL::U8 reg = 0;               // that the message is about, if hasRegister
    bool hasRegister = false;
    /// Leave out what could be a challenge, a certificate or a signature; the lengths stay.
    bool redact = false;
};

/**
 * A record as a block of a capture file, in pieces, so that one writev() appends it and nothing is copied.
 *
 * Neither allocates nor throws, and needs no C++ library: it is used inside foreign programs.
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

    AL::U8 m_head[kHeadRoom]{};     // to the address byte
    AL::U8 m_middle[kMiddleRoom]{}; // the options to the end of the facts
    AL::U8 m_tail[kTailRoom]{};     // what ends the block
    iovec m_pieces[kPieceCount];    // head, bytes on the wire, middle, bytes that did not get there, tail
};

/// What cannot be seen in a packet, in words: "not acknowledged: ENXIO, attempt 3". Writes a string that ends with 0;
/// an empty one if there is nothing to say. Returns its length.
std::size_t describe(const Record& record, char* text, std::size_t room);

/// Whether @p length bytes of a register may be shown in a redacted capture.
bool isHarmless(AL::U8 reg, std::size_t length);

} // namespace VorelKestrel::Capture

#endif
