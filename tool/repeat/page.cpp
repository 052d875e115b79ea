#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

#include "tool/repeat/quantiles.h"
#include "tool/repeat/summary.h"
#include "tool/report/duration.h"

namespace VorelKestrel::Tool {
namespace {

constexpr double kWidth = 860;
constexpr double kHeight = 140;
constexpr double kBase = 118; // the axis, above the labels

constexpr char kStyle[] = "body{font:15px sans-serif;max-width:900px;margin:2em auto;color:#222}"
                          "table{border-collapse:collapse}td,th{padding:.2em .8em;text-align:right}"
                          "td:first-child,th:first-child{text-align:left}tr+tr{border-top:1px solid #ddd}"
                          "svg{display:block;margin:.3em 0 1.2em}text{font:12px sans-serif;fill:#555}"
                          ".ok{fill:#4a7fb0}.bad{fill:#c0392b}line{stroke:#888}";

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
          m_scale((kBase - 10) / static_cast<double>(std::max<std::uint64_t>(highest, 1)))
    {
        m_svg << std::fixed << std::setprecision(1) << "<svg width=\"" << kWidth << "\" height=\"" << kHeight
              << "\" role=\"img\">\n";
    }

    /// Draws a bar on top of @p below earlier ones.
    void bar(std::size_t position, std::uint64_t below, std::uint64_t count, const char* kind)
    {
        if (count == 0)
            return;
        const double height = std::max(1.0, static_cast<double>(count) * m_scale);
        const double bottom = kBase - static_cast<double>(below) * m_scale;
        m_svg << "<rect class=\"" << kind << "\" x=\"" << static_cast<double>(position) * m_barWidth << "\" y=\""
              << bottom - height << "\" width=\"" << std::max(1.0, m_barWidth - 1) << "\" height=\"" << height
              << "\"/>\n";
    }

    std::string end(const std::string& left, const std::string& right)
    {
        m_svg << "<line x1=\"0\" y1=\"" << kBase << "\" x2=\"" << kWidth << "\" y2=\"" << kBase << "\"/>\n"
              << "<text x=\"0\" y=\"" << kHeight - 5 << "\">" << left << "</text><text x=\"" << kWidth << "\" y=\""
              << kHeight - 5 << "\" text-anchor=\"end\">" << right << "</text>\n</svg>\n";
        return m_svg.str();
    }

private:
    const double m_barWidth;
    const double m_scale;
    std::ostringstream m_svg;
};

std::string inSeconds(std::chrono::nanoseconds duration)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::chrono::duration<double>(duration).count() << " s";
    return text.str();
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
    return plot.end("0 s; a bar is " + inSeconds(timeline.slotLength()) + ", the highest " + std::to_string(highest) +
                        " attempts",
                    inSeconds(timeline.slotLength() * slots));
}

/// Bars whose limits grow by a constant ratio, eight for each doubling.
std::string plotOf(const Histogram& times)
{
    constexpr double kBarsOfADoubling = 8;
    const auto barOf = [](std::chrono::nanoseconds time) {
        return std::floor(kBarsOfADoubling * std::log2(static_cast<double>(std::max<std::int64_t>(time.count(), 1))));
    };
    const auto startOf = [](double bar) {
        return std::chrono::nanoseconds(static_cast<std::int64_t>(std::exp2(bar / kBarsOfADoubling)));
    };
    const double first = barOf(times.quantile(0));
    const double last = barOf(times.longest());
    std::vector<std::uint64_t> counts;
    for (double bar = first; bar <= last; ++bar)
        counts.push_back(times.countBetween(bar == first ? std::chrono::nanoseconds(-1) : startOf(bar),
                                            bar == last ? std::chrono::nanoseconds::max() : startOf(bar + 1)));
    const std::uint64_t highest = *std::max_element(counts.begin(), counts.end());
    Plot plot(counts.size(), highest);
    for (std::size_t bar = 0; bar < counts.size(); ++bar)
        plot.bar(bar, 0, counts[bar], "ok");
    return plot.end(inMilliseconds(startOf(first)) + "; the highest bar is " + std::to_string(highest) + " calls",
                    inMilliseconds(times.longest()));
}

void addRow(std::ostream& page, const Step& step)
{
    page << "<tr><td>" << inHtml(step.name) << "</td><td>" << step.calls << "</td><td>" << step.refused << "</td><td>"
         << step.retries << "</td>";
    for (const Quantile& quantile : kQuantiles)
        page << "<td>" << inMilliseconds(step.times.quantile(quantile.share)) << "</td>";
    page << "<td>" << inMilliseconds(step.times.longest()) << "</td></tr>\n";
}

} // namespace

std::string pageOf(const Tally& tally, const std::string& title)
{
    std::ostringstream page;
    page << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" << inHtml(title)
         << "</title><style>" << kStyle << "</style></head><body>\n<h1>" << inHtml(title) << "</h1>\n<p>"
         << tally.attempts() << " attempts in " << inSeconds(tally.time()) << ": " << tally.successes()
         << " successes, " << tally.failures() << " failures.</p>\n";
    if (!tally.causes().empty()) {
        page << "<table><tr><th>cause of failure</th><th>attempts</th></tr>\n";
        for (const auto& [cause, count] : tally.causes())
            page << "<tr><td>" << inHtml(cause) << "</td><td>" << count << "</td></tr>\n";
        page << "</table>\n";
    }
    page << "<h2>Attempts over time</h2>\n<p>Blue succeeded, red failed.</p>\n"
         << plotOf(tally.timeline())
         << "<h2>Steps</h2>\n<table><tr><th>step</th><th>calls</th><th>refused</th><th>retries</th>";
    for (const Quantile& quantile : kQuantiles)
        page << "<th>" << quantile.label << "</th>";
    page << "<th>longest</th></tr>\n";
    for (const Step* step : tally.steps())
        addRow(page, *step);
    page << "</table>\n";
    for (const Step* step : tally.steps()) {
        if (step->times.count() > 0)
            page << "<h3>Times of " << inHtml(step->name) << "</h3>\n" << plotOf(step->times);
    }
    page << "</body></html>\n";
    return page.str();
}

} // namespace VorelKestrel::Tool
