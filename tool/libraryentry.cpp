// The door of libauthchip-chip.so: what is behind it lives as long as the tool uses the library.

#include <log4cplus/initializer.h>

#include "tool/chip/librarychip.h"
#include "tool/chip/librarylog.h"
#include "tool/modules.h"

namespace {

using namespace VorelKestrel::Tool;

/// The library's chips, with the logs that they write to.
class LoadedLibrary : public ChipAccess
{
public:
    LoadedLibrary(const ChipLocation& location, int verbosity, const std::string& logConfig)
        : m_log(verbosity, logConfig), m_chips(location, m_log)
    {}

    std::unique_ptr<Chip> detect() override { return m_chips.detect(); }
    std::unique_ptr<RawChip> open() override { return m_chips.open(); }

private:
    const log4cplus::Initializer m_log4cplusLife;
    LibraryLog m_log;
    LibraryChipAccess m_chips;
};

} // namespace

extern "C" {

[[gnu::visibility("default")]] OpenLibrary authchipOpenLibrary;

ChipAccess* authchipOpenLibrary(const ChipLocation& location, int verbosity, const std::string& logConfig)
{
    return std::make_unique<LoadedLibrary>(location, verbosity, logConfig).release();
}

} // extern "C"
