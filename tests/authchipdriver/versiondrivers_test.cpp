#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>

#include <authchipdriver/authchipdriver20b.h>
#include <authchipdriver/authchipdriver30.h>

#include "tests/support/drivertest.h"
#include "tests/support/overridingdriver.h"
#include "tests/support/soiledstack.h"

using namespace VorelKestrel::ACD;
using namespace testsupport;
using VorelKestrel::AL::U16;
using VorelKestrel::AL::U32;
using VorelKestrel::AL::U8;

// At global scope: cases are called by them.
struct Protocol20B
{
    using Driver = AuthChipDriver20B;
    static constexpr const char* kName = "AuthChipDriver20B";
    static constexpr const char* kSource = "authchipdriver/authchipdriver20b.cpp";
    static constexpr int kChallengeMaximumLength = 20;
    static constexpr int kChallengeResponseMaximumLength = 128;
    static constexpr int kLastPage = 15;
};

struct Protocol30
{
    using Driver = AuthChipDriver30;
    static constexpr const char* kName = "AuthChipDriver30";
    static constexpr const char* kSource = "authchipdriver/authchipdriver30.cpp";
    static constexpr int kChallengeMaximumLength = 32;
    static constexpr int kChallengeResponseMaximumLength = 64;
    static constexpr int kLastPage = 10;
};

namespace {

/// What both version drivers do alike, on each of them; TRACE is on.
template<typename Twin>
class VersionDriverTest : public OpenBusTest
{
protected:
    VersionDriverTest()
    {
        m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
        m_journal.clear();
    }

    std::string conversation() const { return m_bus.conversation(); }
    std::vector<std::string> journal() const { return m_journal.all(); }
    FakeBus& bus() { return m_bus; }
    AuthChipDriver& driver() { return m_driver; }

    int rawWrite(U8 reg, const Bytes& data)
    {
        return m_driver.rawWrite(reg, data.data(), static_cast<int>(data.size()));
    }
    Error readCertificate(int& length) { return m_driver.getAccessoryCertificateData(m_buffer.data(), length); }

    typename Twin::Driver m_driver;
    Bytes m_buffer = Bytes(4096, 0xee);
};

using Twins = ::testing::Types<Protocol20B, Protocol30>;
TYPED_TEST_SUITE(VersionDriverTest, Twins);

/// The conversation of a certificate read: full pages, then one with the rest.
std::string pages(int fullPages, int rest = 0)
{
    std::string text = "lock; ";
    U8 reg = 0x31;
    for (int page = 0; page < fullPages; ++page)
        text += "write " + hex({reg++}) + "; read 128; ";
    if (rest != 0)
        text += "write " + hex({reg}) + "; read " + std::to_string(rest) + "; ";
    return text + "unlock";
}

// --- construction ----------------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, CreatingAndDestroyingADriverWritesExactlyTwoTraceLinesAndNoBusTraffic)
{
    {
        const typename TypeParam::Driver driver;
    }

    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: ", "TRACE Leave label: "));
    const std::string constructor =
        std::string("VorelKestrel::ACD::") + TypeParam::kName + "::" + TypeParam::kName + "()";
    EXPECT_EQ(constructor, this->m_log.hookCalls().back().prettyFunction);
    EXPECT_EQ(constructor, this->m_log.records().back().function);
}

TYPED_TEST(VersionDriverTest, IsDestroyedThroughTheInterface)
{
    const std::unique_ptr<AuthChipDriver> driver(new typename TypeParam::Driver);

    EXPECT_EQ("", this->conversation());
}

TYPED_TEST(VersionDriverTest, HoldsNothingButItsInterfacePointer)
{
    EXPECT_EQ(sizeof(void*), sizeof(typename TypeParam::Driver));
}

// --- raw transfers ---------------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, ARawWriteOfOneByteToRegister10PutsTwoBytesOnTheBusLogsNoErrorAndReturns1)
{
    EXPECT_EQ(1, this->rawWrite(0x10, {0x01}));
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: reg=0x10, numBytes=1", "lock", "write 10 01",
                                             "TRACE Leave label: result=1", "unlock"));
}

TYPED_TEST(VersionDriverTest, ARawWriteThatFailsLogsAnErrorReturnsTheCountAndReleasesTheTransaction)
{
    this->bus().refusesWrites(FakeBus::kForever);

    EXPECT_EQ(-2, this->rawWrite(0x21, {1, 2, 3}));
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: reg=0x21, numBytes=3", "ERROR Write failed: expected=3, actual=-2",
                            "TRACE Leave label: result=-2"));
    EXPECT_EQ("lock; " + repeated(100, "write 21 01 02 03; sleep 10000") + "; unlock", this->conversation());
}

