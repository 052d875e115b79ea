// The fuzzer plays a received capture: the tool reads, explains and draws it, and the simulator plays
// it back. Nothing but plain text may come out, so that no terminal obeys it.

#include "capture/recording.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>

#include "capture/output.h"
#include "common/i2cdevice.h"
#include "fuzzers/target.h"
#include "simulator/replay/replayedbus.h"
#include "simulator/replay/replayedregisters.h"

using namespace VorelKestrel;

namespace {

void requirePlain(const std::string& text)
{
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char character) {
        return character == '\n' || (character >= ' ' && character <= '~');
    });
    if (!isPlain)
        std::abort();
}

void tell(const Capture::Recording& recording)
{
    const Capture::Analysis analysis = Capture::analyse(recording);
    std::ostringstream out;
    Capture::printText(recording, analysis, out);
    Capture::printJson(recording, analysis, out);
    Capture::drawTimeline(recording, analysis, "fuzzed", out);
    requirePlain(out.str() + recording.damage);
}

/// Sends the recorded messages, and then one more.
void play(Simulator::Bus& bus, const std::vector<const Capture::Message*>& messages)
{
    for (const Capture::Message* message : messages) {
        const std::size_t length = message->facts.isRead
                                       ? std::min<std::size_t>(message->facts.requested, kMessageMaximumLength)
                                       : message->bytes().size();
        Bytes data(length);
        Simulator::Transfer transfer{};
        if (message->facts.isRead)
            transfer = bus.read(message->facts.address, data.data(), length);
        else
            transfer = bus.write(message->facts.address, message->bytes().data(), length);
        if (transfer.outcome == Simulator::Outcome::Done && transfer.count > length)
            std::abort();
    }
}

void replay(const Capture::Recording& recording)
{
    const auto messages = Simulator::messagesOf(recording);
    Simulator::ReplayedBus inOrder(recording, [](const std::string& difference) { requirePlain(difference); });
    Simulator::ReplayedRegisters byRegister(recording);
    play(inOrder, messages);
    play(inOrder, messages);
    play(byRegister, messages);
    requirePlain(Simulator::nodeOf(recording));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t length)
{
    // A separate block, because the fuzzer's may be longer.
    const Bytes bytes(data, data + length);
    try {
        const Capture::Recording recording = Capture::parseRecording(bytes.data(), bytes.size());
        tell(recording);
        replay(recording);
    } catch (const Capture::RecordingError& error) {
        requirePlain(error.what());
    }
    return 0;
}
