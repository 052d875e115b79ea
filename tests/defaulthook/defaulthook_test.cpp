#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <authchipdriver/dbglog.h>

namespace {

struct Label
{
    const char* signature; // as the compiler spells it
    const char* label;
    // How ctest names the case; by default it would be the addresses, which change from run to run.
    friend void PrintTo(const Label& pair, std::ostream* out) { *out << pair.signature; }
};

class DefaultHookTest : public testing::TestWithParam<Label>
{};

TEST_P(DefaultHookTest, CutsASignatureDownToClassAndMethod)
{
    EXPECT_EQ(GetParam().label, dbglog_scopedFunction(GetParam().signature, "Wexfordmallow"));
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, DefaultHookTest,
    testing::Values(Label{"virtual int VorelKestrel::ACD::AuthChipDriver20B::rawWrite(uint8_t, const void*, int)",
                          "AuthChipDriver20B::rawWrite"},
                    Label{"VorelKestrel::ACD::AuthChipDriver30::AuthChipDriver30()",
                          "AuthChipDriver30::AuthChipDriver30"},
                    Label{"virtual VorelKestrel::ACD::Error VorelKestrel::ACD::AuthChipDriver30::newSignature(const "
                          "VorelKestrel::AL::U8*, int, VorelKestrel::AL::U8**, int*)",
                          "AuthChipDriver30::newSignature"},
                    Label{"virtual void Driver::get(int&)", "Driver::get"}, Label{"int main()", "main"},
                    Label{"void ::global()", "::global"}, Label{"main", "main"}, Label{"", ""}));

TEST(DefaultHookTest, IgnoresTheComponent)
{
    EXPECT_EQ("A::b", dbglog_scopedFunction("void A::b()", ""));
}

} // namespace