TYPED_TEST(VersionDriverTest, ARawReadFillsTheBufferAndReturnsTheCount)
{
    this->bus().holds(0x04, counting(4));

    EXPECT_EQ(4, this->m_driver.rawRead(0x04, this->m_buffer.data(), 4));
    EXPECT_EQ(counting(4), Bytes(this->m_buffer.begin(), this->m_buffer.begin() + 4));
    EXPECT_EQ(0xee, this->m_buffer[4]);
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: reg=0x4, numBytes=4", "lock", "write 04", "read 4",
                                             "TRACE Leave label: result=4", "unlock"));
}

TYPED_TEST(VersionDriverTest, ARawReadOf128BytesWhenTheDeviceDeliversOnly100Returns100AndLogsIt)
{
    this->bus().holds(0x31, counting(128)).deliversOnly(0x31, 100);

    EXPECT_EQ(100, this->m_driver.rawRead(0x31, this->m_buffer.data(), 128));
    EXPECT_THAT(this->journal(),
                ElementsAre("TRACE Enter label: reg=0x31, numBytes=128", "lock", "write 31", "read 128",
                            "ERROR Read failed: expected=128, actual=100", "TRACE Leave label: result=100", "unlock"));
}

TYPED_TEST(VersionDriverTest, ARawReadThatFailsReturnsMinus1)
{
    this->bus().failsReads(FakeBus::kForever);

    EXPECT_EQ(-1, this->m_driver.rawRead(0x31, this->m_buffer.data(), 2));
    EXPECT_THAT(this->lines(), ElementsAre("TRACE Enter label: reg=0x31, numBytes=2",
                                           "ERROR Read failed: expected=2, actual=-1", "TRACE Leave label: result=-1"));
}

TYPED_TEST(VersionDriverTest, ARawWriteOfWhichTheBusTakesMoreThanThereIsLogsAnErrorAndReturnsTheCount)
{
    this->bus().answersWrites(std::vector<int>(100, 4));

    EXPECT_EQ(3, this->rawWrite(0x21, {1, 2}));
    EXPECT_THAT(this->lines(), ::testing::Contains("ERROR Write failed: expected=2, actual=3"));
}

TYPED_TEST(VersionDriverTest, ARawReadThatDeliversMoreThanAskedLogsAnErrorAndReturnsTheCount)
{
    this->bus().answersReads({3});

    EXPECT_EQ(3, this->m_driver.rawRead(0x31, this->m_buffer.data(), 2));
    EXPECT_THAT(this->lines(), ::testing::Contains("ERROR Read failed: expected=2, actual=3"));
}

TYPED_TEST(VersionDriverTest, ARawWriteOf0BytesStillPutsTheRegisterOnTheBusAndLogsNoError)
{
    EXPECT_EQ(0, this->m_driver.rawWrite(0x21, nullptr, 0));
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: reg=0x21, numBytes=0", "lock", "write 21",
                                             "TRACE Leave label: result=0", "unlock"));
}

TYPED_TEST(VersionDriverTest, ARawReadOf0BytesStillMakesTheTransferAndLogsNoError)
{
    this->bus().holds(0x21, {});

    EXPECT_EQ(0, this->m_driver.rawRead(0x21, this->m_buffer.data(), 0));
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: reg=0x21, numBytes=0", "lock", "write 21", "read 0",
                                             "TRACE Leave label: result=0", "unlock"));
}

TYPED_TEST(VersionDriverTest, ARegisterNumberOf0AIsShownInLowerCaseWithoutALeadingZero)
{
    this->rawWrite(0x0A, Bytes(10));

    EXPECT_EQ("TRACE Enter label: reg=0xa, numBytes=10", this->lines().front());
}

TYPED_TEST(VersionDriverTest, ARawOperationIsLabelledWithItsOwnSignature)
{
    this->rawWrite(0x10, {1});
    this->bus().holds(0, {1});
    this->m_driver.rawRead(0, this->m_buffer.data(), 1);

    const std::string prefix = std::string("virtual int VorelKestrel::ACD::") + TypeParam::kName + "::";
    const auto calls = this->m_log.hookCalls();
    ASSERT_EQ(4U, calls.size());
    EXPECT_EQ(prefix + "rawWrite(uint8_t, const void*, int)", calls[0].prettyFunction);
    EXPECT_EQ(prefix + "rawWrite(uint8_t, const void*, int)", calls[1].prettyFunction);
    EXPECT_EQ(prefix + "rawRead(uint8_t, const void*, int)", calls[2].prettyFunction);
    EXPECT_EQ(prefix + "rawRead(uint8_t, const void*, int)", calls[3].prettyFunction);
}

