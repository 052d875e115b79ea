#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

#include "tool/repeat/quantiles.h"
#include "tool/repeat/summary.h"
#include "tool/report/duration.h"

namespace VorelKestrel::Tool {
namespace {

// Of a plot, in its own units: the browser stretches it to the width of the page.
constexpr double kWidth = 1000;
constexpr double kHeight = 110;
constexpr double kPercent = 100;

constexpr char kStyle[] =
    "body{font:15px sans-serif;max-width:900px;margin:2em auto;padding:0 "
    "1em;color:#222}h1{font-size:1.6em}h2,h3{margin-bottom:.3em}"
    ".wide{overflow-x:auto}table{border-collapse:collapse;white-space:nowrap}"
    "td,th{padding:.25em .8em;text-align:right}td:first-child,th:first-child{text-align:left;padding-left:0}"
    "tr+tr{border-top:1px solid #ddd}svg{display:block;width:100%;height:110px;border-bottom:1px solid #888}"
    ".axis{position:relative;height:1.3em;margin:.2em 0 1.6em;font-size:12px;color:#555}"
    ".axis span{position:absolute;white-space:nowrap;transform:translateX(-50%)}.axis .first{transform:none}"
    ".axis .last{transform:translateX(-100%)}.note{margin:0 0 .6em;color:#555;font-size:13px}"
    ".ok{fill:#4a7fb0;color:#4a7fb0}.bad{fill:#c0392b;color:#c0392b}line{stroke:#ddd}";

/// Escapes the special characters of HTML.
std::string inHtml(const std::string& text)
{
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

class Plot
{
public:
    Plot(std::size_t bars, std::uint64_t highest)
        : m_barWidth(kWidth / static_cast<double>(std::max<std::size_t>(bars, 1))),
          m_scale(kHeight / static_cast<double>(std::max<std::uint64_t>(highest, 1)))
    {
        m_svg << std::fixed << std::setprecision(1);
        m_labels << std::fixed << std::setprecision(1);
    }

    /// Draws a bar on top of @p below earlier ones.
    void bar(std::size_t position, std::uint64_t below, std::uint64_t count, const char* kind)
    {
        if (count == 0)
            return;
        const double height = std::max(1.0, static_cast<double>(count) * m_scale);
        const double bottom = kHeight - static_cast<double>(below) * m_scale;
        m_svg << "<rect class=\"" << kind << "\" x=\"" << static_cast<double>(position) * m_barWidth << "\" y=\""
              << bottom - height << "\" width=\"" << 0.9 * m_barWidth << "\" height=\"" << height << "\"/>\n";
    }

    /// A label below the bars, at a place from 0 to 1, with a line unless it is at one of the ends.
    void label(double place, const std::string& text)
    {
        const char* const end = place <= 0 ? R"( class="first")" : place >= 1 ? R"( class="last")" : "";
        if (*end == '\0')
            m_svg << "<line x1=\"" << place * kWidth << "\" x2=\"" << place * kWidth << R"(" y1="0" y2=")" << kHeight
                  << "\"/>\n";
        m_labels << "<span" << end << " style=\"left:" << place * kPercent << "%\">" << text << "</span>";
    }

    std::string html() const
    {
        std::ostringstream html;
        html << "<svg viewBox=\"0 0 " << kWidth << ' ' << kHeight << "\" preserveAspectRatio=\"none\" role=\"img\">\n"
             << m_svg.str() << "</svg>\n<div class=\"axis\">" << m_labels.str() << "</div>\n";
        return html.str();
    }

private:
    const double m_barWidth;
    const double m_scale;
    std::ostringstream m_svg;
    std::ostringstream m_labels;
};

std::string inSeconds(std::chrono::nanoseconds duration)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::chrono::duration<double>(duration).count() << " s";
    return text.str();
}

std::string note(const std::string& text)
{
    return "<p class=\"note\">" + text + "</p>\n";
}

std::string plotOf(const Timeline& timeline)
{
    std::uint64_t highest = 0;
    for (const Timeline::Slot& slot : timeline.slots())
        highest = std::max(highest, slot.successes + slot.failures);
    Plot plot(timeline.slots().size(), highest);
    std::size_t position = 0;
    for (const Timeline::Slot& slot : timeline.slots()) {
        plot.bar(position, 0, slot.successes, "ok");
        plot.bar(position++, slot.successes, slot.failures, "bad");
    }
    const auto slots = static_cast<std::chrono::nanoseconds::rep>(timeline.slots().size());
    plot.label(0, "0 s");
    plot.label(1, inSeconds(timeline.slotLength() * slots));
    return note(R"(<b class="ok">Blue</b> succeeded, <b class="bad">red</b> failed. A bar is )" +
                inSeconds(timeline.slotLength()) + "; the highest has " + std::to_string(highest) + " attempts.") +
           plot.html();
}

/// Bars whose limits grow by a constant ratio, eight for each doubling: short and long times share one axis.
class LogarithmicBars
{
public:
    explicit LogarithmicBars(const Histogram& times) : m_times(times) {}

