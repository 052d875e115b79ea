#include "capture/capturefile.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include "capture/format.h"

namespace VorelKestrel::Capture {
namespace {

/// A block at the start of the file, built piece by piece.
class Block
{
public:
    explicit Block(AL::U32 type)
    {
        number(type);
        number(AL::U32{0}); // the length, filled in later
    }

    template<typename Number>
    Block& number(Number value)
    {
        const auto* begin = reinterpret_cast<const char*>(&value);
        m_content.insert(m_content.end(), begin, begin + sizeof(value));
        return *this;
    }
    Block& option(AL::U16 code, const std::string& value)
    {
        number(code).number(static_cast<AL::U16>(value.size()));
        m_content.insert(m_content.end(), value.begin(), value.end());
        m_content.resize(paddedTo4(m_content.size()));
        return *this;
    }
    std::vector<char> finished()
    {
        option(kOptionEnd, "");
        const auto length = static_cast<AL::U32>(m_content.size() + sizeof(AL::U32));
        number(length);
        std::memcpy(&m_content[sizeof(AL::U32)], &length, sizeof(length));
        return m_content;
    }

private:
    std::vector<char> m_content;
};

std::string systemName()
{
    utsname names{};
    uname(&names);
    return std::string(names.sysname) + " " + names.release + " " + names.machine;
}

std::vector<char> headOfFile(const std::string& program)
{
    constexpr std::int64_t kUnknownLength = -1;
    std::vector<char> head = Block(kSectionHeaderBlock)
                                 .number(kByteOrderMagic)
                                 .number(kMajorVersion)
                                 .number(AL::U16{0})
                                 .number(kUnknownLength)
                                 .option(kSectionOptionOs, systemName())
                                 .option(kSectionOptionProgram, program)
                                 .finished();
    const std::vector<char> interface = Block(kInterfaceBlock)
                                            .number(kLinkTypeI2cLinux)
                                            .number(AL::U16{0})
                                            .number(AL::U32{0}) // packets have any length
                                            .option(kInterfaceOptionName, "i2c-dev")
                                            .option(kInterfaceOptionResolution, {kResolutionNanoseconds})
                                            .finished();
    head.insert(head.end(), interface.begin(), interface.end());
    return head;
}

[[noreturn]] void fail(const std::string& path, const std::string& reason)
{
    throw CaptureFileError("cannot write the capture " + path + ": " + reason);
}

} // namespace

CaptureFile::CaptureFile(const std::string& path, const std::string& program)
    // A pipe must not block until it has a reader.
    : m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666))
{
    if (m_file.get() == -1)
        fail(path, std::strerror(errno));
    struct stat status = {};
    if (fstat(m_file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        fail(path, "it is not a regular file");
    const std::vector<char> head = headOfFile(program);
    if (ftruncate(m_file.get(), 0) != 0 ||
        write(m_file.get(), head.data(), head.size()) != static_cast<ssize_t>(head.size()))
        fail(path, std::strerror(errno != 0 ? errno : ENOSPC));
}

void CaptureFile::append(const Record& record)
{
    if (m_error != 0)
        return;
    const EncodedRecord encoded(record);
    errno = 0;
    if (writev(m_file.get(), encoded.pieces(), encoded.pieceCount()) != static_cast<ssize_t>(encoded.length()))
        m_error = errno != 0 ? errno : ENOSPC; // only a part was written: the disk is full
}

} // namespace VorelKestrel::Capture