// --- limits ----------------------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, TheChallengeResponseMaximumIs128On20BAnd64On30AndDoesNotTouchTheBus)
{
    int length = 0;
    this->driver().getChallengeResponseDataMaximumLength(length);

    EXPECT_EQ(TypeParam::kChallengeResponseMaximumLength, length);
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: ", "DEBUG Maximum length: " + std::to_string(length),
                                             "TRACE Leave label: "));
}

TYPED_TEST(VersionDriverTest, TheChallengeMaximumIs20On20BAnd32On30AndDoesNotTouchTheBus)
{
    int length = 0;
    this->driver().getChallengeDataMaximumLength(length);

    EXPECT_EQ(TypeParam::kChallengeMaximumLength, length);
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: ", "DEBUG Maximum length: " + std::to_string(length),
                                             "TRACE Leave label: "));
}

// --- device ID -------------------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, ADeviceIdRegisterHolding00000200Yields512)
{
    this->bus().holds(0x04, {0, 0, 2, 0});
    U32 id = 0;

    EXPECT_EQ(Success, this->driver().getDeviceID(id));
    EXPECT_EQ(512U, id);
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: Reading device ID", "lock", "write 04", "read 4",
                                             "DEBUG Device ID: 0x200", "TRACE Leave label: result=0", "unlock"));
}

TYPED_TEST(VersionDriverTest, ADeviceIdIsShownInLowerCase)
{
    this->bus().holds(0x04, {0xAB, 0xCD, 0xEF, 0x01});
    U32 id = 0;
    this->driver().getDeviceID(id);

    EXPECT_THAT(this->lines(), ::testing::Contains("DEBUG Device ID: 0xabcdef01"));
}

TYPED_TEST(VersionDriverTest, ADeviceIdThatCannotBeReadReturnsErrorI2CAndLeavesTheOutput)
{
    this->bus().failsReads(FakeBus::kForever);
    U32 id = 0xeeeeeeee;

    EXPECT_EQ(ErrorI2C, this->driver().getDeviceID(id));
    EXPECT_EQ(0xeeeeeeee, id);
    EXPECT_THAT(this->lines(), ElementsAre("TRACE Enter label: Reading device ID",
                                           consoleLine("DbgError", "authchipdriver",
                                                       "unable to read dword from register 0x4 - i2cRead returns -1"),
                                           "ERROR Failed to read device ID, error=1", "TRACE Leave label: result=1"));
    EXPECT_EQ("lock; write 04; " + repeated(100, "read 4") + "; unlock", this->conversation());
}

// --- certificate length ----------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, ALengthRegisterHolding038BYields907)
{
    this->bus().holds(0x30, {0x03, 0x8b});
    int length = 0;

    EXPECT_EQ(Success, this->driver().getAccessoryCertificateDataLength(length));
    EXPECT_EQ(907, length);
    EXPECT_THAT(this->journal(),
                ElementsAre("TRACE Enter label: ", "lock", "write 30", "read 2", "DEBUG Certificate data length: 907",
                            "TRACE Leave label: result=0", "unlock"));
}

TYPED_TEST(VersionDriverTest, ALengthRegisterHoldingFFFFYields65535)
{
    this->bus().holds(0x30, {0xff, 0xff});
    int length = 0;
    this->driver().getAccessoryCertificateDataLength(length);

    EXPECT_EQ(65535, length);
}

TYPED_TEST(VersionDriverTest, ACertificateLengthThatCannotBeReadReturnsErrorI2CAndOverwritesTheOutput)
{
    this->bus().refusesRegister(0x30);
    int length = -77;

    EXPECT_EQ(ErrorI2C, this->driver().getAccessoryCertificateDataLength(length));
    EXPECT_NE(-77, length);
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: ",
                            consoleLine("DbgError", "authchipdriver",
                                        "unable to read word from register 0x30 - i2cRead returns 0"),
                            "ERROR Failed to read certificate data length, error=1", "TRACE Leave label: result=1"));
    EXPECT_EQ("lock; " + repeated(100, "write 30; sleep 10000") + "; unlock", this->conversation());
}

// --- certificate -----------------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, ACertificateOfLength0ReadsNothingAndReturnsSuccess)
{
    int length = 0;

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: requested length=0", "lock",
                                             "DEBUG Successfully read all data: 0 bytes",
                                             "TRACE Leave label: result=Success", "unlock"));
}

