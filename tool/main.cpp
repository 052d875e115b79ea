// authchip: shows a chip to whoever brings a board up, and proves it.

#include <array>
#include <cerrno>
#include <filesystem>
#include <iostream>

#include <unistd.h>

#include "common/standarddescriptors.h"
#include "tool/report/failure.h"
#include "tool/runtool.h"

namespace {

using namespace VorelKestrel::Tool;

/// Where the build and the installation put it, seen from this program.
constexpr const char* kFolders[] = {".", AUTHCHIP_PROGRAM_FOLDER};

constexpr char kRunningChipProgram[] = "run the program authchip-chip";

/// Becomes the program that uses the library.
[[noreturn]] void becomeChipProgram(const char* const* argv)
{
    std::error_code error;
    const auto here = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (error) // without the folder of this program, the next would be one of the current folder, whosever that is
        throw Failure("not installed whole", kRunningChipProgram,
                      "/proc/self/exe does not tell where this program is: " + describeSystemError(error.value()),
                      "Mount /proc ('mount -t proc proc /proc').");
    for (const char* folder : kFolders) {
        const auto program = here / folder / "authchip-chip";
        execv(program.c_str(), const_cast<char* const*>(argv));
    }
    throw Failure("not installed whole", kRunningChipProgram, describeSystemError(errno),
                  "It is a part of authchip; install both again.");
}

} // namespace

int main(int argc, const char* const* argv)
{
    VorelKestrel::occupyStandardDescriptors();
    return runTool(argc, argv, std::cout, [argv](const CommandLine& line, std::ostream& answer) {
        if (line.row->needs == Needs::Library)
            becomeChipProgram(argv);
        return line.command->run({line.options, answer, nullptr, nullptr});
    });
}
