#ifndef TOOL_CHIP_PERMISSION_H
#define TOOL_CHIP_PERMISSION_H

#include <string>

namespace VorelKestrel::Tool {

/// What to do about a node that may not be opened (EACCES), where more is known than that; null otherwise. In the text,
/// {device} is the node.
const char* adviceAboutPermission(const std::string& device);

} // namespace VorelKestrel::Tool

#endif
