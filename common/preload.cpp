#include "common/preload.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace VorelKestrel {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSeparators = " :"; // in LD_PRELOAD; cannot be quoted

void append(std::string& list, const std::string& library)
{
    list += (list.empty() ? "" : ":") + library;
}

bool canBeNamed(const std::string& path)
{
    return path.find_first_of(kSeparators) == std::string::npos;
}

} // namespace

const char kCaptureLibrary[] = "libauthchip-capture.so";

std::string preloadLibrary(const char* built, const char* installed)
{
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (error)
        throw PreloadError("cannot find " + fs::path(built).filename().string() +
                           ": /proc/self/exe does not show where this program is; mount /proc");
    for (const fs::path& place : {folder / built, folder / installed}) {
        if (fs::exists(place))
            return place.lexically_normal();
    }
    throw PreloadError("cannot find " + (folder / installed).lexically_normal().string() + "; install it again");
}

PreloadPath::PreloadPath(const std::string& library) : m_path(library)
{
    if (canBeNamed(library))
        return;
    std::error_code error;
    fs::path parent = fs::temp_directory_path(error);
    if (error || !canBeNamed(parent))
        parent = "/tmp";
    std::string folder = parent / "authchip-preload-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
        throw PreloadError("cannot create " + folder + ": " + std::strerror(errno) +
                           "; it is needed because the path " + library + " contains a blank or a colon");
    m_folder = folder;
    m_path = fs::path(folder) / fs::path(library).filename();
    fs::create_symlink(library, m_path);
}

PreloadPath::~PreloadPath()
{
    std::error_code ignored;
    if (!m_folder.empty())
        fs::remove_all(m_folder, ignored);
}

std::string preloadsWith(const std::string& library)
{
    const char* variable = std::getenv("LD_PRELOAD");
    const std::string rest = variable == nullptr ? "" : variable;
    std::string first;
    std::string last;
    for (std::size_t begin = rest.find_first_not_of(kSeparators); begin != std::string::npos;
         begin = rest.find_first_not_of(kSeparators, begin)) {
        const std::size_t end = std::min(rest.find_first_of(kSeparators, begin), rest.size());
        const std::string other = rest.substr(begin, end - begin);
        append(fs::path(other).filename() == kCaptureLibrary ? first : last, other);
        begin = end;
    }
    append(first, library);
    if (!last.empty())
        append(first, last);
    return first;
}

} // namespace VorelKestrel