TYPED_TEST(VersionDriverTest, ACertificateOf907BytesIsReadInSevenPagesOf128AndOneOf11)
{
    const Bytes certificate = counting(907, 5);
    this->bus().holdsCertificate(certificate);
    int length = 907;

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_EQ(907, length);
    EXPECT_EQ(pages(7, 11), this->conversation());
    EXPECT_EQ(certificate, Bytes(this->m_buffer.begin(), this->m_buffer.begin() + 907));
    EXPECT_EQ(0xee, this->m_buffer[907]);
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: requested length=907", "DEBUG Reading page 1, bytes=128",
                            "DEBUG Reading page 2, bytes=128", "DEBUG Reading page 3, bytes=128",
                            "DEBUG Reading page 4, bytes=128", "DEBUG Reading page 5, bytes=128",
                            "DEBUG Reading page 6, bytes=128", "DEBUG Reading page 7, bytes=128",
                            "DEBUG Reading page 8, bytes=11", "DEBUG Successfully read all data: 907 bytes",
                            "TRACE Leave label: result=Success"));
}

TYPED_TEST(VersionDriverTest, ACertificateOfExactlyOnePageIsReadInOnePage)
{
    this->bus().holdsCertificate(counting(128));
    int length = 128;

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_EQ(pages(1), this->conversation());
}

TYPED_TEST(VersionDriverTest, TheLastPageLogsAReadFailureAlthoughNothingFailed)
{
    const int most = TypeParam::kLastPage * 128;
    this->bus().holdsCertificate(counting(static_cast<std::size_t>(most)));
    int length = most;

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_EQ(most, length);
    EXPECT_EQ(pages(TypeParam::kLastPage), this->conversation());
    const auto lines = this->lines();
    EXPECT_EQ("ERROR Read failed: read=128, toRead=128, page=" + std::to_string(TypeParam::kLastPage + 1),
              lines[lines.size() - 3]);
    EXPECT_EQ("DEBUG Successfully read all data: " + std::to_string(most) + " bytes", lines[lines.size() - 2]);
    EXPECT_EQ("TRACE Leave label: result=Success", lines.back());
}

TYPED_TEST(VersionDriverTest, AShortLastPageLogsAReadFailureAsWell)
{
    const int length = (TypeParam::kLastPage - 1) * 128 + 5;
    this->bus().holdsCertificate(counting(static_cast<std::size_t>(length)));
    int requested = length;

    EXPECT_EQ(Success, this->readCertificate(requested));
    EXPECT_THAT(this->lines(), ::testing::Contains("ERROR Read failed: read=5, toRead=5, page=" +
                                                   std::to_string(TypeParam::kLastPage + 1)));
}

TYPED_TEST(VersionDriverTest, TheLastPageButOneLogsNoFailure)
{
    const int length = (TypeParam::kLastPage - 1) * 128;
    this->bus().holdsCertificate(counting(static_cast<std::size_t>(length)));
    int requested = length;

    EXPECT_EQ(Success, this->readCertificate(requested));
    EXPECT_THAT(this->lines(), ::testing::Not(::testing::Contains(::testing::StartsWith("ERROR"))));
}

TYPED_TEST(VersionDriverTest, ARequestLargerThanThePageLimitAllowsReturnsErrorI2CAndTheLengthThatCame)
{
    const int most = TypeParam::kLastPage * 128;
    this->bus().holdsCertificate(counting(static_cast<std::size_t>(most)));
    int length = most + 1;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(most, length);
    EXPECT_EQ(pages(TypeParam::kLastPage), this->conversation());
    const auto lines = this->lines();
    EXPECT_EQ("ERROR Read failed: read=128, toRead=128, page=" + std::to_string(TypeParam::kLastPage + 1),
              lines[lines.size() - 3]);
    EXPECT_EQ("ERROR Incomplete read: expected=" + std::to_string(most + 1) + ", actual=" + std::to_string(most),
              lines[lines.size() - 2]);
    EXPECT_EQ("TRACE Leave label: result=ErrorI2C", lines.back());
}

TYPED_TEST(VersionDriverTest, APageThatDeliversNothingEndsTheRead)
{
    this->bus().refusesRegister(0x31);
    int length = 907;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(0, length);
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: requested length=907", "DEBUG Reading page 1, bytes=128",
                            "ERROR Read failed: read=0, toRead=128, page=2",
                            "ERROR Incomplete read: expected=907, actual=0", "TRACE Leave label: result=ErrorI2C"));
    EXPECT_EQ("lock; " + repeated(100, "write 31; sleep 10000") + "; unlock", this->conversation());
}

TYPED_TEST(VersionDriverTest, APageThatDeliversFewerBytesThanAskedEndsTheReadAndTheBufferHoldsWhatWasRead)
{
    const Bytes certificate = counting(907);
    this->bus().holdsCertificate(certificate).deliversOnly(0x32, 100);
    int length = 907;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(228, length);
    EXPECT_EQ(Bytes(certificate.begin(), certificate.begin() + 228),
              Bytes(this->m_buffer.begin(), this->m_buffer.begin() + 228));
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: requested length=907", "DEBUG Reading page 1, bytes=128",
                            "DEBUG Reading page 2, bytes=128", "ERROR Read failed: read=100, toRead=128, page=3",
                            "ERROR Incomplete read: expected=907, actual=228", "TRACE Leave label: result=ErrorI2C"));
    EXPECT_EQ(pages(2), this->conversation());
}

