#include "capture/obstacle.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include <elf.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace VorelKestrel::Capture {
namespace {

using ElfHeader = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);

constexpr int kMostInterpreters = 4; // the kernel's limit for scripts whose interpreter is a script
constexpr std::size_t kLineMaximumLength = 256;

std::string pathOf(const std::string& program)
{
    if (program.find('/') != std::string::npos)
        return program;
    const char* variable = std::getenv("PATH");
    std::istringstream folders(variable == nullptr ? "/usr/bin:/bin" : variable);
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string path = (folder.empty() ? "." : folder) + "/" + program;
        if (access(path.c_str(), X_OK) == 0)
            return path;
    }
    return program;
}

/// The interpreter after "#!" in a script's first line; empty if there is none.
std::string interpreterOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    char line[kLineMaximumLength] = {};
    file.getline(line, sizeof(line));
    std::istringstream words(std::strncmp(line, "#!", 2) == 0 ? line + 2 : "");
    std::string interpreter;
    words >> interpreter;
    return interpreter;
}

std::string programBehind(std::string path)
{
    for (int i = 0; i < kMostInterpreters; ++i) {
        const std::string interpreter = interpreterOf(path);
        if (interpreter.empty())
            break;
        path = interpreter;
    }
    return path;
}

/// What the header of an ELF file says.
struct Elf
{
    bool isElf = false;
    bool isOurs = false; // same machine and word size as this program
    std::string loader;  // empty: statically linked
};

template<typename T>
bool readAt(std::ifstream& file, std::uint64_t offset, T& value)
{
    file.seekg(static_cast<std::streamoff>(offset));
    return static_cast<bool>(file.read(reinterpret_cast<char*>(&value), sizeof(value)));
}

std::string loaderOf(std::ifstream& file, const ElfHeader& header)
{
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        ProgramHeader part{};
        if (!readAt(file, header.e_phoff + std::uint64_t{i} * sizeof(part), part))
            break;
        char name[kLineMaximumLength] = {};
        if (part.p_type == PT_INTERP && readAt(file, part.p_offset, name))
            return {name, strnlen(name, sizeof(name))};
    }
    return "";
}

Elf inspect(const std::string& path)
{
    Elf elf;
    std::ifstream file(path, std::ios::binary);
    ElfHeader header{};
    elf.isElf = readAt(file, 0, header) && std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0;
    if (!elf.isElf)
        return elf;
    std::ifstream ownFile("/proc/self/exe", std::ios::binary);
    ElfHeader own{};
    elf.isOurs = readAt(ownFile, 0, own) && own.e_machine == header.e_machine &&
                 own.e_ident[EI_CLASS] == header.e_ident[EI_CLASS] && own.e_ident[EI_DATA] == header.e_ident[EI_DATA];
    if (elf.isOurs)
        elf.loader = loaderOf(file, header);
    return elf;
}

/// Whether the program gets more rights than its user has; the loader then preloads nothing.
bool gainsRights(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return false;
    const bool changesUser = (status.st_mode & S_ISUID) != 0 && status.st_uid != geteuid();
    const bool changesGroup = (status.st_mode & S_ISGID) != 0 && status.st_gid != getegid();
    const bool hasCapabilities = geteuid() != 0 && getxattr(path.c_str(), "security.capability", nullptr, 0) > 0;
    return changesUser || changesGroup || hasCapabilities;
}

} // namespace

std::string obstacleToPreloading(const std::string& program)
{
    const std::string path = programBehind(pathOf(program));
    const Elf elf = inspect(path);
    if (!elf.isElf)
        return "";
    if (!elf.isOurs)
        return path + " is built for another kind of machine than this program";
    if (elf.loader.empty())
        return path + " is statically linked";
    const std::string loader = inspect("/proc/self/exe").loader;
    if (!loader.empty() && elf.loader != loader)
        return path + " uses another C library, with the loader " + elf.loader;
    if (gainsRights(path))
        return path + " is set-user-ID or has capabilities";
    return "";
}

} // namespace VorelKestrel::Capture
