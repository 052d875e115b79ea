#include "common/preload.h"

#include <cstdlib>

#include <gtest/gtest.h>

using namespace VorelKestrel;

TEST(Preloads, LibraryStandsBeforeThoseOfTheEnvironment)
{
    unsetenv("LD_PRELOAD");
    EXPECT_EQ("ours.so", preloadsWith("ours.so"));
    setenv("LD_PRELOAD", "", 1);
    EXPECT_EQ("ours.so", preloadsWith("ours.so"));
    setenv("LD_PRELOAD", " a.so  b.so:/c/d.so ", 1);
    EXPECT_EQ("ours.so:a.so:b.so:/c/d.so", preloadsWith("ours.so"));
}

TEST(Preloads, TheCaptureStandsBeforeAllOthers)
{
    setenv("LD_PRELOAD", "a.so:/lib/libauthchip-capture.so", 1);
    EXPECT_EQ("/lib/libauthchip-capture.so:ours.so:a.so", preloadsWith("ours.so"));
}

TEST(Preloads, ALibraryThatIsMissingIsNamed)
{
    try {
        preloadLibrary("no/built.so", "no/installed.so");
        FAIL();
    } catch (const PreloadError& error) {
        const std::string text = error.what();
        EXPECT_NE(std::string::npos, text.find("no/installed.so; install it again")) << text;
    }
}
