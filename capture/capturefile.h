#ifndef CAPTURE_CAPTUREFILE_H
#define CAPTURE_CAPTUREFILE_H

#include <stdexcept>
#include <string>

#include "capture/record.h"
#include "common/scopeddescriptor.h"

namespace VorelKestrel::Capture {

/// A capture file that cannot be made; what() says which and why.
class CaptureFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/**
 * A capture file being written. It is complete after every record: one system call appends one, also when other
 * processes append to the same file.
 *
 * Errors: the constructor throws CaptureFileError. Later ones end the capture and nothing else; error() tells.
 */
class CaptureFile
{
public:
    /// Makes the file, or empties it; only a regular file will do, because others can make the writer wait.
    CaptureFile(const std::string& path, const std::string& program);

    void append(const Record& record);
    /// The errno that ended the capture; 0 while there is none.
    int error() const { return m_error; }

private:
    ScopedDescriptor m_file;
    int m_error = 0;
};

} // namespace VorelKestrel::Capture

#endif
