#ifndef SIMULATOR_CHIP_CREDENTIALSERROR_H
#define SIMULATOR_CHIP_CREDENTIALSERROR_H

#include <stdexcept>
#include <string>

namespace VorelKestrel::Simulator {

/// A key or a certificate that cannot be made, read or used; what() says which and why.
class CredentialsError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Throws CredentialsError with @p what was tried and OpenSSL's reason, and empties the queue of its errors.
[[noreturn]] void failOfOpenssl(const std::string& what);
/// Fails so unless something has succeeded.
void require(bool succeeded, const char* what);

} // namespace VorelKestrel::Simulator

#endif
