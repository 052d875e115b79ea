#ifndef COMMON_PRELOAD_H
#define COMMON_PRELOAD_H

#include <stdexcept>
#include <string>

namespace VorelKestrel {

/// Thrown if a library cannot be preloaded; what() says which and why.
class PreloadError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The path of one of our libraries, relative to this program's folder: @p built in the build tree, otherwise @p
/// installed. Throws PreloadError.
std::string preloadLibrary(const char* built, const char* installed);

/**
 * A path of a library that LD_PRELOAD accepts: the library's own path, unless it contains a blank or a colon. Then it
 * is a symbolic link in a temporary folder, which exists as long as this object.
 *
 * Errors: the constructor throws PreloadError.
 */
class PreloadPath
{
public:
    explicit PreloadPath(const std::string& library);
    ~PreloadPath();
    PreloadPath(const PreloadPath&) = delete;
    PreloadPath& operator=(const PreloadPath&) = delete;

    const std::string& get() const { return m_path; }

private:
    std::string m_path;
    std::string m_folder; // of the link; empty: there is none
};

/**
 * The LD_PRELOAD value that adds @p library to those in this process's environment. The recording library stays first,
 * so that it sees the program's calls whoever answers them; then comes @p library.
 */
std::string preloadsWith(const std::string& library);

/// The file name of the recording library, which must be the first in LD_PRELOAD.
extern const char kCaptureLibrary[];

} // namespace VorelKestrel

#endif
