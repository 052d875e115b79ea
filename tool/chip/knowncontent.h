#ifndef TOOL_CHIP_KNOWNCONTENT_H
#define TOOL_CHIP_KNOWNCONTENT_H

#include "common/bytes.h"

namespace VorelKestrel::Tool {

/// What a file holds that was named in place of another.
struct KnownContent
{
    const char* name;             // "a private key"
    bool isOfChips;               // a chip stores its certificate so
    const char* inPlaceOfIssuer;  // what to do if it was named as an issuer
    bool isDamagedIssuer = false; // if nothing in the file can be read as an issuer
};

/// What the bytes of a file are, in PEM or DER; null for nothing that is known here.
const KnownContent* recognise(const Bytes& bytes);

} // namespace VorelKestrel::Tool

#endif