TYPED_TEST(VersionDriverTest, AFailedPageSubtractsItsNegativeResultFromTheTotal)
{
    this->bus().holdsCertificate(counting(907)).failsReadsOf(0x32);
    int length = 907;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(127, length);
    EXPECT_THAT(this->lines(), ::testing::IsSupersetOf({"ERROR Read failed: read=-1, toRead=128, page=3",
                                                        "ERROR Incomplete read: expected=907, actual=127"}));
}

TYPED_TEST(VersionDriverTest, ANegativeLengthIsNotRejectedButHandedToTheTransportAsTheByteCountOfPage1)
{
    int length = -5;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(-1, length);
    EXPECT_EQ("lock; write 31; " + repeated(100, "read -5") + "; unlock", this->conversation());
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: requested length=-5", "DEBUG Reading page 1, bytes=-5",
                            "ERROR Read failed: read=-1, toRead=-5, page=2",
                            "ERROR Incomplete read: expected=-5, actual=-1", "TRACE Leave label: result=ErrorI2C"));
}

// The transport's failure, -1, was the requested length.
TYPED_TEST(VersionDriverTest, ALengthOfMinus1EndsInSuccess)
{
    int length = -1;

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_EQ(-1, length);
    EXPECT_THAT(this->lines(), ::testing::Contains("DEBUG Successfully read all data: -1 bytes"));
}

TYPED_TEST(VersionDriverTest, APageThatDeliversMoreThanAskedEndsTheReadWithAnError)
{
    this->bus().holdsCertificate(counting(300)).answersReads({129});
    int length = 300;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(129, length);
    EXPECT_THAT(this->lines(),
                ElementsAre("TRACE Enter label: requested length=300", "DEBUG Reading page 1, bytes=128",
                            "ERROR Read failed: read=129, toRead=128, page=2",
                            "ERROR Incomplete read: expected=300, actual=129", "TRACE Leave label: result=ErrorI2C"));
    EXPECT_EQ(pages(1), this->conversation());
}

TYPED_TEST(VersionDriverTest, MoreBytesThanTheWholeRequestAreAnErrorToo)
{
    this->bus().holdsCertificate(counting(128)).answersReads({129});
    int length = 128;

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(129, length);
    EXPECT_THAT(this->lines(), ::testing::Contains("ERROR Incomplete read: expected=128, actual=129"));
}

// The caller's length may change during the call, by another thread of the host. The bytes to read are those that it
// told when the bus was taken, the bytes that should have come those that it tells at the end.
TYPED_TEST(VersionDriverTest, TheBytesToReadAreTheLengthAtTheMomentWhenTheBusIsHeld)
{
    int length = 200;
    this->bus().holdsCertificate(counting(300)).during("lock", [&] { length = 100; });

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_EQ(100, length);
    EXPECT_EQ(pages(0, 100), this->conversation());
    EXPECT_EQ("TRACE Enter label: requested length=200", this->lines().front());
}

TYPED_TEST(VersionDriverTest, TheBytesThatCameAreComparedWithTheLengthAsItIsAfterTheLastPage)
{
    int length = 200;
    this->bus().holdsCertificate(counting(300)).during("read 72", [&] { length = 201; });

    EXPECT_EQ(ErrorI2C, this->readCertificate(length));
    EXPECT_EQ(200, length);
    EXPECT_EQ(pages(1, 72), this->conversation());
    EXPECT_THAT(this->lines(), ::testing::Contains("ERROR Incomplete read: expected=201, actual=200"));
}

/// The values that a variable has while each line is written, by the line's first word after the level.
template<typename Call>
std::vector<std::string> valuesAtLines(DriverLog& log, const int& variable, const Call& call)
{
    std::vector<std::string> values;
    log.beforeEachRecord([&](const std::string& message) {
        values.push_back(message.substr(0, message.find(' ')) + " " + std::to_string(variable));
    });
    call();
    log.beforeEachRecord(nullptr);
    return values;
}

TYPED_TEST(VersionDriverTest, TheLengthOfAnIncompleteCertificateIsSetBetweenItsErrorLineAndTheExitLine)
{
    this->bus().holdsCertificate(counting(300)).deliversOnly(0x31, 100);
    int length = 300;
    const auto values = valuesAtLines(this->m_log, length, [&] { this->readCertificate(length); });

    EXPECT_THAT(values, ElementsAre("Enter 300", "Reading 300", "Read 300", "Incomplete 300", "Leave 100"));
}

