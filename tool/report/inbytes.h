#ifndef TOOL_REPORT_INBYTES_H
#define TOOL_REPORT_INBYTES_H

#include <cstddef>
#include <string>

namespace VorelKestrel::Tool {

/// "20 bytes"
inline std::string inBytes(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

} // namespace VorelKestrel::Tool

#endif
