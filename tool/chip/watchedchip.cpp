#include "tool/chip/watchedchip.h"

#include <utility>

namespace VorelKestrel::Tool {
namespace {

/// One call of the library, from construction to the end of the scope.
class Call
{
public:
    Call(LockWatch& watch, BusMeter& meter, const char* operation) : m_watched(watch), m_metered(meter, operation) {}

private:
    const LockWatch::Call m_watched;
    const BusMeter::Operation m_metered;
};

class WatchedChip : public Chip
{
public:
    WatchedChip(std::unique_ptr<Chip> next, LockWatch& watch, BusMeter& meter)
        : m_next(std::move(next)), m_watch(watch), m_meter(meter)
    {}

    const Generation& generation() const override { return m_next->generation(); }
    std::uint8_t deviceVersion() const override { return m_next->deviceVersion(); }
    ChipIdentity identity() override
    {
        const Call call(m_watch, m_meter, "identify");
        return m_next->identity();
    }
    Bytes certificate() override
    {
        const Call call(m_watch, m_meter, "certificate");
        return m_next->certificate();
    }
    Bytes sign(const Bytes& challenge) override
    {
        const Call call(m_watch, m_meter, "sign");
        return m_next->sign(challenge);
    }

private:
    const std::unique_ptr<Chip> m_next;
    LockWatch& m_watch;
    BusMeter& m_meter;
};

class WatchedRawChip : public RawChip
{
public:
    WatchedRawChip(std::unique_ptr<RawChip> next, LockWatch& watch, BusMeter& meter)
        : m_next(std::move(next)), m_watch(watch), m_meter(meter)
    {}

    Bytes read(std::uint8_t reg, int length) override
    {
        const Call call(m_watch, m_meter, "read");
        return m_next->read(reg, length);
    }
    void write(std::uint8_t reg, const Bytes& data) override
    {
        const Call call(m_watch, m_meter, "write");
        m_next->write(reg, data);
    }

private:
    const std::unique_ptr<RawChip> m_next;
    LockWatch& m_watch;
    BusMeter& m_meter;
};

} // namespace

std::unique_ptr<Chip> WatchedChipAccess::detect()
{
    const Call call(m_watch, m_meter, "detect");
    return std::make_unique<WatchedChip>(m_next.detect(), m_watch, m_meter);
}

std::unique_ptr<RawChip> WatchedChipAccess::open()
{
    const Call call(m_watch, m_meter, "open");
    return std::make_unique<WatchedRawChip>(m_next.open(), m_watch, m_meter);
}

} // namespace VorelKestrel::Tool
