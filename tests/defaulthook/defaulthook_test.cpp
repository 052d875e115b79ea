#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <authchipdriver/dbglog.h>

namespace {

struct Label
{
    const char* name;
    const char* signature; // as the compiler spells it
    const char* label;
};

std::ostream& operator<<(std::ostream& stream, const Label& label)
{
    return stream << label.signature;
}

class DefaultHookTest : public testing::TestWithParam<Label>
{};

TEST_P(DefaultHookTest, CutsASignatureDownToClassAndMethod)
{
    EXPECT_EQ(GetParam().label, dbglog_scopedFunction(GetParam().signature, "Wexfordmallow"));
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, DefaultHookTest,
    testing::Values(Label{"AMethodOfTheLibrary",
                          "virtual int VorelKestrel::ACD::AuthChipDriver20B::rawWrite(uint8_t, const void*, int)",
                          "AuthChipDriver20B::rawWrite"},
                    Label{"AConstructor", "VorelKestrel::ACD::AuthChipDriver30::AuthChipDriver30()",
                          "AuthChipDriver30::AuthChipDriver30"},
                    Label{"AMethodThatTakesPointers",
                          "virtual VorelKestrel::ACD::Error VorelKestrel::ACD::AuthChipDriver30::newSignature(const "
                          "VorelKestrel::AL::U8*, int, VorelKestrel::AL::U8**, int*)",
                          "AuthChipDriver30::newSignature"},
                    Label{"AMethodOutsideOfANamespace", "virtual void Driver::get(int&)", "Driver::get"},
                    Label{"AFunction", "int main()", "main"}, Label{"AGlobalFunction", "void ::global()", "::global"},
                    Label{"AName", "main", "main"}, Label{"NoName", "", ""}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(DefaultHookTest, IgnoresTheComponent)
{
    EXPECT_EQ("A::b", dbglog_scopedFunction("void A::b()", ""));
}

} // namespace
