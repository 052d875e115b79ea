#include "tool/modules.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

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

using ElfHeader = ElfW(Ehdr);

ElfHeader headerOf(const std::string& path)
{
    ElfHeader header = {};
    std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof(header));
    return header;
}

bool isElf(const ElfHeader& header)
{
    return std::equal(header.e_ident, header.e_ident + SELFMAG, ELFMAG);
}

/// Whether a file is a library for another kind of processor than this program.
bool isOfAnotherProcessor(const std::string& path)
{
    const auto file = headerOf(path); // class and machine are in the same place in all of them
    const auto own = headerOf("/proc/self/exe");
    return isElf(file) && isElf(own) &&
           (file.e_machine != own.e_machine || file.e_ident[EI_CLASS] != own.e_ident[EI_CLASS]);
}

/// What to do about a module that does not load for this reason.
std::string adviceAbout(const std::string& path, const std::string& reason)
{
    const auto says = [&](const char* words) { return reason.find(words) != std::string::npos; };
    if (says("undefined symbol") || says("version `"))
        return "Parts of two versions are mixed: install authchip and libauthchipdriver of the same version. 'ldd " +
               path + "'\nshows which files are used; LD_LIBRARY_PATH may name others.";
    if (says("failed to map") || says("annot allocate memory") || says("cannot create"))
        return "There is too little memory for this process: look at 'ulimit -v', and at the limit of its container "
               "or\n"
               "service (MemoryMax=).";
    return "'ldd " + path + "' shows which library is missing; install authchip and that library again.";
}

/// Whether a file is a shared object of this machine with nothing missing at its end, where its table of sections is.
/// Also if it cannot be opened: dlopen() tells why.
bool isWhole(const std::string& path)
{
    if (!std::ifstream(path).is_open())
        return true;
    const auto header = headerOf(path);
    std::error_code error;
    const auto end =
        static_cast<std::uintmax_t>(header.e_shoff) + static_cast<std::uintmax_t>(header.e_shnum) * header.e_shentsize;
    return isElf(header) && end <= std::filesystem::file_size(path, error);
}

[[noreturn]] void explainEnd()
{
    constexpr std::string_view kText = "authchip: cannot load its libraries\n"
                                       "  One of them cannot start its threads\n"
                                       "  next: Too many processes, or too little memory: look at 'ulimit -u' and "
                                       "'ulimit -v', and at the limits of the\n"
                                       "        container or service (TasksMax=, MemoryMax=).\n";
    std::cerr << kText << std::flush;
    std::_Exit(static_cast<int>(ExitStatus::Environment));
}

/// Explains the end of the process while libraries are loaded: log4cplus starts threads then, and ends it if it cannot.
class ExplainedEnd
{
public:
    ExplainedEnd() : m_handler(std::set_terminate(explainEnd)) {}
    ~ExplainedEnd() { std::set_terminate(m_handler); }
    ExplainedEnd(const ExplainedEnd&) = delete;
    ExplainedEnd& operator=(const ExplainedEnd&) = delete;

private:
    const std::terminate_handler m_handler;
};

void* loadModule(const std::string& path)
{
    const ExplainedEnd explained;
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); // never closed: the library lives to the end
}

template<typename Function>
Function* load(const std::string& file, const char* name)
{
    const std::string path = findModule(file);
    if (isOfAnotherProcessor(path))
        throw Failure(kIncomplete, "load " + path, "The file is for another kind of processor",
                      "Install the packages for this one ('dpkg --print-architecture'; 'file " + path +
                          "' names the other).");
    if (!isWhole(path))
        throw Failure(kIncomplete, "load " + path,
                      "The file is damaged: a part of it is missing, or it is something else",
                      "Install authchip again; if that does not help, check the disk.");
    void* const module = loadModule(path);
    void* const function = module != nullptr ? dlsym(module, name) : nullptr;
    if (function == nullptr) {
        const std::string reason = dlerror();
        throw Failure(kIncomplete, "load " + path, reason, adviceAbout(path, reason));
    }
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
