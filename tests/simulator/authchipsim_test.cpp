#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "tests/simulator/spawnedprogram.h"

namespace fs = std::filesystem;

namespace {

using Arguments = std::vector<std::string>;

const std::string kReadIdentity = "i2ctransfer -y 7 w1@0x2a 0x00 r8";
// A shell that waits in 'read' never runs a trap whose signal comes just before the system call.
const std::string kWaitForTraps = "while :; do sleep 0.05; done";

/// authchip-sim, with its own folder for temporary files.
class AuthChipSimTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "authchip-sim-test.XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(name.data()));
        m_scratch = name;
        m_temporary = m_scratch / "tmp";
        fs::create_directory(m_temporary);
        setenv("TMPDIR", m_temporary.c_str(), 1);
    }
    void TearDown() override
    {
        EXPECT_TRUE(fs::is_empty(m_temporary)) << "something was left behind";
        m_process.reset();
        fs::remove_all(m_scratch);
        setenv("TMPDIR", m_scratch.parent_path().c_str(), 1); // as it was
    }

    void start(Arguments arguments, SpawnedProgram::Connection connection = SpawnedProgram::Connection::Pipes)
    {
        arguments.insert(arguments.begin(), AUTHCHIP_SIM);
        m_process = std::make_unique<SpawnedProgram>(arguments, connection);
    }
    int run(const Arguments& arguments)
    {
        start(arguments);
        m_process->closeInput();
        return m_process->wait();
    }
    /// Runs a line of shell in front of the chip.
    int runShell(const std::string& line, Arguments options = {})
    {
        options.insert(options.end(), {"--", "sh", "-c", line});
        return run(options);
    }
    /// Runs the host that authenticates the chip.
    int authenticate(Arguments options, const std::string& times = "1")
    {
        options.insert(options.end(), {"--", HOST, "/dev/i2c-7", "0x2a", times});
        return run(options);
    }

    std::string output() const { return m_process->output(); }
    bool complainsAbout(const std::string& text) const
    {
        return m_process->output().empty() && m_process->errors().find(text) != std::string::npos;
    }

    std::string contentOf(const fs::path& path) const
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path m_scratch;
    fs::path m_temporary;
    std::unique_ptr<SpawnedProgram> m_process;
};

TEST_F(AuthChipSimTest, PrintsItsHelpOnStandardOutput)
{
    EXPECT_EQ(0, run({"--help"}));
    EXPECT_NE(std::string::npos, output().find("Exit status:"));
    EXPECT_EQ("", m_process->errors());
}

TEST_F(AuthChipSimTest, RefusesWrongUsageWithStatus2)
{
    const std::pair<Arguments, std::string> cases[] = {
        {{}, "no program"},
        {{"--"}, "no program"},
        {{"true"}, "true"},
        {{"--nonsense", "--", "true"}, "--nonsense"},
        {{"--address", "0x80", "--", "true"}, "0x80"},
        {{"--address", " 42", "--", "true"}, "' 42' is not a number"},
        {{"--address", "+42", "--", "true"}, "'+42' is not a number"},
        {{"--device-version", "256", "--", "true"}, "256"},
        {{"--busy-ms", "12x", "--", "true"}, "12x"},
        {{"--busy-ms", "-1", "--", "true"}, "-1"},
        {{"--smbus-only=no", "--", "true"}, "--smbus-only takes no value"},
        {{"--refuse", "99999999999999999999", "--", "true"}, "99999999999999999999"},
        {{"--protocol", "3", "--", "true"}, "'.'"},
        {{"--wrong-length", "0x12=1", "--", "true"}, "0x12"},
        {{"--device", "/tmp/i2c-7", "--", "true"}, "/tmp/i2c-7"},
        {{"--device", "/dev/../tmp/i2c-7", "--", "true"}, "/dev/../tmp/i2c-7"},
        {{"--certificate", "file", "--", "true"}, "--key"},
        {{"--certificate-length", "1", "--", "true"}, " 1 bytes"},
        {{"--certificate-length", "1281", "--", "true"}, "1280"},
        {{"--key", "/nonexistent", "--", "true"}, "/nonexistent"},
    };
    for (const auto& [arguments, complaint] : cases) {
        EXPECT_EQ(2, run(arguments)) << complaint;
        EXPECT_TRUE(complainsAbout(complaint)) << m_process->errors();
    }
}

TEST_F(AuthChipSimTest, ReturnsTheExitStatusOfTheProgram)
{
    EXPECT_EQ(0, run({"--", "true"}));
    EXPECT_EQ(7, runShell("exit 7"));
    EXPECT_EQ(255, runShell("exit 255"));
}

