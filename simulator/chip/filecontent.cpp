#include "simulator/chip/filecontent.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "simulator/chip/credentialserror.h"

namespace VorelKestrel::Simulator {

Bytes contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    Bytes content;
    std::array<char, 4096> block{};
    do {
        file.read(block.data(), block.size());
        content.insert(content.end(), block.begin(), block.begin() + file.gcount());
    } while (file);
    if (!file.eof())
        throw CredentialsError("cannot read " + path + ": " + std::strerror(errno));
    return content;
}

Reader readerOf(const Bytes& content)
{
    return Reader(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
}

int noPassword(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return -1;
}

} // namespace VorelKestrel::Simulator
