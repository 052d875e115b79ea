#include "capture/output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <ostream>

namespace VorelKestrel::Capture {
namespace {

// Lengths are in units of the picture.
constexpr double kWidth = 1200;
constexpr double kLeft = 300; // of the bars; the names are to the left
constexpr double kRight = 1175;
constexpr double kTop = 92;
constexpr double kRowHeight = 44;
constexpr double kBarHeight = 22;
constexpr double kThinnest = 1.5; // so that a short message is visible
constexpr std::size_t kMostRows = 200;

struct Colour
{
    const char* name;
    const char* value;
    const char* meaning;
};

enum Kind
{
    kPause,
    kBusy,
    kWrite,
    kRead,
    kFailure
};

constexpr Colour kColours[] = {
    {"pause", "#e4e7eb", "pause"},
    {"busy", "#f7c873", "chip busy"},
    {"write", "#2b6cb0", "write"},
    {"read", "#2f9e67", "read"},
    {"failure", "#d63b30", "refused or failed"},
};

std::string escapedForXml(const std::string& text)
{
    std::string escaped;
    for (const char character : text) {
        switch (character) {
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '&':
            escaped += "&amp;";
            break;
        default:
            escaped += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
        }
    }
    return escaped;
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f", value);
    return text;
}

/// "42.1 ms"; "1.226 s" for a second or more.
std::string shortTime(double nanoseconds)
{
    char text[32];
    if (nanoseconds >= 1e9)
        std::snprintf(text, sizeof(text), "%.3g s", nanoseconds / 1e9);
    else
        std::snprintf(text, sizeof(text), "%.3g ms", nanoseconds / 1e6);
    return text;
}

void writeText(std::ostream& out, double x, double y, const char* style, const std::string& text)
{
    out << "<text x=\"" << number(x) << "\" y=\"" << number(y) << "\" class=\"" << style << "\">" << escapedForXml(text)
        << "</text>\n";
}

void writeBar(std::ostream& out, double x, double y, double width, double height, Kind kind, const std::string& title)
{
    out << "<rect x=\"" << number(x) << "\" y=\"" << number(y) << "\" width=\"" << number(width) << "\" height=\""
        << number(height) << "\" class=\"" << kColours[kind].name << '"';
    if (title.empty())
        out << "/>\n";
    else
        out << "><title>" << escapedForXml(title) << "</title></rect>\n";
}

/// Converts nanoseconds since the begin of an operation to positions in the picture.
class Scale
{
public:
    explicit Scale(std::uint64_t longest) : m_longest(std::max(1.0, static_cast<double>(longest))) {}

    double place(std::uint64_t time) const
    {
        return kLeft + (kRight - kLeft) * std::min(1.0, static_cast<double>(time) / m_longest);
    }
    double longest() const { return m_longest; }
    /// A round time, of which a few fill the width.
    double step() const
    {
        const double rough = m_longest / 6;
        const double power = std::pow(10, std::floor(std::log10(rough)));
        const double factor = rough / power;
        return power * (factor < 1.5 ? 1 : factor < 3.5 ? 2 : factor < 7.5 ? 5 : 10);
    }

private:
    const double m_longest;
};

/// The bars of one operation.
class Row
{
public:
    Row(const Analysis& analysis, const Operation& operation, const Scale& scale, double top, std::ostream& out)
        : m_analysis(analysis), m_operation(operation), m_scale(scale), m_top(top), m_out(out),
          m_start(analysis.steps[operation.begin].message->facts.time)
    {}

    void draw(std::uint64_t captureStart) const
    {
        const std::uint64_t since = m_start > captureStart ? m_start - captureStart : 0;
        writeText(m_out, 20, m_top + 10, "name", inSeconds(since) + "  " + m_operation.name);
        const std::size_t count = m_operation.end - m_operation.begin;
        writeText(m_out, 20, m_top + 25, "detail",
                  std::to_string(count) + (count == 1 ? " message, " : " messages, ") +
                      shortTime(static_cast<double>(m_operation.times.total)) +
                      (m_operation.refusals > 0 ? ", " + std::to_string(m_operation.refusals) + " failed" : "") +
                      (m_operation.notes.empty() ? "" : "  (!)"));
        drawGaps();
        for (std::size_t i = m_operation.begin; i < m_operation.end; ++i)
            drawMessage(m_analysis.steps[i]);
    }

private:
    std::uint64_t since(std::uint64_t time) const { return time > m_start ? time - m_start : 0; }

