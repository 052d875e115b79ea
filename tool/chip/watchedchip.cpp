#include "tool/chip/watchedchip.h"

#include <utility>

namespace VorelKestrel::Tool {
namespace {

using Call = LockWatch::Call;

class WatchedChip : public Chip
{
public:
    WatchedChip(std::unique_ptr<Chip> next, LockWatch& watch) : m_next(std::move(next)), m_watch(watch) {}

    const Generation& generation() const override { return m_next->generation(); }
    std::uint8_t deviceVersion() const override { return m_next->deviceVersion(); }
    ChipIdentity identity() override
    {
        const Call call(m_watch);
        return m_next->identity();
    }
    Bytes certificate() override
    {
        const Call call(m_watch);
        return m_next->certificate();
    }
    Bytes sign(const Bytes& challenge) override
    {
        const Call call(m_watch);
        return m_next->sign(challenge);
    }

private:
    const std::unique_ptr<Chip> m_next;
    LockWatch& m_watch;
};

class WatchedRawChip : public RawChip
{
public:
    WatchedRawChip(std::unique_ptr<RawChip> next, LockWatch& watch) : m_next(std::move(next)), m_watch(watch) {}

    Bytes read(std::uint8_t reg, int length) override
    {
        const Call call(m_watch);
        return m_next->read(reg, length);
    }
    void write(std::uint8_t reg, const Bytes& data) override
    {
        const Call call(m_watch);
        m_next->write(reg, data);
    }

private:
    const std::unique_ptr<RawChip> m_next;
    LockWatch& m_watch;
};

} // namespace

std::unique_ptr<Chip> WatchedChipAccess::detect()
{
    const Call call(m_watch);
    return std::make_unique<WatchedChip>(m_next.detect(), m_watch);
}

std::unique_ptr<RawChip> WatchedChipAccess::open()
{
    const Call call(m_watch);
    return std::make_unique<WatchedRawChip>(m_next.open(), m_watch);
}

} // namespace VorelKestrel::Tool
