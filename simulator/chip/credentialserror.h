#ifndef SIMULATOR_CHIP_CREDENTIALSERROR_H
#define SIMULATOR_CHIP_CREDENTIALSERROR_H

#include <stdexcept>
#include <string>

namespace VorelKestrel::Simulator {

/// Thrown if a key or certificate cannot be created, read or used; what() says which and why.
class CredentialsError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Throws CredentialsError with @p what failed and OpenSSL's reason; clears OpenSSL's error queue.
[[noreturn]] void failOfOpenssl(const std::string& what);
/// Calls failOfOpenssl() unless @p succeeded.
void require(bool succeeded, const char* what);

} // namespace VorelKestrel::Simulator

#endif
