#ifndef TOOL_DOCTOR_EXAMINATION_H
#define TOOL_DOCTOR_EXAMINATION_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/generations.h"
#include "common/scopeddescriptor.h"
#include "tool/chip/certificate.h"
#include "tool/chip/chiplocation.h"
#include "tool/chip/i2cnode.h"
#include "tool/doctor/patientbus.h"
#include "tool/lock/systemlock.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {

/// The result of a check.
struct Finding
{
    const char* cause; // for programs; null: nothing is wrong
    std::string found; // empty: the check was skipped
    std::string next;  // what to do about it; without a cause this is a note

    bool isSkipped() const { return found.empty(); }
    bool isHealthy() const { return cause == nullptr && !isSkipped(); }
    bool isNote() const { return isHealthy() && !next.empty(); }
};

Finding healthy(const std::string& found);
Finding skipped();
/// What is not wrong, and better known. It stands behind the finding of its check.
Finding note(const std::string& found, const std::string& next);
/// What a step towards the chip was refused with.
Finding refused(const char* cause, const Failure& failure);

/// What is examined, and what a check leaves for those after it.
struct Examination
{
    ChipLocation location;
    std::optional<int> busTimeout; // to be set before the chip is asked; milliseconds
    std::string lockFile;          // the lock's key file
    bool signs = true;             // a challenge, on request of the user

    ScopedDescriptor node;                   // -1: it does not open
    bool isBus = false;                      // nothing yet speaks against it
    std::optional<LockToken> token;          // held to the end, if there is a lock
    VersionAnswer answer;                    // the chip's
    const Generation* generation = nullptr;  // null: the library has no driver for the chip
    bool isShifted = false;                  // what is read arrives a bit early or late: no answer tells anything
    bool isGone = false;                     // the chip answered, and answers no more
    std::optional<Certificate> certificate;  // none: it cannot be read
    std::chrono::nanoseconds timeOfAByte{0}; // the shortest, of long messages; 0: there was none
    Effort effort;                           // of all checks so far
};

/// One row of the list of checks.
struct Check
{
    const char* name;
    std::vector<const char*> needs; // the check is skipped unless these, which come earlier, found nothing wrong
    std::vector<Finding> (*run)(Examination&); // at least one finding
};

/// The findings of one check.
struct CheckResult
{
    const char* name;
    std::vector<Finding> findings;
    std::chrono::nanoseconds time{0};
    Effort effort{}; // of this check; no messages: it needed none

    bool isHealthy() const;
};

/// Runs the checks one after the other.
std::vector<CheckResult> runChecks(Examination& examination, const std::vector<Check>& checks);

} // namespace VorelKestrel::Tool

#endif
