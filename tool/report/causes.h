#ifndef TOOL_REPORT_CAUSES_H
#define TOOL_REPORT_CAUSES_H

#include <string>
#include <vector>

#include "tool/report/exitstatus.h"

namespace VorelKestrel::Tool {

/// The cause of everything that is wrong with a command line or a file that it names.
constexpr char kWrongUsage[] = "wrong usage";

/// A class of causes.
struct CauseClass
{
    ExitStatus status;
    const char* name; // in two or three words, for the help
};

/// A cause that a command can name.
struct Cause
{
    const char* name; // for programs; never renamed
    ExitStatus status;
};

/// Every class but success, in the order of their numbers.
const std::vector<CauseClass>& causeClasses();
/// Every cause, class by class. Help, manual and guide are compared with it.
const std::vector<Cause>& causes();

/// The exit status of a command that ended for this cause. Requires: the cause is one of causes().
ExitStatus statusOf(const std::string& cause);

} // namespace VorelKestrel::Tool

#endif
