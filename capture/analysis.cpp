#include "capture/analysis.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "authchipdriver/registermap.h"
#include "capture/chipview.h"
#include "common/hex.h"

namespace VorelKestrel::Capture {
namespace {

enum class Subject
{
    Selection,
    Detection, // an address selection and the device version
    Identity,
    Certificate,
    Signature,
    Other
};

Subject subjectOf(const Step& step)
{
    if (step.message->isSelection())
        return Subject::Selection;
    if (!step.reg)
        return Subject::Other;
    const AL::U8 reg = *step.reg;
    if (reg <= ACD::kRegisterDeviceId)
        return Subject::Identity;
    if (reg >= ACD::kRegisterControlAndStatus && reg <= ACD::kRegisterResponse)
        return Subject::Signature;
    if (reg == ACD::kRegisterChallengeLength || reg == ACD::kRegisterChallenge)
        return Subject::Signature;
    if (reg == ACD::kRegisterCertificateLength || pageOf(reg) != 0)
        return Subject::Certificate;
    return Subject::Other;
}

/// Whether a step has written bytes into a register or read it.
bool hasWritten(const Step& step, AL::U8 reg)
{
    return step.reg == reg && !step.message->facts.isRead && step.message->byteCount() > 1 && step.outcome.empty();
}

bool hasRead(const Step& step, AL::U8 reg)
{
    return step.reg == reg && step.message->facts.isRead && step.outcome.empty();
}

/// The state of the current operation: tells where the next one begins, and what is missing.
class Progress
{
public:
    void add(const Step& step)
    {
        m_hasVersion = m_hasVersion || hasRead(step, ACD::kRegisterDeviceVersion);
        m_challenge = m_challenge || hasWritten(step, ACD::kRegisterChallenge);
        m_started = m_started || hasWritten(step, ACD::kRegisterControlAndStatus);
        m_answered = m_answered || hasRead(step, ACD::kRegisterResponse);
        if (hasRead(step, ACD::kRegisterControlAndStatus) && step.message->data.size() == 1)
            m_refusedToSign = ACD::resultOfStatus(step.message->data[0]) != ACD::kResultGenerated;
        m_hasCertificateLength = m_hasCertificateLength || hasRead(step, ACD::kRegisterCertificateLength);
        if (hasRead(step, ACD::kRegisterCertificateLength) && step.message->data.size() == 2)
            m_certificateLength = static_cast<std::size_t>(step.message->data[0] << 8U | step.message->data[1]);
        if (step.reg && pageOf(*step.reg) != 0) {
            m_hasPages = true;
            if (hasRead(step, *step.reg))
                m_certificateRead += step.message->length;
        }
        m_last = step;
    }

    /// Whether the device version was read.
    bool isDetected() const { return m_hasVersion; }
    /// Whether a step about the same subject begins the next operation.
    bool endsBefore(const Step& step, Subject subject) const
    {
        if (step.message->facts.attempt > 1)
            return false;
        if (subject == Subject::Certificate)
            return m_hasCertificateLength && step.reg == ACD::kRegisterCertificateLength && !step.message->facts.isRead;
        if (subject != Subject::Signature)
            return false;
        const bool isPreparation =
            !step.message->facts.isRead && step.message->byteCount() > 1 && step.reg != ACD::kRegisterControlAndStatus;
        return isPreparation ? m_started || (m_challenge && step.reg == ACD::kRegisterChallenge)
                             : m_answered && !step.message->facts.isRead;
    }

    std::vector<std::string> notes(Subject subject) const
    {
        std::vector<std::string> notes;
        if (m_last.message->facts.failed() || m_last.message->facts.isShort())
            notes.push_back("ends with a failed message: " + m_last.what + ": " + m_last.outcome);
        else if (m_last.reg && !m_last.message->facts.isRead && m_last.message->byteCount() == 1)
            notes.push_back("incomplete: " + nameOfRegister(*m_last.reg) + " was named but not read");
        if (subject == Subject::Signature)
            addSignature(notes);
        if (subject == Subject::Certificate && m_hasPages && m_hasCertificateLength &&
            m_certificateRead < m_certificateLength)
            notes.push_back("incomplete: " + std::to_string(m_certificateRead) + " of the certificate's " +
                            std::to_string(m_certificateLength) + " bytes were read");
        return notes;
    }

private:
    void addSignature(std::vector<std::string>& notes) const
    {
        if (m_refusedToSign && m_started)
            notes.emplace_back("the chip did not sign");
        else if (m_started && !m_answered && notes.empty())
            notes.emplace_back("incomplete: the signature was not read");
        else if (m_challenge && !m_started && notes.empty())
            notes.emplace_back("incomplete: no start command follows the challenge");
    }

