#ifndef TOOL_CHIP_DRIVERLINES_H
#define TOOL_CHIP_DRIVERLINES_H

// The lines of the drivers' log that the tool reads, up to the first value in them. The library does not know the tool:
// a test fails if the drivers no longer write them like this.
namespace VorelKestrel::Tool {

inline constexpr char kLineOfWrongLength[] = "Invalid challenge length returned";
inline constexpr char kLineOfFailedPage[] = "Read failed: read="; // and what the read of the page returned

} // namespace VorelKestrel::Tool

#endif
