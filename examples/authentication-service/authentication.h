#ifndef AUTHENTICATION_H
#define AUTHENTICATION_H

#include <string>
#include <vector>

#include <abstractionlibrary/types.h>
#include <authchipdriver/authchipdriver.h>

using Bytes = std::vector<VorelKestrel::AL::U8>;

/// Has the chip sign the challenge. Returns what the client gets: see README.md.
Bytes authenticate(VorelKestrel::ACD::AuthChipDriver& chip, const Bytes& challenge);

/// The answer to a client that has to come again later.
Bytes busyAnswer();
/// The answer to a request that is none.
Bytes invalidAnswer();

#endif
