#ifndef COMMON_PRELOAD_H
#define COMMON_PRELOAD_H

#include <stdexcept>
#include <string>

namespace VorelKestrel {

/// A library that cannot be preloaded; what() says which and why.
class PreloadError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The path of a library of ours, seen from this program's folder: @p built in the build tree, @p installed elsewhere.
/// Throws PreloadError.
std::string preloadLibrary(const char* built, const char* installed);

/**
 * A path of a library that LD_PRELOAD can name, which is the library's own unless that has a blank or a colon: then it
 * is a symbolic link in a temporary folder, there as long as this object.
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
 * The LD_PRELOAD value that adds @p library to those of this process's own environment. What takes a call first stands
 * first: the capture, which sees what the program does, whatever answers it; then @p library.
 */
std::string preloadsWith(const std::string& library);

/// The file name of the library that records; it has to stand before all others.
extern const char kCaptureLibrary[];

} // namespace VorelKestrel

#endif