    bool m_hasVersion = false;
    bool m_challenge = false;
    bool m_started = false;
    bool m_answered = false;
    bool m_refusedToSign = false;
    bool m_hasCertificateLength = false;
    bool m_hasPages = false;
    std::size_t m_certificateLength = 0;
    std::size_t m_certificateRead = 0;
    Step m_last;
};

std::string nameOf(Subject subject, const Step& first)
{
    switch (subject) {
    case Subject::Selection:
        return "open the node";
    case Subject::Detection:
    case Subject::Identity:
        return "identity";
    case Subject::Certificate:
        return "certificate";
    case Subject::Signature:
        return "signature";
    case Subject::Other:
        break;
    }
    return first.reg ? nameOfRegister(*first.reg) : "messages of an unknown register";
}

std::uint64_t endOf(const Message& message)
{
    return message.facts.time + message.facts.duration;
}

std::uint64_t gap(std::uint64_t from, std::uint64_t to)
{
    return to > from ? to - from : 0; // the file may be wrong
}

/// The time from the first message to the last.
Times timesOf(const std::vector<Step>& steps, const Operation& operation)
{
    Times times;
    std::uint64_t end = steps[operation.begin].message->facts.time;
    bool isBusy = false;
    for (std::size_t i = operation.begin; i < operation.end; ++i) {
        const Message& message = *steps[i].message;
        const std::uint64_t pause = gap(end, message.facts.time);
        const bool isInChip = isBusy && (steps[i].isBusy || pause > 0);
        (isInChip ? times.chip : times.between) += pause;
        (isBusy && steps[i].isBusy ? times.chip : times.bus) += message.facts.duration;
        if (!message.facts.failed())
            isBusy = hasWritten(steps[i], ACD::kRegisterControlAndStatus);
        end = std::max(end, endOf(message));
    }
    times.total = times.bus + times.chip + times.between;
    return times;
}

/// Splits the steps into operations.
class Grouping
{
public:
    explicit Grouping(Analysis& analysis) : m_analysis(analysis) {}

    void add(std::size_t place)
    {
        const Step& step = m_analysis.steps[place];
        const Subject subject = subjectOf(step);
        if (place == 0 || begins(step, subject, m_analysis.steps[place - 1])) {
            finish(place);
            m_analysis.operations.push_back({nameOf(subject, step), place, place, 0, {}, {}});
            m_subject = subject;
            m_progress = Progress();
        } else if (m_subject == Subject::Selection && !step.message->isSelection()) {
            m_analysis.operations.back().name = "detect the chip";
            m_subject = Subject::Detection;
        }
        m_progress.add(step);
    }

    void finish(std::size_t end)
    {
        if (m_analysis.operations.empty())
            return;
        Operation& operation = m_analysis.operations.back();
        operation.end = end;
        for (std::size_t i = operation.begin; i < end; ++i)
            operation.refusals += m_analysis.steps[i].message->facts.failed() ? 1 : 0;
        operation.notes = m_progress.notes(m_subject);
        operation.times = timesOf(m_analysis.steps, operation);
    }

private:
    static bool isSameSpeaker(const Step& one, const Step& other)
    {
        const auto speaker = [](const Facts& facts) {
            return std::tuple(facts.process, facts.thread, facts.bus, facts.address);
        };
        return speaker(one.message->facts) == speaker(other.message->facts);
    }
    bool begins(const Step& step, Subject subject, const Step& last) const
    {
        if (!isSameSpeaker(last, step))
            return true;
        // A selection and the device version are one operation; another selection may begin the next one.
        if (m_subject == Subject::Detection && m_progress.isDetected())
            return true;
        if (m_subject == Subject::Selection || m_subject == Subject::Detection)
            return step.reg != ACD::kRegisterDeviceVersion && subject != m_subject;
        return subject != m_subject || m_progress.endsBefore(step, subject) ||
               (subject == Subject::Other && step.reg != last.reg);
    }

    Analysis& m_analysis;
    Subject m_subject = Subject::Other;
    Progress m_progress;
};

} // namespace

std::string Step::line() const
{
    std::string line = what + (outcome.empty() ? "" : ": " + outcome);
    for (const std::string& oddity : oddities)
        line += "  <- " + oddity;
    return line;
}

Analysis analyse(const Recording& recording)
{
    Analysis analysis;
    std::map<std::pair<AL::U32, AL::U16>, ChipView> chips;
    analysis.steps.reserve(recording.messages.size());
    for (const Message& message : recording.messages)
        analysis.steps.push_back(chips[{message.facts.bus, message.facts.address}].describe(message));
    Grouping grouping(analysis);
    for (std::size_t i = 0; i < analysis.steps.size(); ++i)
        grouping.add(i);
    grouping.finish(analysis.steps.size());
    return analysis;
}

} // namespace VorelKestrel::Capture