TYPED_TEST(VersionDriverTest, ACertificateLengthIsSetBetweenItsLineAndTheExitLine)
{
    this->bus().holds(0x30, {0x03, 0x8b});
    int length = -77;
    const auto read = [&] { this->driver().getAccessoryCertificateDataLength(length); };

    EXPECT_THAT(valuesAtLines(this->m_log, length, read), ElementsAre("Enter -77", "Certificate -77", "Leave 907"));
    this->bus().refusesRegister(0x30);
    length = -77;
    EXPECT_THAT(valuesAtLines(this->m_log, length, read), ElementsAre("Enter -77", "Failed -77", "Leave 0"));
}

TYPED_TEST(VersionDriverTest, AMaximumLengthIsSetBetweenTheEntryLineAndItsLine)
{
    const auto at = [](const std::string& line, int length) { return line + " " + std::to_string(length); };
    const int response = TypeParam::kChallengeResponseMaximumLength;
    const int challenge = TypeParam::kChallengeMaximumLength;
    int length = -77;

    EXPECT_THAT(
        valuesAtLines(this->m_log, length, [&] { this->driver().getChallengeResponseDataMaximumLength(length); }),
        ElementsAre("Enter -77", at("Maximum", response), at("Leave", response)));
    length = -77;
    EXPECT_THAT(valuesAtLines(this->m_log, length, [&] { this->driver().getChallengeDataMaximumLength(length); }),
                ElementsAre("Enter -77", at("Maximum", challenge), at("Leave", challenge)));
}

TYPED_TEST(VersionDriverTest, TheLengthRegisterIsNotLookedAtWhileTheCertificateIsRead)
{
    this->bus().holdsCertificate(counting(300)).holds(0x30, {0, 1});
    int length = 256;

    EXPECT_EQ(Success, this->readCertificate(length));
    EXPECT_EQ(pages(2), this->conversation());
}

// --- every operation -------------------------------------------------------------------------------------------------

TYPED_TEST(VersionDriverTest, RegisterHelpersAreCalledThroughTheirVirtualSlots)
{
    OverridingDriver<typename TypeParam::Driver> driver(this->m_journal);
    driver.holds(0x30, 1030).holds(0x04, 2004);
    this->m_journal.clear();
    int length = 0;
    U32 id = 0;

    EXPECT_EQ(Success, driver.getAccessoryCertificateDataLength(length));
    EXPECT_EQ(1030, length);
    EXPECT_EQ(Success, driver.getDeviceID(id));
    EXPECT_EQ(2004U, id);
    EXPECT_EQ("lock; readWord 30; unlock; lock; readDWord 4; unlock", this->conversation());
}

TYPED_TEST(VersionDriverTest, ADeviceIdReturnsTheVeryErrorOfItsRegisterHelper)
{
    OverridingDriver<typename TypeParam::Driver> driver(this->m_journal);
    driver.answers("readDWord 4", ErrorInvalid);
    this->m_journal.clear();
    U32 id = 0;

    EXPECT_EQ(ErrorInvalid, driver.getDeviceID(id));
    EXPECT_THAT(this->journal(),
                ElementsAre("TRACE Enter label: Reading device ID", "lock", "readDWord 4",
                            "ERROR Failed to read device ID, error=2", "TRACE Leave label: result=2", "unlock"));
}

TYPED_TEST(VersionDriverTest, ACertificateLengthReturnsTheVeryErrorOfItsRegisterHelper)
{
    OverridingDriver<typename TypeParam::Driver> driver(this->m_journal);
    driver.answers("readWord 30", ErrorInvalid);
    this->m_journal.clear();
    int length = 0;

    EXPECT_EQ(ErrorInvalid, driver.getAccessoryCertificateDataLength(length));
    EXPECT_THAT(this->journal(), ElementsAre("TRACE Enter label: ", "lock", "readWord 30",
                                             "ERROR Failed to read certificate data length, error=2",
                                             "TRACE Leave label: result=2", "unlock"));
}

/// A driver of a host whose register helpers report success and store only what the test has set.
template<typename Driver>
class ForgetfulDriver : public Driver
{
public:
    Error readByte(int reg, U8& value) override { return read(reg, value); }
    Error readWord(int reg, U16& value) override { return read(reg, value); }
    Error writeByte(int /*reg*/, int /*value*/) override { return Success; }
    Error writeWord(int /*reg*/, int /*value*/) override { return Success; }

    std::map<int, int> m_told; // by register

private:
    template<typename Value>
    Error read(int reg, Value& value)
    {
        if (m_told.count(reg) > 0)
            value = static_cast<Value>(m_told[reg]);
        soilStack();
        return Success;
    }
};

