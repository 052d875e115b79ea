// Log statements with their gate closed and open, compared with an integer test and with spdlog. Lines go to /dev/null.

#include <atomic>
#include <fstream>
#include <iostream>

#include <benchmark/benchmark.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "authchipdriver/consolelog.h"
#include "authchipdriver/drivertrace.h"
#include "benchmarks/sidebyside.h"

using VorelKestrel::ACD::kLoggerName;

namespace {

constexpr int kClosed = 1; // console levels
constexpr int kOpen = 3;
constexpr char kNowhere[] = "/dev/null";

VorelKestrel::AL::DebugStdioLogger* g_consoleLogger = VorelKestrel::AL::DebugStdioLogger::getInstance(kLoggerName);
log4cplus::Logger g_driverLogger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT(kLoggerName));

void consoleStatement(int n)
{
    auto* const g_logger = g_consoleLogger;
    DBG_ERROR("unable to read byte from register 0x" << std::hex << n << std::dec << " - i2cRead returns " << n);
}

void driverStatement(int n)
{
    auto& g_logger = g_driverLogger;
    TRACE_ENTER("challengeLength=" << n);
}

/// Sends std::cout to nowhere.
class SilentConsole
{
public:
    SilentConsole() : m_before(std::cout.rdbuf(m_nowhere.rdbuf())) {}
    ~SilentConsole() { std::cout.rdbuf(m_before); }
    SilentConsole(const SilentConsole&) = delete;
    SilentConsole& operator=(const SilentConsole&) = delete;

private:
    std::ofstream m_nowhere{kNowhere};
    std::streambuf* const m_before;
};

/// Writes a line out at once, as std::endl and log4cplus do.
spdlog::logger makeSpdlog(spdlog::level::level_enum level)
{
    spdlog::logger logger(kLoggerName, std::make_shared<spdlog::sinks::basic_file_sink_mt>(kNowhere));
    logger.set_level(level);
    logger.flush_on(spdlog::level::trace);
    return logger;
}

template<typename Statement>
void besideIntegerTest(benchmark::State& state, Statement statement)
{
    std::atomic<int> level{kClosed}; // so that the compiler looks every time
    runSideBySide(
        state, [&] { statement(1); },
        [&] {
            if (level.load(std::memory_order_relaxed) > kClosed)
                std::abort();
        });
}

template<typename Statement>
void besideSpdlog(benchmark::State& state, Statement statement, spdlog::level::level_enum level)
{
    auto spdlog = makeSpdlog(level);
    runSideBySide(
        state, [&] { statement(1); },
        [&] {
            SPDLOG_LOGGER_CALL(&spdlog, spdlog::level::trace, "unable to read byte from register {:#x} - {}", 1, 1);
        });
}

void BM_Console(benchmark::State& state, int level, bool spdlog)
{
    const SilentConsole console;
    g_consoleLogger->setLogLevel(level);
    if (spdlog)
        besideSpdlog(state, consoleStatement, level == kOpen ? spdlog::level::trace : spdlog::level::off);
    else
        besideIntegerTest(state, consoleStatement);
}

void BM_Driver(benchmark::State& state, bool enabled, bool spdlog)
{
    g_driverLogger.setLogLevel(enabled ? log4cplus::TRACE_LOG_LEVEL : log4cplus::OFF_LOG_LEVEL);
    if (spdlog)
        besideSpdlog(state, driverStatement, enabled ? spdlog::level::trace : spdlog::level::off);
    else
        besideIntegerTest(state, driverStatement);
}

BENCHMARK_CAPTURE(BM_Console, closed, kClosed, false)
    ->Name("loggers/console statement, gate closed/integer test")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Console, closedSpdlog, kClosed, true)
    ->Name("loggers/console statement, gate closed/spdlog, level off")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Console, open, kOpen, false)
    ->Name("loggers/console statement, gate open/integer test")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Console, openSpdlog, kOpen, true)
    ->Name("loggers/console statement, gate open/spdlog, level on")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Driver, off, false, false)->Name("loggers/driver line, TRACE off/integer test")->UseManualTime();
BENCHMARK_CAPTURE(BM_Driver, offSpdlog, false, true)
    ->Name("loggers/driver line, TRACE off/spdlog, level off")
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_Driver, on, true, false)->Name("loggers/driver line, TRACE on/integer test")->UseManualTime();
BENCHMARK_CAPTURE(BM_Driver, onSpdlog, true, true)
    ->Name("loggers/driver line, TRACE on/spdlog, level on")
    ->UseManualTime();

} // namespace

int main(int argc, char** argv)
{
    g_driverLogger.setAdditivity(false);
    g_driverLogger.addAppender(log4cplus::SharedAppenderPtr(
        new log4cplus::FileAppender(LOG4CPLUS_TEXT(kNowhere), std::ios_base::app, /* immediateFlush */ true)));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
