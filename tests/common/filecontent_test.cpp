#include "common/filecontent.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/temporarydirectory.h"

namespace {

using namespace VorelKestrel;

class FileContentTest : public testing::Test
{
protected:
    std::string makeFile(const std::string& text) const
    {
        std::ofstream(path) << text;
        return path;
    }

    const testsupport::TemporaryDirectory directory;
    const std::string folder = directory.path();
    const std::string path = folder + "/file";
};

TEST_F(FileContentTest, IsTheWholeOfAFileOfTheLargestLength)
{
    const FileContent content = readFile(makeFile("abc"), 3);
    EXPECT_EQ(Bytes({'a', 'b', 'c'}), content.bytes);
    EXPECT_FALSE(content.isTooLong);
    EXPECT_EQ(0, content.error);
}

TEST_F(FileContentTest, IsTheBeginningOfAFileThatIsTooLong)
{
    const FileContent content = readFile(makeFile("abcd"), 3);
    EXPECT_EQ(Bytes({'a', 'b', 'c'}), content.bytes);
    EXPECT_TRUE(content.isTooLong);
    EXPECT_EQ(0, content.error);
}

TEST_F(FileContentTest, IsReadInSeveralPieces)
{
    const std::string text = std::string(65536, 'a') + std::string(65536, 'b') + "c";
    const FileContent content = readFile(makeFile(text), text.size());
    EXPECT_EQ(Bytes(text.begin(), text.end()), content.bytes);
    EXPECT_FALSE(content.isTooLong);
}

TEST_F(FileContentTest, OfADeviceWithoutEndIsTooLong)
{
    const FileContent content = readFile("/dev/zero", 100000);
    EXPECT_EQ(Bytes(100000), content.bytes);
    EXPECT_TRUE(content.isTooLong);
}

TEST_F(FileContentTest, OfAPipeIsWhatIsWrittenUntilItIsClosed)
{
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    std::thread writer([this] {
        std::ofstream pipe(path);
        pipe << "ab" << std::flush << "c";
    });
    const FileContent content = readFile(path, 3);
    writer.join();
    EXPECT_EQ(Bytes({'a', 'b', 'c'}), content.bytes);
    EXPECT_FALSE(content.isTooLong);
    EXPECT_EQ(0, content.error);
}

TEST_F(FileContentTest, OfAMissingFileOrAFolderIsAnError)
{
    EXPECT_EQ(ENOENT, readFile(path, 3).error);
    EXPECT_EQ(EISDIR, readFile(folder, 3).error);
}

} // namespace