TEST_F(AuthChipSimTest, Returns128MoreThanTheSignalThatKilledTheProgram)
{
    EXPECT_EQ(128 + SIGKILL, runShell("kill -KILL $$"));
    EXPECT_EQ(128 + SIGTERM, runShell("kill -TERM $$"));
}

TEST_F(AuthChipSimTest, Returns127ForAProgramThatIsNotThereAnd126ForOneThatDoesNotRun)
{
    EXPECT_EQ(127, run({"--", "no-such-program"}));
    EXPECT_TRUE(complainsAbout("no-such-program"));
    EXPECT_EQ(126, run({"--", m_scratch}));
    EXPECT_TRUE(complainsAbout(m_scratch));
}

TEST_F(AuthChipSimTest, Returns125WhenItCannotMakeItsNodeOrItsLog)
{
    EXPECT_EQ(125, run({"--log", "/nonexistent/log", "--", "true"}));
    EXPECT_TRUE(complainsAbout("/nonexistent/log"));
    for (const std::string& folder : {std::string("/nonexistent"), std::string("/proc")}) {
        setenv("TMPDIR", folder.c_str(), 1);
        EXPECT_EQ(125, run({"--", "true"}));
        EXPECT_TRUE(complainsAbout(folder));
    }
    const fs::path longName = m_scratch / std::string(100, 'x');
    fs::create_directory(longName);
    setenv("TMPDIR", longName.c_str(), 1);
    EXPECT_EQ(125, run({"--", "true"}));
    EXPECT_TRUE(complainsAbout(longName));
}

TEST_F(AuthChipSimTest, HandsArgumentsAndStandardInputToTheProgramAsTheyAre)
{
    EXPECT_EQ(0, run({"--", "printf", "[%s]", "", "--", "--busy-ms", "a b"}));
    EXPECT_EQ("[][--][--busy-ms][a b]", output());

    start({"--", "cat"});
    m_process->type("through");
    m_process->closeInput();
    EXPECT_EQ(0, m_process->wait());
    EXPECT_EQ("through", output());
}

class SignalledAuthChipSim : public AuthChipSimTest, public testing::WithParamInterface<int>
{};
INSTANTIATE_TEST_SUITE_P(Signals, SignalledAuthChipSim, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& signal) { return "SIG" + std::string(sigabbrev_np(signal.param)); });

TEST_P(SignalledAuthChipSim, PassesTheSignalOnAndLeavesNothingBehind)
{
    start({"--", "sh", "-c", kReadIdentity + "; exec cat"});
    EXPECT_TRUE(m_process->waitFor("\n"));
    EXPECT_FALSE(fs::is_empty(m_temporary)); // or the test would prove nothing
    m_process->send(GetParam());

    EXPECT_EQ(128 + GetParam(), m_process->wait());
}

TEST_P(SignalledAuthChipSim, LeavesItToTheProgramWhatTheSignalDoes)
{
    start({"--", "sh", "-c", "trap 'echo caught; exit 9' INT TERM HUP; echo ready; " + kWaitForTraps});
    EXPECT_TRUE(m_process->waitFor("ready\n"));
    m_process->send(GetParam());

    EXPECT_TRUE(m_process->waitFor("caught\n"));
    EXPECT_EQ(9, m_process->wait());
}

TEST_F(AuthChipSimTest, LeavesItToTheTerminalWhoGetsASignalFromTheKeyboard)
{
    // In a session of its own the program is not among them, with the simulator as without.
    start({"--", "setsid", "sh", "-c",
           "trap 'echo interrupted; exit 1' INT; trap 'echo terminated; exit 0' TERM; echo ready; " + kWaitForTraps},
          SpawnedProgram::Connection::Terminal);
    EXPECT_TRUE(m_process->waitFor("ready"));
    m_process->type("\x03");
    EXPECT_TRUE(m_process->waitFor("^C")); // the terminal's echo comes after the signal
    m_process->send(SIGTERM);

    EXPECT_EQ(0, m_process->wait());
    EXPECT_NE(std::string::npos, output().find("terminated")) << output();
}

TEST_F(AuthChipSimTest, AnswersI2ctransfer)
{
    EXPECT_EQ(
        0, runShell(kReadIdentity, {"--device-version", "5", "--firmware-version", "9", "--device-id", "0x01020304"}));
    EXPECT_EQ("0x05 0x09 0x02 0x00 0x01 0x02 0x03 0x04\n", output());
}

TEST_F(AuthChipSimTest, ReportsAnyDeviceVersionAndProtocolVersion)
{
    for (const std::string version : {"0", "1", "2", "0xff"}) {
        EXPECT_EQ(0, runShell("i2cget -y 7 0x2a 0x00", {"--device-version", version}));
        EXPECT_EQ(std::stoi(version, nullptr, 0), std::stoi(output(), nullptr, 0));
    }
    EXPECT_EQ(0, runShell("i2ctransfer -y 7 w1@0x2a 0x02 r2", {"--protocol", "2.17"}));
    EXPECT_EQ("0x02 0x11\n", output());
}

