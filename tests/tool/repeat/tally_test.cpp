#include "tool/repeat/tally.h"

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tool/repeat/summary.h"

namespace {

using namespace VorelKestrel::Tool;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

OperationFigures figures(const char* operation, int refused, int retries, milliseconds time)
{
    OperationFigures call;
    call.operation = operation;
    call.calls = 1;
    call.refused = refused;
    call.retries = retries;
    call.longestRow = refused;
    call.time = time;
    return call;
}

/// Two that succeed, and three that fail.
Tally exampleTally()
{
    Tally tally;
    tally.add({"",
               milliseconds(0),
               milliseconds(50),
               {figures("detect", 0, 0, milliseconds(5)), figures("sign", 3, 3, milliseconds(40))}});
    tally.add({"no answer", milliseconds(50), milliseconds(10), {figures("detect", 1, 0, milliseconds(10))}});
    tally.add({"no answer", milliseconds(60), milliseconds(10), {figures("detect", 1, 0, milliseconds(10))}});
    tally.add({"wrong <signature>", milliseconds(70), milliseconds(10), {figures("detect", 0, 0, milliseconds(9))}});
    tally.add({"", milliseconds(80), milliseconds(20), {figures("detect", 0, 0, milliseconds(5))}});
    return tally;
}

TEST(TallyTest, CountsFailuresByCause)
{
    const Tally tally = exampleTally();
    EXPECT_EQ(5U, tally.attempts());
    EXPECT_EQ(2U, tally.successes());
    EXPECT_EQ(3U, tally.failures());
    EXPECT_EQ((std::map<std::string, std::uint64_t>{{"no answer", 2}, {"wrong <signature>", 1}}), tally.causes());
    EXPECT_EQ(milliseconds(100), tally.time());
}

TEST(TallyTest, AddsUpWhatEachStepMetOnTheBus)
{
    const Tally tally = exampleTally();
    const auto steps = tally.steps();
    ASSERT_EQ(4U, steps.size());
    EXPECT_EQ("detect", steps[0]->name);
    EXPECT_EQ(5U, steps[0]->calls);
    EXPECT_EQ(2U, steps[0]->refused);
    EXPECT_EQ(0U, steps[0]->retries);
    EXPECT_EQ("sign", steps[1]->name);
    EXPECT_EQ(3U, steps[1]->retries);
    EXPECT_EQ(3, steps[1]->longestRow);
    EXPECT_EQ(milliseconds(40), steps[1]->times.longest());
}

TEST(TallyTest, CountsTheToolsOwnTimeAsTheRest)
{
    const Tally tally = exampleTally();
    const auto steps = tally.steps();
    EXPECT_EQ(kRest, steps[2]->name);
    EXPECT_EQ(milliseconds(15), steps[2]->times.longest()); // 20 less 5
    EXPECT_EQ(kWhole, steps[3]->name);
    EXPECT_EQ(milliseconds(50), steps[3]->times.longest());
}

TEST(TallyTest, IsATableForPeople)
{
    std::ostringstream out;
    printTable(exampleTally(), out);
    EXPECT_NE(std::string::npos, out.str().find("attempts                    5\n"
                                                "successes                   2\n"
                                                "failures                    3\n"
                                                "  no answer                 2\n"
                                                "  wrong <signature>         1\n"))
        << out.str();
    EXPECT_NE(std::string::npos, out.str().find("sign                        1        3        3"));
}

TEST(TallyTest, IsAnObjectForPrograms)
{
    const auto json = jsonOf(exampleTally());
    EXPECT_EQ(5, json["attempts"]);
    EXPECT_EQ(2, json["causes"]["no answer"]);
    EXPECT_EQ(100.0, json["timeMs"]);
    EXPECT_EQ("sign", json["steps"][1]["name"]);
    EXPECT_EQ(40.0, json["steps"][1]["longestMs"]);
    EXPECT_EQ(40.0, json["steps"][1]["p999Ms"]);
}

TEST(TallyTest, IsAPageThatEscapesWhatItNames)
{
    const std::string page = pageOf(exampleTally(), "a & b", "2026-01-31T12:00:00.000Z");
    EXPECT_NE(std::string::npos, page.find("<h1>a &amp; b</h1>"));
    EXPECT_NE(std::string::npos, page.find("wrong &lt;signature&gt;"));
    EXPECT_EQ(std::string::npos, page.find("wrong <signature>"));
    EXPECT_EQ(std::string::npos, page.find("<script"));
    EXPECT_NE(std::string::npos,
              page.find("5 attempts in 0.1 s from 2026-01-31T12:00:00.000Z: 2 successes, 3 failures."));
}

/// The labels below the plot of a step, from left to right.
std::vector<std::string> labelsOf(const std::string& step, const std::string& page)
{
    const std::size_t begin = page.find("<div class=\"axis\">", page.find("<h3>" + step + "</h3>"));
    const std::string axis = page.substr(begin, page.find("</div>", begin) - begin);
    std::vector<std::string> labels;
    const std::regex span("<span[^>]*>([^<]*)</span>");
    for (auto label = std::sregex_iterator(axis.begin(), axis.end(), span); label != std::sregex_iterator(); ++label)
        labels.push_back((*label)[1]);
    return labels;
}

TEST(TallyTest, LabelsItsTimesByPowersOfTenWhereThereIsRoom)
{
    Tally tally;
    for (const int time : {2, 9, 40, 1500})
        tally.add({"", milliseconds(0), milliseconds(time), {figures("sign", 0, 0, milliseconds(time))}});
    const std::string page = pageOf(tally, "", "");
    EXPECT_EQ((std::vector<std::string>{"1.9 ms", "10.0 ms", "100.0 ms", "1500.0 ms"}), labelsOf("sign", page));
    EXPECT_EQ((std::vector<std::string>{"0.0 ms", "0.0 ms"}), labelsOf(kRest, page));
}

TEST(TallyTest, IsAPageAlsoBeforeTheFirstAttempt)
{
    EXPECT_NE(std::string::npos, pageOf(Tally(), "nothing", "").find("0 attempts"));
}

TEST(TimelineTest, GrowsLongerSlotsInsteadOfMore)
{
    Timeline timeline;
    for (int second = 0; second < 3600; ++second)
        timeline.add(seconds(second), second % 10 != 0);
    EXPECT_LE(timeline.slots().size(), 120U);
    std::uint64_t successes = 0;
    std::uint64_t failures = 0;
    for (const Timeline::Slot& slot : timeline.slots()) {
        successes += slot.successes;
        failures += slot.failures;
    }
    EXPECT_EQ(3240U, successes);
    EXPECT_EQ(360U, failures);
    timeline.add(hours(48), true);
    EXPECT_LE(timeline.slots().size(), 120U);
    EXPECT_EQ(0U, timeline.slots()[timeline.slots().size() - 2].successes);
}

} // namespace
