#include "simulator/chip/credentialserror.h"

#include <openssl/err.h>

namespace VorelKestrel::Simulator {

void failOfOpenssl(const std::string& what)
{
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    throw CredentialsError(reason == nullptr ? what : what + " (" + reason + ")");
}

void require(bool succeeded, const char* what)
{
    if (!succeeded)
        failOfOpenssl(what);
}

} // namespace VorelKestrel::Simulator