    std::vector<std::uint64_t> counts() const
    {
        std::vector<std::uint64_t> counts;
        for (int bar = m_first; bar <= m_last; ++bar)
            counts.push_back(m_times.countBetween(bar == m_first ? Time(-1) : startOf(bar),
                                                  bar == m_last ? Time::max() : startOf(bar + 1)));
        return counts;
    }
    void label(Plot& plot) const
    {
        constexpr double kRoom = 0.14; // that a label needs on a telephone; those at the ends stand beside their places
        double last = kRoom / 2;
        plot.label(0, inMilliseconds(startOf(m_first)));
        for (Time time = std::chrono::microseconds(100); time < m_times.longest(); time *= 10) {
            const double place = placeOf(time);
            if (place < last + kRoom || place > 1 - 1.5 * kRoom)
                continue;
            plot.label(place, inMilliseconds(time));
            last = place;
        }
        plot.label(1, inMilliseconds(m_times.longest()));
    }

private:
    using Time = Histogram::Duration;
    static constexpr double kBarsOfADoubling = 8;

    static double measure(Time time)
    {
        return kBarsOfADoubling * std::log2(static_cast<double>(std::max<std::int64_t>(time.count(), 1)));
    }
    static Time startOf(int bar) { return Time(static_cast<std::int64_t>(std::exp2(bar / kBarsOfADoubling))); }
    double placeOf(Time time) const { return (measure(time) - m_first) / (m_last + 1 - m_first); }

    const Histogram& m_times;
    const int m_first = static_cast<int>(measure(m_times.quantile(0)));
    const int m_last = static_cast<int>(measure(m_times.longest()));
};

std::string plotOf(const Histogram& times)
{
    const LogarithmicBars bars(times);
    const std::vector<std::uint64_t> counts = bars.counts();
    const std::uint64_t highest = *std::max_element(counts.begin(), counts.end());
    Plot plot(counts.size(), highest);
    bars.label(plot); // before the bars: its lines are behind them
    for (std::size_t bar = 0; bar < counts.size(); ++bar)
        plot.bar(bar, 0, counts[bar], "ok");
    return note("The highest bar has " + std::to_string(highest) + " of " + std::to_string(times.count()) + " calls.") +
           plot.html();
}

void addRow(std::ostream& page, const StepFigures& step)
{
    page << "<tr><td>" << inHtml(step.name) << "</td><td>" << step.calls << "</td><td>" << step.refused << "</td><td>"
         << step.retries << "</td>";
    for (const Quantile& quantile : kQuantiles)
        page << "<td>" << inMilliseconds(step.times.quantile(quantile.share)) << "</td>";
    page << "<td>" << inMilliseconds(step.times.longest()) << "</td></tr>\n";
}

void addCauses(std::ostream& page, const Tally& tally)
{
    if (tally.causes().empty())
        return;
    page << "<table><tr><th>cause of failure</th><th>attempts</th></tr>\n";
    for (const auto& [cause, count] : tally.causes())
        page << "<tr><td>" << inHtml(cause) << "</td><td>" << count << "</td></tr>\n";
    page << "</table>\n";
}

void addSteps(std::ostream& page, const Tally& tally)
{
    page << "<h2>Steps</h2>\n"
         << note("The time below 90 % is what 90 % of the calls did not exceed. <i>" + std::string(kRest) +
                 "</i> is what the tool did itself, <i>" + kWhole + "</i> the whole attempt.")
         << "<div class=\"wide\"><table><tr><th>step</th><th>calls</th><th>refused</th><th>retries</th>";
    for (const Quantile& quantile : kQuantiles)
        page << "<th>" << quantile.label << "</th>";
    page << "<th>longest</th></tr>\n";
    for (const StepFigures* step : tally.steps())
        addRow(page, *step);
    page << "</table></div>\n<h2>Times</h2>\n" << note("The axes are logarithmic.");
    for (const StepFigures* step : tally.steps()) {
        if (step->times.count() > 0)
            page << "<h3>" << inHtml(step->name) << "</h3>\n" << plotOf(step->times);
    }
}

} // namespace

std::string pageOf(const Tally& tally, const std::string& title, const std::string& begin)
{
    std::ostringstream page;
    page << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
            "content=\"width=device-width\"><title>"
         << inHtml(title) << "</title><style>" << kStyle << "</style></head><body>\n<h1>" << inHtml(title)
         << "</h1>\n<p>" << tally.attempts() << " attempts in " << inSeconds(tally.time()) << " from " << begin << ": "
         << tally.successes() << " successes, " << tally.failures() << " failures.</p>\n";
    addCauses(page, tally);
    page << "<h2>Attempts over time</h2>\n" << plotOf(tally.timeline());
    addSteps(page, tally);
    page << "</body></html>\n";
    return page.str();
}

} // namespace VorelKestrel::Tool
