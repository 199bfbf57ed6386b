#pragma once

#include <cstddef>
#include <cstdint>

// Reads the bits of a byte string, most significant first, as the codec standards write them. Reading
// past the end never touches memory outside the string: it yields zeros and sets Overrun().
class BitReader
{
public:
    BitReader(const uint8_t *data, size_t size) : m_data(data), m_bits(size * 8) {}

    uint32_t Bit()
    {
        if (m_pos >= m_bits) {
            m_overrun = true;
            return 0;
        }
        const uint32_t bit = (m_data[m_pos >> 3] >> (7 - (m_pos & 7))) & 1;
        ++m_pos;
        return bit;
    }
    uint32_t Bits(int n)
    {
        uint32_t v = 0;
        for (int i = 0; i < n; ++i)
            v = (v << 1) | Bit();
        return v;
    }
    void Skip(size_t n)
    {
        m_pos += n;
        if (m_pos > m_bits)
            m_overrun = true;
    }
    // Unsigned Exp-Golomb code, ue(v); values past 32 bits count as an overrun.
    uint32_t Ue()
    {
        int zeros = 0;
        while (Bit() == 0 && !m_overrun) {
            if (++zeros > 31) {
                m_overrun = true;
                return 0;
            }
        }
        return (zeros == 0 ? 0 : ((1u << zeros) - 1 + Bits(zeros)));
    }
    int32_t Se()
    {
        const uint32_t k = Ue();
        return (k & 1) ? int32_t((k + 1) / 2) : -int32_t(k / 2);
    }
    bool Overrun() const { return m_overrun; }
    size_t Position() const { return m_pos; }
    size_t Left() const { return m_pos >= m_bits ? 0 : m_bits - m_pos; }

private:
    const uint8_t *m_data;
    size_t m_bits;
    size_t m_pos = 0;
    bool m_overrun = false;
};

inline uint32_t ReadU32(const uint8_t *p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}
inline uint64_t ReadU64(const uint8_t *p)
{
    return (uint64_t(ReadU32(p)) << 32) | ReadU32(p + 4);
}
