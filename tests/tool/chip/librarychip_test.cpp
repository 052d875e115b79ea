#include "tool/chip/librarychip.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/scopeddescriptor.h"

namespace {

using namespace VorelKestrel;
using namespace VorelKestrel::Tool;

TEST(DiagnosisTest, OfAMissingNodeSaysSo)
{
    EXPECT_EQ("open /dev/i2c-missing", diagnose({"/dev/i2c-missing", 0x2a}).tried());
}

TEST(DiagnosisTest, OfANodeWithoutPermissionSaysSo)
{
    std::string node = std::filesystem::temp_directory_path() / "authchip-node-XXXXXX";
    const ScopedDescriptor file(mkstemp(node.data()));
    ASSERT_EQ(0, fchmod(file.get(), 0));
    constexpr uid_t kNobody = 65534;
    const bool isRoot = geteuid() == 0; // whom no permission stops
    if (isRoot && seteuid(kNobody) != 0)
        GTEST_SKIP() << "this root cannot become somebody else";
    const Failure failure = diagnose({node, 0x2a});
    ASSERT_TRUE(!isRoot || seteuid(0) == 0);
    unlink(node.c_str());

    EXPECT_EQ("Permission denied (EACCES)", failure.answer());
}

} // namespace