TEST_F(AuthChipSimTest, PutsTheNodeAndTheChipWhereItIsTold)
{
    EXPECT_EQ(0, runShell("i2cget -y 3 0x11 0x00", {"--device", "/dev/i2c-3", "--address", "0x11"}));
    EXPECT_EQ("0x07\n", output());
    EXPECT_NE(0, runShell("i2cget -y 3 0x2a 0x00", {"--device", "/dev/i2c-3", "--address", "0x11"}));
    EXPECT_EQ(0, runShell("i2cget -y 7 0x0a 0x00", {"--address", "010"})); // and not in octal
}

TEST_F(AuthChipSimTest, ShowsBoundAddressesAsTheKernelDoes)
{
    EXPECT_EQ(0, runShell("i2cdetect -y -r 7 0x29 0x2c", {"--bound-address", "0x2b", "--bound-address", "0x2c"}));
    EXPECT_NE(std::string::npos, output().find("-- 2a UU UU")) << output();
}

TEST_F(AuthChipSimTest, ShowsSeveralProcessesOneAndTheSameChip)
{
    EXPECT_EQ(0, runShell("i2ctransfer -y 7 w4@0x2a 0x21 1 2 3 && i2ctransfer -y 7 w1@0x2a 0x20 r2"));
    EXPECT_EQ("0x00 0x03\n", output());
}

TEST_F(AuthChipSimTest, ServesSeveralProcessesAtOnce)
{
    const std::string read = "i2ctransfer -y 7 w1@0x2a 0x00 r8";
    const std::string reads = "for i in 1 2 3 4 5 6 7 8 9 10; do " + read + "; done";
    EXPECT_EQ(0, runShell("(" + reads + ") & (" + reads + ") & (" + reads + ") & wait"));

    std::string expected;
    for (int i = 0; i < 30; ++i)
        expected += "0x07 0x01 0x03 0x00 0x00 0x00 0x02 0x00\n";
    EXPECT_EQ(expected, output());
}

TEST_F(AuthChipSimTest, AuthenticatesToSeveralHostsThatTakeTurns)
{
    const std::string host = std::string("'" HOST "' /dev/i2c-7 0x2a 5 stay <&3 & ");
    start({"--busy-ms", "1", "--", "sh", "-c", "exec 3<&0; " + host + host + host + "exec 3<&-; wait"});
    EXPECT_TRUE(m_process->waitFor("status 0\nstatus 0\nstatus 0\n")) << output();
    m_process->closeInput();

    EXPECT_EQ(0, m_process->wait());
}

TEST_F(AuthChipSimTest, EndsWithTheProgramThoughProcessesOfItsAreStillAtTheChip)
{
    const std::string loop = "while " + kReadIdentity + "; do :; done";
    EXPECT_EQ(4, runShell("(" + loop + ") & (" + loop + ") & " + kReadIdentity + "; exit 4"));
}

class EachVersion : public AuthChipSimTest, public testing::WithParamInterface<const char*>
{};
INSTANTIATE_TEST_SUITE_P(Versions, EachVersion, testing::Values("3", "5", "7"),
                         [](const auto& version) { return std::string("DeviceVersion") + version.param; });

TEST_P(EachVersion, AuthenticatesToAHostThatUsesTheLibrary)
{
    EXPECT_EQ(0, authenticate({"--device-version", GetParam()}, "2")) << m_process->errors();
}

TEST_P(EachVersion, AuthenticatesWhenItRefusesByCount)
{
    EXPECT_EQ(0, authenticate({"--device-version", GetParam(), "--busy-refusals", "3"})) << m_process->errors();
}

TEST_P(EachVersion, DoesNotAuthenticateWithACorruptedSignature)
{
    EXPECT_EQ(3, authenticate({"--device-version", GetParam(), "--corrupt-signature"}));
}

TEST_P(EachVersion, HasACertificateOfTheLengthAsked)
{
    EXPECT_EQ(0, runShell("i2ctransfer -y 7 w1@0x2a 0x30 r2",
                          {"--device-version", GetParam(), "--certificate-length", "907"}));
    EXPECT_EQ("0x03 0x8b\n", output());
}

TEST_F(AuthChipSimTest, SignsWithTheKeyThatItIsGiven)
{
    const std::string key = m_scratch / "key.pem";
    const std::string certificate = m_scratch / "certificate.pem";
    const std::string make =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=Given -keyout '" + key +
        "' -out '" + certificate + "' 2>/dev/null";
    ASSERT_EQ(0, std::system(make.c_str()));

    EXPECT_EQ(0, authenticate({"--key", key, "--certificate", certificate})) << m_process->errors();
    EXPECT_EQ(2, authenticate({"--key", key, "--device-version", "3"}));
    EXPECT_TRUE(complainsAbout("RSA-1024"));
}

