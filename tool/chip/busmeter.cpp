#include "tool/chip/busmeter.h"

#include <algorithm>
#include <utility>

#include "common/bytes.h"
#include "common/hex.h"
#include "common/patience.h"
#include "tool/report/duration.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

thread_local BusMeter* t_current = nullptr;

constexpr long kLongestShown = 8; // bytes

std::string contentOf(const BusMessage& message)
{
    if (message.data == nullptr || message.result <= 0)
        return "";
    const long shown = std::min(message.result, kLongestShown);
    return " (" + toHex(Bytes(message.data, message.data + shown)) + (shown < message.result ? "..." : "") + ")";
}

std::string describe(const BusMessage& message)
{
    const std::string asked = std::to_string(message.length);
    const std::string moved = std::to_string(message.result);
    const std::string count = moved == asked ? moved : moved + " of " + asked;
    return (message.isRead ? "read " : "wrote ") + count + (count == "1" ? " byte" : " bytes") + contentOf(message) +
           " in " + inMilliseconds(message.end - message.begin);
}

} // namespace

BusMeter::BusMeter(Listener listener) : m_listener(std::move(listener)) {}

BusMeter::Operation::Operation(BusMeter& meter, const char* name) : m_meter(meter), m_begin(BusClock::now())
{
    m_meter.begin(name);
    t_current = &m_meter;
}

BusMeter::Operation::~Operation()
{
    t_current = nullptr;
    m_meter.end(BusClock::now() - m_begin);
}

BusMeter* BusMeter::current()
{
    return t_current;
}

void BusMeter::begin(const char* name)
{
    m_calls.emplace_back();
    m_calls.back().operation = name;
    m_calls.back().calls = 1;
}

void BusMeter::end(BusClock::duration time)
{
    endRow();
    m_calls.back().time = time;
}

void BusMeter::count(const BusMessage& message)
{
    OperationFigures& call = m_calls.back();
    // After the last attempt, or in the other direction, it is a new message.
    if (m_row == kAttempts || (m_row > 0 && m_isReadRow != message.isRead))
        endRow();
    const bool isRetry = m_row > 0;
    if (!isRetry)
        m_rowBegin = message.begin;
    ++call.messages;
    call.retries += isRetry ? 1 : 0;
    call.longestWait = std::max(call.longestWait, message.end - m_rowBegin);
    if (message.isRefused()) {
        m_rowEnd = message.end;
        m_isReadRow = message.isRead;
        m_rowError = message.error;
        ++call.refused;
        call.longestRow = std::max(call.longestRow, ++m_row);
        return;
    }
    endRow();
    tell(describe(message));
}

/// The message was acknowledged, or given up.
void BusMeter::endRow()
{
    if (m_row > 0)
        tell((m_isReadRow ? "read refused " : "write refused ") + std::to_string(m_row) +
             (m_row == 1 ? " time" : " times") + " in " + inMilliseconds(m_rowEnd - m_rowBegin) + ": " +
             describeSystemError(m_rowError));
    m_row = 0;
}

void BusMeter::tell(const std::string& line) const
{
    if (m_listener)
        m_listener(line);
}

std::vector<OperationFigures> BusMeter::take()
{
    return std::exchange(m_calls, {});
}

std::string describe(const OperationFigures& figures)
{
    const std::string row =
        " (" + std::to_string(figures.longestRow) + " of " + std::to_string(kAttempts) + " in a row)";
    return figures.operation + ": " + std::to_string(figures.messages) + " messages, " +
           std::to_string(figures.refused) + " refused" + (figures.refused > 0 ? row : "") + ", " +
           std::to_string(figures.retries) + " retries; longest wait " + inMilliseconds(figures.longestWait) +
           ", time " + inMilliseconds(figures.time);
}

std::vector<OperationFigures> sumsOf(const std::vector<OperationFigures>& calls)
{
    std::vector<OperationFigures> sums;
    for (const OperationFigures& call : calls) {
        auto sum = std::find_if(sums.begin(), sums.end(),
                                [&](const OperationFigures& row) { return row.operation == call.operation; });
        if (sum == sums.end()) {
            sums.push_back(call);
            continue;
        }
        sum->calls += call.calls;
        sum->messages += call.messages;
        sum->refused += call.refused;
        sum->retries += call.retries;
        sum->longestRow = std::max(sum->longestRow, call.longestRow);
        sum->longestWait = std::max(sum->longestWait, call.longestWait);
        sum->time += call.time;
    }
    return sums;
}

} // namespace VorelKestrel::Tool
