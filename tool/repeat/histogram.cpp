#include "tool/repeat/histogram.h"

#include <algorithm>
#include <cmath>

namespace VorelKestrel::Tool {

// The first buckets hold one value each. The bucket of a larger value depends on its seven leading bits.
std::size_t Histogram::bucketOf(Duration duration)
{
    auto value = static_cast<std::uint64_t>(std::max<Duration::rep>(duration.count(), 0));
    std::size_t octave = 0;
    while (value >= 2 * kBucketsOfAnOctave) {
        value /= 2;
        ++octave;
    }
    const std::size_t bucket = octave * kBucketsOfAnOctave + static_cast<std::size_t>(value);
    return std::min(bucket, kBucketsOfAnOctave * (kOctaves + 1) - 1);
}

Histogram::Duration Histogram::endOf(std::size_t bucket)
{
    if (bucket < 2 * kBucketsOfAnOctave)
        return Duration(bucket);
    const std::size_t octave = bucket / kBucketsOfAnOctave - 1;
    const std::uint64_t leading =
        bucket - octave * kBucketsOfAnOctave; // 64 bits: a size_t of 32 bits ends at four seconds
    return Duration(static_cast<Duration::rep>(((leading + 1) << octave) - 1));
}

void Histogram::add(Duration duration)
{
    ++m_buckets[bucketOf(duration)];
    ++m_count;
    m_longest = std::max(m_longest, duration);
}

Histogram::Duration Histogram::quantile(double share) const
{
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(m_count)));
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < m_buckets.size(); ++bucket) {
        seen += m_buckets[bucket];
        if (seen >= wanted && seen > 0)
            return std::min(endOf(bucket), m_longest);
    }
    return Duration(0);
}

std::uint64_t Histogram::countBetween(Duration from, Duration to) const
{
    std::uint64_t count = 0;
    for (std::size_t bucket = 0; bucket < m_buckets.size(); ++bucket) {
        const Duration end = endOf(bucket);
        if (end > from && end <= to)
            count += m_buckets[bucket];
    }
    return count;
}

} // namespace VorelKestrel::Tool
