#ifndef CAPTURE_CAPTUREFILE_H
#define CAPTURE_CAPTUREFILE_H

#include <stdexcept>
#include <string>

#include "capture/record.h"
#include "common/scopeddescriptor.h"

namespace VorelKestrel::Capture {

/// Thrown if a capture file cannot be created; what() says which and why.
class CaptureFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/**
 * A capture file that is being written. It is complete after every record, because one system call appends one record,
 * also when several processes append to the same file.
 *
 * Errors: the constructor throws CaptureFileError. A later error only ends the capture; see error().
 */
class CaptureFile
{
public:
    /// Creates or empties the file. It must be a regular file, because writing to others can block.
    CaptureFile(const std::string& path, const std::string& program);

    void append(const Record& record);
    /// The errno that ended the capture; 0: none.
    int error() const { return m_error; }

private:
    ScopedDescriptor m_file;
    int m_error = 0;
};

} // namespace VorelKestrel::Capture

#endif
