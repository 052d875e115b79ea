#include "tool/commands/output.h"

#include <cerrno>
#include <fstream>
#include <ostream>

#include "tool/commands/arguments.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kStandardOutput[] = "-";

} // namespace

void storeFile(const std::string& path, const std::string& content)
{
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    file << content << std::flush;
    if (!file)
        throw unwritable(path);
}

Failure unwritable(const std::string& path)
{
    const int error = errno;
    const bool isFull = error == ENOSPC || error == EDQUOT;
    if (error == EFBIG)
        return {"file not written", "write " + path, describeSystemError(error),
                "The size of files is limited here: raise 'ulimit -f', or the service's LimitFSIZE=."};
    return {"file not written", "write " + path, describeSystemError(error),
            isFull ? "Make room on that disk ('df' shows which is full), or name a file on another one." : kNameAFile};
}

void OutputOption::declare(Arguments& arguments, const char* description)
{
    arguments.add("-o,--output", m_file, description).shownAs("FILE");
}

void OutputOption::requirePlace(bool json) const
{
    if (json && m_file == kStandardOutput)
        throw Failure(kWrongUsage, "write the bytes to standard output", "--json writes an object there",
                      "Omit one of the two, or name a file after -o.");
}

bool OutputOption::store(const std::string& content, std::ostream& answer) const
{
    if (m_file == kStandardOutput) {
        answer << content;
        return false;
    }
    if (!m_file.empty())
        storeFile(m_file, content);
    return true;
}

bool OutputOption::store(const Bytes& content, std::ostream& answer) const
{
    return store(std::string(content.begin(), content.end()), answer);
}

} // namespace VorelKestrel::Tool
