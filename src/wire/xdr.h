// SPDX-License-Identifier: Apache-2.0
// Writes the XDR (RFC 4506) that sFlow uses: big-endian words of four bytes, and opaque bytes filled up
// with zeros to a whole word. It checks no bounds: encode.h works out a sample's size once, before the
// first byte is written. It reads nothing.

#ifndef WIRE_XDR_H
#define WIRE_XDR_H

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace wire {

inline constexpr std::size_t kWord = 4;

/// What `size` opaque bytes take, their length word not counted.
constexpr std::size_t Padded(std::size_t size) { return (size + kWord - 1) & ~(kWord - 1); }

class XdrWriter {
public:
    /// The caller provides enough room at `out`, which must not overlap what is copied there.
    explicit XdrWriter(std::byte* out) : m_at(out) {}

    void Word(std::uint32_t value)
    {
        value = htobe32(value);
        std::memcpy(m_at, &value, sizeof value);
        m_at += sizeof value;
    }

    void Hyper(std::uint64_t value)
    {
        value = htobe64(value);
        std::memcpy(m_at, &value, sizeof value);
        m_at += sizeof value;
    }

    /// Copies `size` bytes, a multiple of kWord, as they lie in memory.
    void Words(const void* from, std::size_t size)
    {
        std::memcpy(m_at, from, size);
        m_at += size;
    }

    /// Writes the length word and the padding of `size` opaque bytes. Returns where the caller puts the
    /// bytes.
    std::byte* Opaque(std::size_t size)
    {
        Word(static_cast<std::uint32_t>(size));
        std::byte* const bytes = m_at;
        m_at += Padded(size);
        if (size != 0) {
            std::memset(m_at - kWord, 0, kWord);
        }
        return bytes;
    }

private:
    std::byte* __restrict m_at;
};

}  // namespace wire

#endif