/// The outcome of a signature: the result, the length, and the last log line before the exit line.
std::string outcomeOfSignature(const Journal& journal, AuthChipDriver& driver)
{
    const Bytes challenge = counting(32);
    U8* signature = nullptr;
    int length = -77;
    soilStack();
    const Error error = driver.newSignature(challenge.data(), 32, &signature, &length);
    std::free(signature);
    const std::vector<std::string> lines = journal.only(Journal::Kind::Line);
    const bool succeeded = error == Success;
    return std::to_string(error) + ", " + std::to_string(length) + ", " + lines[lines.size() - (succeeded ? 2 : 1)];
}

TYPED_TEST(VersionDriverTest, AStatusThatAHelperReportsWithoutStoringItCountsAs0)
{
    ForgetfulDriver<typename TypeParam::Driver> driver;
    driver.m_told = {{0x20, 32}, {0x11, 0}};

    EXPECT_EQ("2, -77, ERROR Invalid status result: 0", outcomeOfSignature(this->m_journal, driver));
}

using VersionDriver30Test = VersionDriverTest<Protocol30>;

TEST_F(VersionDriver30Test, AnAcceptedLengthThatAHelperReportsWithoutStoringItCountsAs0)
{
    ForgetfulDriver<AuthChipDriver30> driver;

    EXPECT_EQ("1, -77, ERROR Invalid challenge length returned: expected=32, actual=0",
              outcomeOfSignature(m_journal, driver));
}

TYPED_TEST(VersionDriverTest, ALengthThatAHelperReportsWithoutStoringItCountsAs0)
{
    this->bus().holds(0x12, {});
    ForgetfulDriver<typename TypeParam::Driver> driver;
    driver.m_told = {{0x20, 32}, {0x10, 0x10}};

    EXPECT_EQ(0U, outcomeOfSignature(this->m_journal, driver).find("0, 0, DEBUG Successfully "));
    int length = -77;
    soilStack();
    EXPECT_EQ(Success, driver.getAccessoryCertificateDataLength(length));
    EXPECT_EQ(0, length);
}

template<typename Driver>
void callEveryOperation(Driver& driver, U8* buffer)
{
    U32 id = 0;
    int length = 0;
    driver.getDeviceID(id);
    driver.getAccessoryCertificateDataLength(length);
    length = 907;
    driver.getAccessoryCertificateData(buffer, length);
    driver.getChallengeResponseDataMaximumLength(length);
    driver.getChallengeDataMaximumLength(length);
    driver.rawWrite(0, buffer, 1);
    driver.rawRead(0, buffer, 1);
    U8* response = nullptr;
    driver.newSignature(buffer, 32, &response, &length);
    std::free(response);
}

TYPED_TEST(VersionDriverTest, EveryRecordOfAnOperationCarriesItsSignatureAndThePathOfItsDriver)
{
    this->bus().failsReads(50);
    const auto before = this->m_log.records().size();
    callEveryOperation(this->m_driver, this->m_buffer.data());

    const auto& records = this->m_log.records();
    ASSERT_GT(records.size(), before + 16);
    std::string operation;
    for (std::size_t i = before; i < records.size(); ++i) {
        if (records[i].message.rfind("Enter ", 0) == 0)
            operation = records[i].function;
        EXPECT_EQ(operation, records[i].function) << records[i].message;
        EXPECT_THAT(records[i].function, ::testing::HasSubstr(std::string(TypeParam::kName) + "::"));
        EXPECT_EQ(TypeParam::kSource, records[i].file) << records[i].message;
    }
}

TYPED_TEST(VersionDriverTest, EveryLabelIsAskedForWithTheComponentWexfordmallow)
{
    const typename TypeParam::Driver another;
    callEveryOperation(this->m_driver, this->m_buffer.data());

    ASSERT_GT(this->m_log.hookCalls().size(), 16U);
    for (const auto& call : this->m_log.hookCalls())
        EXPECT_EQ("Wexfordmallow", call.component) << call.prettyFunction;
}

TYPED_TEST(VersionDriverTest, TheHookIsGivenNewStringsForEachLineSoThatItMayEvenOverwriteThem)
{
    callEveryOperation(this->m_driver, this->m_buffer.data());
    const auto expected = this->m_log.hookCalls();
    this->m_log.spoilHookArguments();
    callEveryOperation(this->m_driver, this->m_buffer.data());
    callEveryOperation(this->m_driver, this->m_buffer.data());

    const auto& calls = this->m_log.hookCalls();
    ASSERT_EQ(3 * expected.size(), calls.size());
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(expected[i % expected.size()].prettyFunction, calls[i].prettyFunction);
        EXPECT_EQ(expected[i % expected.size()].component, calls[i].component);
    }
}

