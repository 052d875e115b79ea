#include "tool/modules.h"

#include <dlfcn.h>

#include "common/preload.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

constexpr char kIncomplete[] = "not installed whole";

std::string findModule(const std::string& file)
{
    try {
        return preloadLibrary(file.c_str(), (MODULES_INSTALLED "/" + file).c_str());
    } catch (const PreloadError& error) {
        throw Failure(kIncomplete, "load " + file, error.what(), "It is a part of authchip.");
    }
}

template<typename Function>
Function* load(const std::string& file, const char* name)
{
    const std::string path = findModule(file);
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); // never closed: the library lives to the end
    void* const function = module != nullptr ? dlsym(module, name) : nullptr;
    if (function == nullptr)
        throw Failure(kIncomplete, "load " + path, dlerror(),
                      "'ldd " + path + "' shows which library is missing; install authchip and that library again.");
    return reinterpret_cast<Function*>(function);
}

std::unique_ptr<Command> makeVerifying(const char* name)
{
    return std::unique_ptr<Command>(load<MakeVerifyingCommand>(VERIFY_MODULE, kMakeVerifyingCommand)(name));
}

} // namespace

std::unique_ptr<ChipAccess> loadLibrary(const ChipLocation& location, int verbosity, const std::string& logConfig)
{
    return std::unique_ptr<ChipAccess>(load<OpenLibrary>(CHIP_MODULE, kOpenLibrary)(location, verbosity, logConfig));
}

// What the table of commands has here is in the files of these names, in the module.

std::unique_ptr<Command> makeAuthenticate()
{
    return makeVerifying("authenticate");
}

std::unique_ptr<Command> makeCertificate()
{
    return makeVerifying("certificate");
}

std::unique_ptr<Command> makeDoctor()
{
    return makeVerifying("doctor");
}

std::unique_ptr<Command> makeVerify()
{
    return makeVerifying("verify");
}

} // namespace VorelKestrel::Tool
