#include "common/preload.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

using namespace VorelKestrel;
namespace fs = std::filesystem;

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

TEST(PreloadPath, IsTheLibrarysOwnWhereLdPreloadCanNameIt)
{
    EXPECT_EQ("/lib/ours.so", PreloadPath("/lib/ours.so").get());
}

TEST(PreloadPath, IsALinkOfTheSameNameWhereThePathHasABlankOrAColon)
{
    for (const std::string library : {"/a b/ours.so", "/a:b/ours.so"}) {
        std::string link;
        {
            const PreloadPath path(library);
            link = path.get();
            EXPECT_EQ(std::string::npos, link.find_first_of(" :"));
            EXPECT_EQ("ours.so", fs::path(link).filename());
            EXPECT_EQ(library, fs::read_symlink(link));
        }
        EXPECT_FALSE(fs::exists(fs::path(link).parent_path()));
    }
}
