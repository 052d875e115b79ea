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

/// One attempt of a message to or from the chip.
struct BusMessage
{
    bool isRead;
    std::size_t length;       // as requested
    long result;              // bytes moved, or -1
    int error;                // errno, if the result is -1
    const std::uint8_t* data; // as many bytes as the result says; valid only during the call
    BusClock::time_point begin;
    BusClock::time_point end;

    bool isRefused() const { return result < 0; }
};

/// What one or more calls of an operation cost.
struct OperationFigures
{
    std::string operation; // "sign"
    int calls = 0;
    int messages = 0;                  // each attempt counts
    int refused = 0;                   // not acknowledged, or failed on the bus
    int retries = 0;                   // repetitions of a refused message
    int longestRow = 0;                // of refusals of one message; the library gives up at kAttempts
    BusClock::duration longestWait{0}; // for one message: from the first attempt to success or to the last attempt
    BusClock::duration time{0};        // of all calls
};

/**
 * Measures each operation on the bus: messages, refusals (how close to the limit of kAttempts), retries and time.
 *
 * Threads: one operation at a time; its messages come from the thread that began it.
 */
class BusMeter
{
public:
    using Listener = std::function<void(const std::string& line)>;

    /// @p listener  receives a line for every message, and one for refusals in a row; empty: none.
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

    /// The meter of this thread's operation; null outside of one.
    static BusMeter* current();

    void count(const BusMessage& message);

    /// The calls since the last take(), in order.
    std::vector<OperationFigures> take();

private:
    void begin(const char* name);
    void end(BusClock::duration time);
    void endRow();
    void tell(const std::string& line) const;

    const Listener m_listener;
    std::vector<OperationFigures> m_calls; // during an operation, the last is the current one
    int m_row = 0;                         // refusals of the current message
    bool m_isReadRow = false;
    int m_rowError = 0;
    BusClock::time_point m_rowBegin;
    BusClock::time_point m_rowEnd;
};

/// "sign: 9 messages, 3 refused (3 of 100 in a row), 3 retries; longest wait 30.4 ms, time 31.2 ms"
std::string describe(const OperationFigures& figures);

/// Adds up the calls of each operation, in the order of their first calls.
std::vector<OperationFigures> sumsOf(const std::vector<OperationFigures>& calls);

} // namespace VorelKestrel::Tool

#endif