    void drawGaps() const
    {
        std::uint64_t end = 0;
        bool isBusy = false;
        for (std::size_t i = m_operation.begin; i < m_operation.end; ++i) {
            const Step& step = m_analysis.steps[i];
            const std::uint64_t begin = since(step.message->facts.time);
            const double left = m_scale.place(end);
            const double width = m_scale.place(begin) - left;
            if (begin > end && width > 0)
                writeBar(m_out, left, m_top, width, kBarHeight, isBusy ? kBusy : kPause,
                         (isBusy ? "chip busy, " : "pause, ") + shortTime(static_cast<double>(begin - end)));
            if (!step.message->facts.failed())
                isBusy = startsCommand(i);
            end = std::max(end, begin + step.message->facts.duration);
        }
    }
    /// Whether the chip refuses the next message because of this one.
    bool startsCommand(std::size_t place) const
    {
        return place + 1 < m_operation.end && m_analysis.steps[place + 1].isBusy;
    }
    void drawMessage(const Step& step) const
    {
        const Facts& facts = step.message->facts;
        const double left = m_scale.place(since(facts.time));
        const double right = m_scale.place(since(facts.time) + facts.duration);
        const Kind kind = facts.failed() || facts.isShort() ? kFailure : facts.isRead ? kRead : kWrite;
        const double extra = kind == kFailure ? 4 : 0; // failures are larger
        writeBar(m_out, left, m_top - extra, std::max(kThinnest, right - left), kBarHeight + 2 * extra, kind,
                 shortTime(static_cast<double>(since(facts.time))) + ": " + step.line());
    }

    const Analysis& m_analysis;
    const Operation& m_operation;
    const Scale& m_scale;
    const double m_top;
    std::ostream& m_out;
    const std::uint64_t m_start;
};

void drawHead(std::ostream& out, double height, const std::string& title)
{
    out << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 )" << number(kWidth) << ' ' << number(height)
        << R"(" width=")" << number(kWidth) << R"(" height=")" << number(height) << "\">\n<style>\n"
        << "text { font-family: sans-serif; font-size: 12px; fill: #1f2933; }\n"
        << ".title { font-size: 18px; font-weight: bold; } .name { font-size: 13px; font-weight: bold; }\n"
        << ".detail { fill: #616e7c; } .tick { fill: #616e7c; text-anchor: middle; }\n";
    for (const Colour& colour : kColours)
        out << '.' << colour.name << " { fill: " << colour.value << "; }\n";
    out << "</style>\n<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    writeText(out, 20, 30, "title", title);
    double x = 20;
    for (std::size_t kind = 0; kind < std::size(kColours); ++kind) {
        writeBar(out, x, 44, 14, 12, static_cast<Kind>(kind), "");
        writeText(out, x + 20, 54, "detail", kColours[kind].meaning);
        x += 46 + 7 * static_cast<double>(std::string(kColours[kind].meaning).size());
    }
}

void drawAxis(std::ostream& out, const Scale& scale, double bottom)
{
    const int count = static_cast<int>(scale.longest() / scale.step());
    for (int tick = 0; tick <= count; ++tick) {
        const double time = tick * scale.step();
        const double x = scale.place(static_cast<std::uint64_t>(time));
        out << "<line x1=\"" << number(x) << "\" y1=\"" << number(kTop - 14) << "\" x2=\"" << number(x) << "\" y2=\""
            << number(bottom) << "\" stroke=\"#d5dae0\"/>\n";
        writeText(out, x, kTop - 19, "tick", shortTime(time));
    }
}

} // namespace

void drawTimeline(const Recording& recording, const Analysis& analysis, const std::string& title, std::ostream& out)
{
    const std::size_t rows = std::min(analysis.operations.size(), kMostRows);
    std::uint64_t longest = 0;
    for (std::size_t i = 0; i < rows; ++i)
        longest = std::max(longest, analysis.operations[i].times.total);
    const Scale scale(longest);
    const double bottom = kTop + kRowHeight * static_cast<double>(std::max<std::size_t>(rows, 1));
    const bool isCut = rows < analysis.operations.size();
    drawHead(out, bottom + (isCut ? 40 : 16), title);
    drawAxis(out, scale, bottom - 8);
    for (std::size_t i = 0; i < rows; ++i)
        Row(analysis, analysis.operations[i], scale, kTop + kRowHeight * static_cast<double>(i), out)
            .draw(recording.messages.front().facts.time);
    if (rows == 0)
        writeText(out, 20, kTop + 10, "detail", "no message");
    if (isCut)
        writeText(out, 20, bottom + 20, "detail",
                  "and " + std::to_string(analysis.operations.size() - rows) + " more operations");
    out << "</svg>\n";
}

} // namespace VorelKestrel::Capture
