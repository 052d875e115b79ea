// Our library in a host program, in turns with other programs that make the same exchange on the same node.

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/sidebyside.h"
#include "capture/session.h"

namespace {

/// A program in front of the instant node that makes exchanges on request, and reports how long they took.
class Peer
{
public:
    /// @p environment, "NAME=value", puts the instant node before the program.
    explicit Peer(const std::vector<std::string>& command,
                  const std::vector<std::string>& environment = {"LD_PRELOAD=" INSTANT_NODE})
    {
        int toPeer[2];
        int fromPeer[2];
        if (pipe(toPeer) != 0 || pipe(fromPeer) != 0)
            throw std::runtime_error("no pipe");
        m_process = fork();
        if (m_process == 0) {
            dup2(toPeer[0], STDIN_FILENO);
            dup2(fromPeer[1], STDOUT_FILENO);
            for (const int descriptor : {toPeer[0], toPeer[1], fromPeer[0], fromPeer[1]})
                close(descriptor);
            run(command, environment);
        }
        close(toPeer[0]);
        close(fromPeer[1]);
        m_orders = fdopen(toPeer[1], "w");
        m_answers = fdopen(fromPeer[0], "r");
    }
    ~Peer()
    {
        std::fclose(m_orders);
        std::fclose(m_answers);
        waitpid(m_process, nullptr, 0);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Nanoseconds per exchange.
    double run(const char* exchange, int times)
    {
        std::fprintf(m_orders, "%s %d\n", exchange, times);
        std::fflush(m_orders);
        double nanoseconds = 0;
        if (std::fscanf(m_answers, "%lf", &nanoseconds) != 1)
            throw std::runtime_error("the peer gave no answer");
        return nanoseconds / times;
    }

private:
    [[noreturn]] static void run(const std::vector<std::string>& command, const std::vector<std::string>& environment)
    {
        for (const std::string& variable : environment)
            putenv(const_cast<char*>(variable.c_str()));
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (const auto& argument : command)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        std::perror(arguments[0]);
        _exit(127);
    }

    pid_t m_process = -1;
    std::FILE* m_orders = nullptr;  // owned
    std::FILE* m_answers = nullptr; // owned
};

/// @p ourTimes and @p peerTimes are the exchanges of one turn.
void BM_Peer(benchmark::State& state, const std::vector<std::string>& command, const char* exchange, int ourTimes,
             int peerTimes)
{
    Peer ours({PEER_HOST});
    Peer peer(command);
    ours.run(exchange, ourTimes); // the first time, so that both have loaded what they need
    peer.run(exchange, peerTimes);
    measureInTurns(
        state, [&] { return ours.run(exchange, ourTimes); }, [&] { return peer.run(exchange, peerTimes); });
}

/// The same host with and without a capture; a version query is two messages.
void BM_Capture(benchmark::State& state)
{
    constexpr int kTimes = 500;
    char path[] = "authchip-capture-XXXXXX"; // in the current folder, as a user's
    close(mkstemp(path));
    setenv("LD_PRELOAD", INSTANT_NODE, 1);
    const VorelKestrel::Capture::Session session(path, "benchmark", CAPTURE_LIBRARY, false);
    const std::vector<std::string> environment = session.environment();
    unsetenv("LD_PRELOAD");
    {
        Peer captured({PEER_HOST}, environment);
        Peer plain({PEER_HOST});
        const auto runCaptured = [&] {
            const double nanoseconds = captured.run("version", kTimes);
            if (truncate(path, 0) != 0) // so that no turn fills the disk
                throw std::runtime_error("no file");
            return nanoseconds;
        };
        runCaptured();
        plain.run("version", kTimes);
        measureInTurns(state, runCaptured, [&] { return plain.run("version", kTimes); });
    }
    state.counters["added_per_message_ns"] = (state.counters["ours_ns"] - state.counters["peer_ns"]) / 2;
    unlink(path);
}
BENCHMARK(BM_Capture)->Name("capture/version query")->UseManualTime();

// The system's own Python: the packages are installed for it.
const std::vector<std::string> kSmbus2 = {"/usr/bin/python3", "-B", PEERS_FOLDER "with_smbus2.py"};
const std::vector<std::string> kPeriphery = {"/usr/bin/python3", "-B", PEERS_FOLDER "with_periphery.py"};
const std::vector<std::string> kI2ctransfer = {PEERS_FOLDER "with_i2ctransfer.sh"};

BENCHMARK_CAPTURE(BM_Peer, smbus2Version, kSmbus2, "version", 2000, 100)
    ->Name("peers/version query/python3-smbus2")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Peer, peripheryVersion, kPeriphery, "version", 2000, 100)
    ->Name("peers/version query/python3-periphery")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Peer, i2ctransferVersion, kI2ctransfer, "version", 2000, 5)
    ->Name("peers/version query/i2ctransfer in a shell script")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Peer, smbus2Authentication, kSmbus2, "authentication", 200, 10)
    ->Name("peers/certificate and signing/python3-smbus2")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Peer, peripheryAuthentication, kPeriphery, "authentication", 200, 10)
    ->Name("peers/certificate and signing/python3-periphery")
    ->UseManualTime();

} // namespace

BENCHMARK_MAIN();
