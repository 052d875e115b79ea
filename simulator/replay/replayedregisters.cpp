#include "simulator/replay/replayedregisters.h"

#include <algorithm>

#include "simulator/replay/replayedbus.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr AL::U8 kNothing = 0xff; // an idle data line reads as ones

} // namespace

ReplayedRegisters::ReplayedRegisters(const Capture::Recording& recording)
{
    std::optional<AL::U8> named;
    for (const Capture::Message* message : messagesOf(recording)) {
        if (message->facts.isRead) {
            m_answers[{Access::Read, named}].push_back(message);
            continue;
        }
        const Bytes& bytes = message->bytes();
        const std::optional<AL::U8> reg = bytes.empty() ? std::nullopt : std::optional<AL::U8>(bytes[0]);
        m_answers[{writeOf(message->byteCount()), reg}].push_back(message);
        if (!message->facts.failed())
            named = reg;
    }
}

Transfer ReplayedRegisters::write(unsigned address, const AL::U8* data, std::size_t length)
{
    const std::optional<AL::U8> reg = length == 0 ? std::nullopt : std::optional<AL::U8>(data[0]);
    const Capture::Message* answer = answerTo(address, {writeOf(length), reg});
    if (answer == nullptr)
        return kRefused;
    const Transfer transfer = transferOf(*answer);
    if (transfer.outcome != Outcome::Done)
        return transfer;
    m_register = reg;
    return {Outcome::Done, answer->facts.isShort() ? std::min(transfer.count, length) : length};
}

Transfer ReplayedRegisters::read(unsigned address, AL::U8* data, std::size_t length)
{
    const Capture::Message* answer = answerTo(address, {Access::Read, m_register});
    if (answer == nullptr)
        return kRefused;
    const Transfer transfer = transferOf(*answer);
    if (transfer.outcome != Outcome::Done)
        return transfer;
    std::fill_n(data, length, kNothing);
    std::copy_n(answer->data.begin(), std::min(answer->data.size(), length), data);
    return {Outcome::Done, answer->facts.isShort() ? std::min(transfer.count, length) : length};
}

const Capture::Message* ReplayedRegisters::answerTo(unsigned address, const Key& key)
{
    const auto answers = m_answers.find(key);
    if (answers == m_answers.end())
        return nullptr;
    const Capture::Message* answer = answers->second.front();
    if (answer->facts.address != address && answer->facts.address != Capture::kUnknownAddress)
        return nullptr;
    if (answers->second.size() > 1)
        answers->second.pop_front();
    return answer;
}

} // namespace VorelKestrel::Simulator
