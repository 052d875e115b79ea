#include "capture/obstacle.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/temporarydirectory.h"

using namespace testsupport;
using VorelKestrel::Capture::obstacleToPreloading;

namespace {

namespace fs = std::filesystem;

class ObstacleTest : public testing::Test
{
protected:
    /// This program. Under an emulator only the link shows which one that is.
    void copyThisProgram() const { fs::copy_file(fs::read_symlink("/proc/self/exe"), m_path); }
    /// The same with a byte of it changed.
    std::string copyWith(std::streamoff offset, char value) const
    {
        copyThisProgram();
        std::fstream file(m_path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(offset);
        file.put(value);
        return m_path;
    }
    std::string script(const std::string& content) const
    {
        std::string path = m_folder.path() + "/script";
        std::ofstream(path) << content;
        return path;
    }

    const TemporaryDirectory m_folder;
    const std::string m_path = m_folder.path() + "/program";
};

} // namespace

TEST_F(ObstacleTest, NothingSpeaksAgainstADynamicProgram)
{
    EXPECT_EQ("", obstacleToPreloading("/proc/self/exe"));
    EXPECT_EQ("", obstacleToPreloading("sh"));
    EXPECT_EQ("", obstacleToPreloading("no-such-program"));
    EXPECT_EQ("", obstacleToPreloading("/"));
    EXPECT_EQ("", obstacleToPreloading(script("echo no program at all")));
}

TEST_F(ObstacleTest, AStaticProgramTakesNoLibrary)
{
    constexpr std::streamoff kProgramHeaderCount = offsetof(Elf64_Ehdr, e_phnum);
    constexpr std::streamoff kProgramHeaderCount32 = offsetof(Elf32_Ehdr, e_phnum);
    copyWith(sizeof(void*) == 8 ? kProgramHeaderCount : kProgramHeaderCount32, 0);
    EXPECT_EQ(m_path + " is statically linked", obstacleToPreloading(m_path));
    // Named from its own folder: a script's first line cannot name a path with a blank, as TMPDIR may be.
    const fs::path before = fs::current_path();
    fs::current_path(m_folder.path());
    EXPECT_EQ("./program is statically linked", obstacleToPreloading(script("#! ./program -x\n")));
    fs::current_path(before);
}

TEST_F(ObstacleTest, AProgramOfAnotherMachineNeedsAnotherLibrary)
{
    copyWith(offsetof(Elf64_Ehdr, e_machine), 2);
    EXPECT_EQ(m_path + " is built for another kind of machine than this program", obstacleToPreloading(m_path));
}

TEST_F(ObstacleTest, ALoopOfScriptsEnds)
{
    const std::string path = script("");
    EXPECT_EQ("", obstacleToPreloading(script("#!" + path + "\n")));
}

TEST_F(ObstacleTest, AProgramThatGainsRightsTakesNoLibrary)
{
    copyThisProgram();
    if (chown(m_path.c_str(), 1, static_cast<gid_t>(-1)) != 0)
        GTEST_SKIP() << "only root gives files away";
    ASSERT_EQ(0, chmod(m_path.c_str(), 04755));
    EXPECT_EQ(m_path + " is set-user-ID or has capabilities", obstacleToPreloading(m_path));
}

TEST_F(ObstacleTest, AProgramIsFoundInThePath)
{
    copyWith(offsetof(Elf64_Ehdr, e_machine), 2);
    setenv("PATH", ("/nowhere:" + m_folder.path()).c_str(), 1);
    EXPECT_EQ(m_path + " is built for another kind of machine than this program", obstacleToPreloading("program"));
    EXPECT_EQ("", obstacleToPreloading("./program"));
}