/// What a call of every operation but newSignature leaves behind, healthy or not: results, bus, lines, labels.
template<typename Driver>
std::vector<std::string> traceOfSharedOperations(FakeBus& bus, Journal& journal, DriverLog& log, bool readsFail)
{
    bus.holds(0x00, {7}).holds(0x04, counting(4)).holdsCertificate(counting(907)).failsReads(readsFail ? 1000 : 0);
    journal.clear();
    log.answerHookWith([](const std::string& prettyFunction) { return prettyFunction; });
    Bytes buffer(907);
    U32 id = 0;
    int length = 907;
    Driver driver;
    std::vector<int> results = {driver.getDeviceID(id),
                                driver.getAccessoryCertificateData(buffer.data(), length),
                                length,
                                driver.getAccessoryCertificateDataLength(length),
                                length,
                                driver.rawWrite(0x0a, buffer.data(), 3),
                                driver.rawRead(0x00, buffer.data(), 1)};
    std::vector<std::string> trace = journal.all();
    for (const int result : results)
        trace.push_back(std::to_string(result));
    return trace;
}

std::vector<std::string> replaced(std::vector<std::string> texts, const std::string& from, const std::string& to)
{
    for (std::string& text : texts)
        for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
    return texts;
}

using TwinsTest = OpenBusTest;

TEST_F(TwinsTest, TheSameCallsBehaveIdenticallyAndDifferInTheirTraceLinesOnlyByTheClassName)
{
    m_log.setLevel(log4cplus::TRACE_LOG_LEVEL);
    for (const bool readsFail : {false, true}) {
        const auto trace20B = traceOfSharedOperations<AuthChipDriver20B>(m_bus, m_journal, m_log, readsFail);
        const auto trace30 = traceOfSharedOperations<AuthChipDriver30>(m_bus, m_journal, m_log, readsFail);

        EXPECT_NE(trace20B, trace30);
        EXPECT_EQ(replaced(trace20B, Protocol20B::kName, Protocol30::kName), trace30);
    }
}

struct ThrowingOperation
{
    const char* lineThatThrows;
    void (*call)(AuthChipDriver& driver, U8* buffer);
};

TYPED_TEST(VersionDriverTest, AnExceptionFromALineReleasesTheTransactionExactlyOnce)
{
    const ThrowingOperation operations[] = {
        {"Device ID: ",
         [](AuthChipDriver& driver, U8*) {
             U32 id = 0;
             driver.getDeviceID(id);
         }},
        {"Leave label: result=0",
         [](AuthChipDriver& driver, U8*) {
             U32 id = 0;
             driver.getDeviceID(id);
         }},
        {"Certificate data length: ",
         [](AuthChipDriver& driver, U8*) {
             int length = 0;
             driver.getAccessoryCertificateDataLength(length);
         }},
        {"Reading page 2",
         [](AuthChipDriver& driver, U8* buffer) {
             int length = 907;
             driver.getAccessoryCertificateData(buffer, length);
         }},
        {"Leave label: result=1", [](AuthChipDriver& driver, U8* buffer) { driver.rawWrite(0x10, buffer, 1); }},
        {"Leave label: result=1", [](AuthChipDriver& driver, U8* buffer) { driver.rawRead(0x00, buffer, 1); }},
    };
    this->bus().holds(0x00, {7}).holds(0x04, counting(4)).holdsCertificate(counting(907));
    for (const auto& operation : operations) {
        this->m_log.beforeEachRecord([&](const std::string& message) {
            if (message.rfind(operation.lineThatThrows, 0) == 0)
                throw std::runtime_error("appender");
        });
        this->m_journal.clear();

        EXPECT_THROW(operation.call(this->driver(), this->m_buffer.data()), std::runtime_error)
            << operation.lineThatThrows;
        const auto calls = this->m_journal.only(Journal::Kind::Call);
        EXPECT_EQ(1, std::count(calls.begin(), calls.end(), "lock")) << operation.lineThatThrows;
        EXPECT_EQ(1, std::count(calls.begin(), calls.end(), "unlock")) << operation.lineThatThrows;
        EXPECT_FALSE(this->bus().isLocked());
    }
}

TYPED_TEST(VersionDriverTest, AnExceptionFromTheEntryLineLeavesTheBusAlone)
{
    this->m_log.answerHookWith([](const std::string&) -> std::string { throw std::runtime_error("hook"); });
    U32 id = 0;

    EXPECT_THROW(this->driver().getDeviceID(id), std::runtime_error);
    EXPECT_EQ("", this->conversation());
}

} // namespace
