// SPDX-License-Identifier: Apache-2.0
// Reads XDR (RFC 4506) for the decoder of sFlow, strictly; see sflow_decoder.h. Nothing else includes it.

#ifndef SUPPORT_SFLOW_CURSOR_H
#define SUPPORT_SFLOW_CURSOR_H

#include <arpa/inet.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/sflow_decoder.h"

namespace support {

/// Reads from a part of the bytes; the offset is that in the whole.
class Cursor {
public:
    Cursor(std::span<const std::byte> whole, std::size_t at, std::size_t end)
        : m_whole(whole), m_at(at), m_end(end)
    {
    }

    [[noreturn]] static void FailAt(std::size_t offset, const std::string& what)
    {
        throw DecodeError("offset " + std::to_string(offset) + ": " + what);
    }

    /// Complains about the value of `size` bytes that was read last.
    [[noreturn]] void FailBefore(std::size_t size, const std::string& what) const
    {
        FailAt(m_at - size, what);
    }

    std::uint32_t Unsigned(const char* name) { return static_cast<std::uint32_t>(Number(4, name)); }
    std::uint64_t UnsignedHyper(const char* name) { return Number(8, name); }

    std::uint32_t AtMost(std::uint32_t limit, const char* name)
    {
        const std::uint32_t value = Unsigned(name);
        if (value > limit) FailBefore(4, std::string(name) + " is " + std::to_string(value));
        return value;
    }

    std::vector<std::byte> FixedOpaque(std::size_t size, const char* name)
    {
        Need(size, name);
        const auto bytes = m_whole.subspan(m_at, size);
        m_at += size;
        while (m_at % 4 != 0) {
            if (Number(1, "padding") != 0)
                FailBefore(1, std::string("the padding of ") + name + " is not zero");
        }
        return {bytes.begin(), bytes.end()};
    }

    std::vector<std::byte> Opaque(const char* name) { return FixedOpaque(Unsigned(name), name); }

    std::string Address(const char* name)
    {
        const std::uint32_t type = AtMost(2, name);
        if (type == 0) return {};
        const auto bytes = FixedOpaque(type == 1 ? 4 : 16, name);
        std::array<char, INET6_ADDRSTRLEN> text{};
        ::inet_ntop(type == 1 ? AF_INET : AF_INET6, bytes.data(), text.data(), text.size());
        return text.data();
    }

    /// The part behind a length word, which this cursor then has behind it.
    Cursor Part(const char* name)
    {
        const std::uint32_t size = Unsigned(name);
        if (size % 4 != 0) FailBefore(4, std::string(name) + " of " + std::to_string(size) + " bytes");
        Need(size, name);
        m_at += size;
        return {m_whole, m_at - size, m_at};
    }

    void End(const char* name) const
    {
        if (m_at != m_end) {
            FailAt(m_at, std::to_string(m_end - m_at) + " bytes left over in " + name);
        }
    }

private:
    void Need(std::size_t size, const char* name) const
    {
        if (size > m_end - m_at) {
            FailAt(m_at, std::string(name) + " needs " + std::to_string(size) + " bytes, there are " +
                             std::to_string(m_end - m_at));
        }
    }

    std::uint64_t Number(std::size_t size, const char* name)
    {
        Need(size, name);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = value * 256 + std::to_integer<std::uint64_t>(m_whole[m_at++]);
        }
        return value;
    }

    std::span<const std::byte> m_whole;
    std::size_t m_at;
    std::size_t m_end;
};

}  // namespace support

#endif
