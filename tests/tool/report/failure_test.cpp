#include "tool/report/failure.h"

#include <cerrno>
#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace VorelKestrel::Tool;

TEST(FailureTest, ExplainsCauseAndNextStepOnLinesOfTheirOwn)
{
    std::ostringstream out;
    explain(Failure("no answer", "find the chip", "Nobody answers", "Look.\nLook again."), out);
    EXPECT_EQ("authchip: cannot find the chip\n"
              "  Nobody answers\n"
              "  next: Look.\n"
              "        Look again.\n",
              out.str());
}

TEST(FailureTest, LeavesOutWhatWasTriedIfTheAnswerSaysItAll)
{
    std::ostringstream out;
    explain(Failure(kWrongUsage, "", "unknown command 'foo'", "See --help."), out);
    EXPECT_EQ("authchip: unknown command 'foo'\n  next: See --help.\n", out.str());
}

TEST(FailureTest, LetsNoControlCharacterThrough)
{
    std::ostringstream out;
    explain(Failure("no answer", "a\x1b[2J", "b\x1b[2J", "c\x1b[2J"), out);
    EXPECT_EQ(std::string::npos, out.str().find('\x1b')) << out.str();
}

TEST(FailureTest, IsAnObjectForPrograms)
{
    std::ostringstream out;
    printJson(Failure("no permission", "open /dev/i2c-1", "Permission denied (EACCES)", "Run as root.")
                  .withSystemError(EACCES),
              out);
    EXPECT_EQ("{\"failure\":{\"cause\":\"no permission\",\"tried\":\"open /dev/i2c-1\",\"answer\":"
              "\"Permission denied (EACCES)\",\"errno\":13,\"next\":\"Run as root.\"}}\n",
              out.str());
}

TEST(FailureTest, HasTheExitStatusOfItsCauseUnlessItHasOneOfItsOwn)
{
    Failure failure("lock held", "", "", "");
    EXPECT_EQ(ExitStatus::Lock, failure.status());
    EXPECT_EQ(ExitStatus::Chip, failure.withStatus(ExitStatus::Chip).status());
}

} // namespace
