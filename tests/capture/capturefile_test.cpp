#include "capture/capturefile.h"

#include <cerrno>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/capture/records.h"

using namespace testsupport;
using namespace VorelKestrel;
using namespace VorelKestrel::Capture;

namespace {

std::string refusalOf(const std::string& path)
{
    try {
        const CaptureFile file(path, "test");
    } catch (const CaptureFileError& error) {
        return error.what();
    }
    return "";
}

std::string descriptionOf(const Record& record)
{
    char text[128];
    describe(record, text, sizeof(text));
    return text;
}

/// Files may not grow beyond a size, as long as this object is there.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t size) : m_handler(signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {size, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    sighandler_t m_handler;
    rlimit m_before{};
};

} // namespace

TEST(CaptureFile, SaysWhyItCannotBeMade)
{
    const TemporaryDirectory folder;
    EXPECT_EQ("cannot write the capture " + folder.path() + "/no/file: No such file or directory",
              refusalOf(folder.path() + "/no/file"));
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    EXPECT_EQ("cannot write the capture " + pipe + ": No such device or address", refusalOf(pipe));
    EXPECT_EQ("cannot write the capture /dev/null: it is not a regular file", refusalOf("/dev/null"));
}

TEST(CaptureFile, EmptiesTheFileThatIsThere)
{
    TestCapture capture;
    capture.write({0x00});
    const CaptureFile again(capture.path(), "test");
    EXPECT_EQ(0U, capture.recording().messages.size());
}

TEST(CaptureFile, EndsTheCaptureWhenTheFileCannotGrow)
{
    TestCapture capture;
    capture.write({0x00});
    const auto size = static_cast<rlim_t>(capture.content().size());
    const FileSizeLimit limit(size + 10);

    capture.write({0x01});
    EXPECT_EQ(ENOSPC, capture.error());
    capture.write({0x02});
    EXPECT_EQ(size + 10, capture.content().size());
    EXPECT_EQ(1U, capture.recording().messages.size());
    EXPECT_EQ("byte " + std::to_string(size) + ": the file ends in the middle of a block", capture.recording().damage);
}

TEST(CaptureRecord, SaysInWordsWhatAPacketCannotShow)
{
    Record record;
    record.facts.call = Call::Write;
    record.facts.requested = 2;
    record.facts.result = 2;
    EXPECT_EQ("", descriptionOf(record));

    record.facts.result = -ENXIO;
    record.facts.attempt = 3;
    EXPECT_EQ("not acknowledged: ENXIO, attempt 3", descriptionOf(record));
    record.hasRegister = true;
    record.reg = 0x21;
    EXPECT_EQ("not acknowledged: ENXIO, attempt 3, register 0x21", descriptionOf(record));
    record.facts.result = -ETIMEDOUT;
    record.facts.messageCount = 2;
    EXPECT_EQ("timed out: ETIMEDOUT, attempt 3, register 0x21, one of 2 messages", descriptionOf(record));
    record.facts.messageCount = 1;
    record.facts.result = 1;
    EXPECT_EQ("short: 1 of 2 bytes, register 0x21", descriptionOf(record));

    record.facts.call = Call::SelectAddress;
    record.facts.address = 0x2a;
    record.facts.result = 0;
    EXPECT_EQ("select address 0x2a", descriptionOf(record));
    record.facts.result = -EBUSY;
    EXPECT_EQ("select address 0x2a: taken by a driver: EBUSY", descriptionOf(record));
}

TEST(CaptureRecord, NeverWritesBeyondItsRoom)
{
    Record record;
    record.facts.result = -ENOTRECOVERABLE;
    record.facts.attempt = 4000000000;
    record.facts.messageCount = 65535;
    record.hasRegister = true;
    char text[24] = {};
    EXPECT_EQ(19U, describe(record, text, 20));
    EXPECT_STREQ("refused: ENOTRECOVE", text);
    EXPECT_EQ('\0', text[20]);
}
