#ifndef TOOL_CHIP_LIBRARYCHIP_H
#define TOOL_CHIP_LIBRARYCHIP_H

#include "tool/chip/chip.h"
#include "tool/chip/chiplocation.h"
#include "tool/chip/librarylog.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// The chip, through the library. @p log stays the caller's and outlives this object and its chips.
class LibraryChipAccess : public ChipAccess
{
public:
    LibraryChipAccess(ChipLocation location, LibraryLog& log);

    std::unique_ptr<Chip> detect() override;
    std::unique_ptr<RawChip> open() override;

private:
    const ChipLocation m_location;
    LibraryLog& m_log;
    bool m_hasFailed = false; // in the last detect()
};

/**
 * Finds out why the factory returned no driver: repeats its steps, each once, and explains the first that is refused.
 * Waits for the bus like the library.
 */
Failure diagnose(const ChipLocation& location);

} // namespace VorelKestrel::Tool

#endif
