#include "simulator/node/preloads.h"

#include <cstdlib>
#include <filesystem>

#include <dlfcn.h>

#include "simulator/node/fronterror.h"

namespace VorelKestrel::Simulator {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUmockdevLibrary = "libumockdev-preload.so.0";
constexpr const char* kSeparators = " :"; // of LD_PRELOAD, with no way to quote them

/// Beside this program in the build tree, in a folder of its own once installed.
std::string ownLibrary()
{
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& place : {folder / PRELOAD_BUILT, folder / PRELOAD_INSTALLED}) {
        if (!fs::exists(place))
            continue;
        if (place.string().find_first_of(kSeparators) != std::string::npos)
            throw FrontError("cannot preload " + place.string() + ": no blank and no colon may stand in its path");
        return place.lexically_normal();
    }
    throw FrontError("cannot find " + (folder / PRELOAD_INSTALLED).lexically_normal().string() +
                     "; install authchip-sim again");
}

std::string umockdevLibrary()
{
    void* library = dlopen(kUmockdevLibrary, RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr)
        throw FrontError(std::string("cannot find ") + kUmockdevLibrary +
                         "; on Debian it comes with the package umockdev");
    dlclose(library);
    return kUmockdevLibrary;
}

} // namespace

std::string preloads()
{
    const std::string ours = ownLibrary() + ":" + umockdevLibrary();
    const char* others = std::getenv("LD_PRELOAD");
    return others == nullptr || *others == '\0' ? ours : ours + ":" + others;
}

} // namespace VorelKestrel::Simulator