TEST_F(AuthChipSimTest, SurvivesRefusedMessagesAndFailedReadsAsTheLibraryDoes)
{
    EXPECT_EQ(0, authenticate({"--refuse", "3", "--fail-reads", "3"})) << m_process->errors();
}

TEST_F(AuthChipSimTest, MakesTheHostFailByFaultsThatNoRetryHelps)
{
    const Arguments cases[] = {
        {"--short-reads", "1", "--fault-register", "0x12"},
        {"--fail-reads", "100", "--fault-register", "0x11"},
        {"--wrong-status", "0x30"},
        {"--wrong-length", "0x20=31"},
        {"--device-version", "2"},
    };
    for (const Arguments& options : cases)
        EXPECT_EQ(1, authenticate(options)) << options.front();
}

TEST_F(AuthChipSimTest, ReportsTheTimeoutOfAStuckBus)
{
    EXPECT_NE(0, runShell(kReadIdentity, {"--stuck-bus", "1"}));
    EXPECT_TRUE(complainsAbout("timed out"));
}

TEST_F(AuthChipSimTest, WritesEveryTransferToTheLog)
{
    const std::string log = m_scratch / "log";
    EXPECT_NE(0, runShell(kReadIdentity + "; i2ctransfer -y 7 w1@0x2b 0x00", {"--log", log, "--bus-hz", "100000"}));

    std::ifstream lines(log);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ("# seconds address direction length outcome [bytes]", line);
    for (const std::string& expected :
         {std::string("0x2a write 1 done 00"), std::string("0x2a read 8 done 07 01 03 00 00 00 02 00"),
          std::string("0x2b write 1 refused 00")}) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(expected, line.substr(line.find(' ') + 1));
    }
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(AuthChipSimTest, AnswersACountThatOnlyANegativeLengthCanBeAsTheKernelDoes)
{
    const std::string script = "import ctypes, os\n"
                               "fd = os.open('/dev/i2c-7', os.O_RDWR)\n"
                               "c = ctypes.CDLL(None)\n"
                               "buffer = ctypes.create_string_buffer(8)\n"
                               "for call in (c.read, c.write):\n"
                               "    call.restype = ctypes.c_ssize_t\n"
                               "    print(call(fd, buffer, ctypes.c_size_t(-5)))\n";
    if (std::system("command -v python3 >/dev/null") != 0)
        GTEST_SKIP() << "python3 is not installed";
    EXPECT_EQ(0, run({"--", "python3", "-c", script}));
    EXPECT_EQ("-1\n-1\n", output());
}

TEST_F(AuthChipSimTest, HearsOfTheProgramsEndAlsoWhenItsStarterIgnoredThoseOfChildren)
{
    m_process = std::make_unique<SpawnedProgram>(
        Arguments{"env", "--ignore-signal=CHLD", AUTHCHIP_SIM, "--", "sh", "-c", "exit 5"},
        SpawnedProgram::Connection::Pipes);
    m_process->closeInput();
    EXPECT_EQ(5, m_process->wait());
}

TEST_F(AuthChipSimTest, FailsWhenTheLogOrTheHelpCannotBeWritten)
{
    EXPECT_EQ(125, runShell(kReadIdentity, {"--log", "/dev/full"}));
    EXPECT_NE(std::string::npos, m_process->errors().find("cannot write the log /dev/full"));
    m_process = std::make_unique<SpawnedProgram>(Arguments{"sh", "-c", "'" AUTHCHIP_SIM "' --help >/dev/full"},
                                                 SpawnedProgram::Connection::Pipes);
    m_process->closeInput();
    EXPECT_EQ(125, m_process->wait());
    EXPECT_TRUE(complainsAbout("standard output"));
}

TEST_F(AuthChipSimTest, RunsFromAPathWithABlank)
{
    const fs::path built = fs::path(AUTHCHIP_SIM).parent_path();
    const fs::path place = m_scratch / "with a blank: and a colon";
    fs::create_directories(place / "node");
    fs::copy(AUTHCHIP_SIM, place);
    fs::copy(built / "node" / "preload", place / "node" / "preload", fs::copy_options::recursive);
    m_process = std::make_unique<SpawnedProgram>(Arguments{place / "authchip-sim", "--", "sh", "-c", kReadIdentity},
                                                 SpawnedProgram::Connection::Pipes);
    m_process->closeInput();
    EXPECT_EQ(0, m_process->wait()) << m_process->errors();
}

} // namespace
