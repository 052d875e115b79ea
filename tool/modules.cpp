#include "tool/modules.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

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

/// Whether a file is a shared object of this machine with nothing missing at its end, where its table of sections is.
/// Also if it cannot be opened: dlopen() tells why.
bool isWhole(const std::string& path)
{
    ElfW(Ehdr) header = {};
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        return true;
    file.read(reinterpret_cast<char*>(&header), sizeof(header));
    const bool isElf = file && std::equal(header.e_ident, header.e_ident + SELFMAG, ELFMAG);
    std::error_code error;
    const auto end =
        static_cast<std::uintmax_t>(header.e_shoff) + static_cast<std::uintmax_t>(header.e_shnum) * header.e_shentsize;
    return isElf && end <= std::filesystem::file_size(path, error);
}

template<typename Function>
Function* load(const std::string& file, const char* name)
{
    const std::string path = findModule(file);
    if (!isWhole(path))
        throw Failure(kIncomplete, "load " + path,
                      "The file is damaged: a part of it is missing, or it is something else",
                      "Install authchip again; if that does not help, check the disk.");
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
