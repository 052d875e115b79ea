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
 * A capture of other programs: its file, and what the library that is preloaded into them has to know.
 *
 * Errors: the constructor throws CaptureFileError or PreloadError.
 */
class Session
{
public:
    /// @p library is the path of the one that records; @p program goes into the file's head.
    Session(const std::string& path, const std::string& program, const std::string& library, bool redact);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    /// What the programs need in their environment, "NAME=value".
    std::vector<std::string> environment() const;
    /// The errno that kept messages from being recorded; 0 if there is none.
    int error() const { return static_cast<int>(m_tally->error); }
    /// Whether anything has been recorded.
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
