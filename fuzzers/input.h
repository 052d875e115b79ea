#ifndef FUZZERS_INPUT_H
#define FUZZERS_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// The fuzzer's bytes, taken from front to back. Where they have ended, zeroes follow.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t length) : m_next(data), m_end(data + length) {}

    bool hasEnded() const { return m_next == m_end; }
    std::uint8_t byte() { return hasEnded() ? std::uint8_t{0} : *m_next++; }
    /// Two bytes, the first the more significant.
    std::uint16_t word()
    {
        const unsigned high = byte();
        return static_cast<std::uint16_t>((high << 8U) | byte());
    }
    void fill(std::uint8_t* destination, std::size_t count)
    {
        const std::size_t there = std::min(count, static_cast<std::size_t>(m_end - m_next));
        std::fill(std::copy_n(m_next, there, destination), destination + count, std::uint8_t{0});
        m_next += there;
    }

private:
    const std::uint8_t* m_next;
    const std::uint8_t* m_end;
};

#endif
