#include "tool/commands/command.h"

#include <sstream>

#include <nlohmann/json.hpp>

#include "capture/output.h"
#include "capture/recording.h"
#include "tool/commands/arguments.h"
#include "tool/commands/output.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

/// Prints one object, also after a failure.
void printAsJson(const Capture::Recording& recording, const Capture::Analysis& analysis, const Failure* failure,
                 std::ostream& answer)
{
    if (failure == nullptr)
        return Capture::printJson(recording, analysis, answer);
    std::ostringstream text;
    Capture::printJson(recording, analysis, text);
    auto object = nlohmann::ordered_json::parse(text.str());
    object["failure"] = failure->json();
    answer << object.dump() << '\n';
}

class Decode : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        arguments.add("FILE", m_file, "A capture made by 'authchip capture', 'authchip-sim --capture' or Wireshark")
            .required();
        arguments.add("--svg", m_picture, "Draw a timeline into this file").shownAs("FILE");
    }

    ExitStatus run(const CommandContext& context) override
    {
        const Capture::Recording recording = load();
        const Capture::Analysis analysis = Capture::analyse(recording);
        if (!m_picture.empty())
            draw(recording, analysis);
        Failure damage("capture damaged", "read all of the capture " + m_file, recording.damage,
                       "The messages before the damage are shown. If the disk was full, make room and capture again.");
        const bool isDamaged = !recording.damage.empty();
        if (context.options.json)
            printAsJson(recording, analysis, isDamaged ? &damage : nullptr, context.answer);
        else
            Capture::printText(recording, analysis, context.answer);
        if (isDamaged)
            throw damage.afterAnswer();
        return ExitStatus::Success;
    }

private:
    Capture::Recording load() const
    {
        try {
            return Capture::loadRecording(m_file);
        } catch (const Capture::RecordingError& error) {
            throw Failure("file not read", "read the capture " + m_file, error.what(),
                          "Name a pcapng file made by 'authchip capture', 'authchip-sim --capture' or Wireshark.");
        }
    }

    void draw(const Capture::Recording& recording, const Capture::Analysis& analysis) const
    {
        std::ostringstream picture;
        Capture::drawTimeline(recording, analysis, m_file.substr(m_file.rfind('/') + 1), picture);
        storeFile(m_picture, picture.str());
    }

    std::string m_file;
    std::string m_picture; // empty: none
};

} // namespace

std::unique_ptr<Command> makeDecode()
{
    return std::make_unique<Decode>();
}

} // namespace VorelKestrel::Tool
