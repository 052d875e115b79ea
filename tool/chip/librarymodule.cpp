#include "tool/chip/librarymodule.h"

#include <dlfcn.h>

#include "common/preload.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kIncomplete[] = "not installed whole";

std::string findModule()
{
    try {
        return preloadLibrary(CHIP_MODULE_BUILT, CHIP_MODULE_INSTALLED);
    } catch (const PreloadError& error) {
        throw Failure(kIncomplete, "load the library", error.what(), "It is a part of authchip.");
    }
}

} // namespace

std::unique_ptr<ChipAccess> loadLibrary(const ChipLocation& location, int verbosity, const std::string& logConfig)
{
    const std::string path = findModule();
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); // Deliberate: never closed, as the library asks
    void* const function = module != nullptr ? dlsym(module, kOpenLibrary) : nullptr;
    if (function == nullptr)
        throw Failure(kIncomplete, "load " + path, dlerror(),
                      "'ldd " + path + "' shows which library is missing; install authchip and that library again.");
    return std::unique_ptr<ChipAccess>(reinterpret_cast<OpenLibrary*>(function)(location, verbosity, logConfig));
}

} // namespace VorelKestrel::Tool
