#include "simulator/chip/filecontent.h"

#include <cstring>
#include <utility>

#include "common/filecontent.h"
#include "simulator/chip/credentialserror.h"

namespace VorelKestrel::Simulator {

Bytes contentOf(const std::string& path)
{
    constexpr std::size_t kLongest = std::size_t{1} << 20U; // far above any key or certificate
    FileContent content = readFile(path, kLongest);
    if (content.error != 0)
        throw CredentialsError("cannot read " + path + ": " + std::strerror(content.error));
    if (content.isTooLong)
        throw CredentialsError("cannot read " + path + ": it is longer than 1 MiB");
    return std::move(content.bytes);
}

int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return -1;
}

} // namespace VorelKestrel::Simulator
