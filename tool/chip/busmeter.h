#ifndef TOOL_CHIP_BUSMETER_H
#define TOOL_CHIP_BUSMETER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace VorelKestrel::Tool {

using BusClock = std::chrono::steady_clock;

/// A message that the chip was sent or asked for, once.
struct BusMessage
{
    bool isRead;
    std::size_t length;       // as asked for
    long result;              // how many bytes went over, or -1
    int error;                // errno, if the result is -1
    const std::uint8_t* data; // of the message, as long as the result says; valid during the call only
    BusClock::time_point begin;
    BusClock::time_point end;

    bool isRefused() const { return result < 0; }
};

/// What one or more calls of an operation cost.
struct OperationFigures
{
    std::string operation; // "sign"
    int calls = 0;
    int messages = 0;                  // each try counts
    int refused = 0;                   // messages that the chip or the bus did not take or deliver
    int retries = 0;                   // messages that repeat a refused one
    int longestRow = 0;                // of refusals of one message; the library gives up after kAttempts
    BusClock::duration longestWait{0}; // from the first try of a message to its success, or to the last try
    BusClock::duration time{0};        // of all calls
};

/**
 * Counts what happens on the bus, operation by operation: how near it is to its hundredth refusal, and where the time
 * goes.
 *
 * Threads: each operation's messages are those of the thread that began it; one operation at a time.
 */
class BusMeter
{
public:
    using Listener = std::function<void(const std::string& line)>;

    /// @p listener  is told of every message, those that are refused in a row at once; empty for nobody.
    explicit BusMeter(Listener listener = {});
    BusMeter(const BusMeter&) = delete;
    BusMeter& operator=(const BusMeter&) = delete;

    /// A call of an operation, from construction to the end of the scope.
    class Operation
    {
    public:
        Operation(BusMeter& meter, const char* name);
        ~Operation();
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

    private:
        BusMeter& m_meter;
        const BusClock::time_point m_begin;
    };

    /// The meter of the operation that this thread is in; null: it is in none.
    static BusMeter* current();

    void count(const BusMessage& message);

    /// The calls since the last take(), in their order.
    std::vector<OperationFigures> take();

private:
    void begin(const char* name);
    void end(BusClock::duration time);
    void endRow();
    void tell(const std::string& line) const;

    const Listener m_listener;
    std::vector<OperationFigures> m_calls; // the last is the one that runs, during an operation
    int m_row = 0;                         // refusals of the message that is tried now
    bool m_isReadRow = false;
    int m_rowError = 0;
    BusClock::time_point m_rowBegin;
    BusClock::time_point m_rowEnd;
};

/// "sign: 9 messages, 3 refused (3 of 100 in a row), 3 retries; longest wait 30.4 ms, time 31.2 ms"
std::string describe(const OperationFigures& figures);

/// Adds the calls of each operation up, in the order of the first of each.
std::vector<OperationFigures> sumsOf(const std::vector<OperationFigures>& calls);

} // namespace VorelKestrel::Tool

#endif
