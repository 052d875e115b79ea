#ifndef CAPTURE_SESSION_H
#define CAPTURE_SESSION_H

#include <cstdint>
#include <string>
#include <vector>

#include "capture/settings.h"
#include "common/preload.h"
#include "common/scopeddescriptor.h"

namespace VorelKestrel::Capture {

/**
 * A capture of other programs: the file, and the settings for the library that is preloaded into them.
 *
 * Errors: the constructor throws CaptureFileError or PreloadError.
 */
class Session
{
public:
    /// @p library  the path of the recording library. @p program  a name for the head of the file.
    Session(const std::string& path, const std::string& program, const std::string& library, bool redact);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    /// Environment variables for the programs, "NAME=value".
    std::vector<std::string> environment() const;
    /// The errno because of which messages are missing; 0: none.
    int error() const { return static_cast<int>(m_tally->error); }
    /// Whether any message was recorded.
    bool hasRecorded() const;

private:
    std::string settings() const;

    const PreloadPath m_library;
    const bool m_redact;
    std::string m_path;          // absolute
    std::uintmax_t m_headLength; // of the file before the first message
    ScopedDescriptor m_memory;   // of m_tally
    Tally* m_tally;
};

} // namespace VorelKestrel::Capture

#endif
