#ifndef TOOL_REPEAT_HISTOGRAM_H
#define TOOL_REPEAT_HISTOGRAM_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace VorelKestrel::Tool {

/**
 * Counts durations in buckets, so that its size does not grow. A quantile is exact to a bucket, which is at most 1.6 %
 * wide; the longest duration is exact.
 */
class Histogram
{
public:
    using Duration = std::chrono::nanoseconds;

    void add(Duration duration);

    std::uint64_t count() const { return m_count; }
    Duration longest() const { return m_longest; }
    /// The duration that this share (0 to 1) of all durations does not exceed; 0 if there are none.
    Duration quantile(double share) const;
    /// How many are longer than @p from and at most @p to, to the precision of the buckets.
    std::uint64_t countBetween(Duration from, Duration to) const;

private:
    static constexpr std::size_t kBucketsOfAnOctave = 64; // up to 127 ns, each nanosecond has its own
    static constexpr std::size_t kOctaves = 40;           // the last ends at nine hours

    static std::size_t bucketOf(Duration duration);
    static Duration endOf(std::size_t bucket);

    std::array<std::uint64_t, kBucketsOfAnOctave*(kOctaves + 1)> m_buckets{};
    std::uint64_t m_count = 0;
    Duration m_longest{0};
};

} // namespace VorelKestrel::Tool

#endif
