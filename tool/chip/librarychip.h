#ifndef TOOL_CHIP_LIBRARYCHIP_H
#define TOOL_CHIP_LIBRARYCHIP_H

#include "tool/chip/chip.h"
#include "tool/chip/chiplocation.h"
#include "tool/chip/librarylog.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// The chip behind the library. @p log stays the caller's and outlives this and its chips.
class LibraryChipAccess : public ChipAccess
{
public:
    LibraryChipAccess(ChipLocation location, LibraryLog& log);

    std::unique_ptr<Chip> detect() override;
    std::unique_ptr<RawChip> open() override;

private:
    const ChipLocation m_location;
    LibraryLog& m_log;
    bool m_hasFailed = false; // the factory, the last time
};

/**
 * Finds out why the factory returned no driver: takes the same steps, one try for each, and explains the first that is
 * refused. Waits for the bus as the library does.
 */
Failure diagnose(const ChipLocation& location);

} // namespace VorelKestrel::Tool

#endif
