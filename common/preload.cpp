#include "common/preload.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace VorelKestrel {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSeparators = " :"; // of LD_PRELOAD, with no way to quote them

void append(std::string& list, const std::string& library)
{
    list += (list.empty() ? "" : ":") + library;
}

} // namespace

const char kCaptureLibrary[] = "libauthchip-capture.so";

std::string preloadLibrary(const char* built, const char* installed)
{
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& place : {folder / built, folder / installed}) {
        if (!fs::exists(place))
            continue;
        const std::string path = place.lexically_normal();
        if (path.find_first_of(kSeparators) != std::string::npos)
            throw PreloadError("cannot preload " + path + ": no blank and no colon may stand in its path");
        return path;
    }
    throw PreloadError("cannot find " + (folder / installed).lexically_normal().string() + "; install it again");
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
