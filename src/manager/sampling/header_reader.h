// SPDX-License-Identifier: Apache-2.0
// Reads bytes and words of a packet's header without ever leaving it.

#ifndef MANAGER_SAMPLING_HEADER_READER_H
#define MANAGER_SAMPLING_HEADER_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace manager {

class HeaderReader {
public:
    explicit HeaderReader(std::span<const std::byte> header) : m_header(header) {}

    /// Nullopt beyond the end.
    [[nodiscard]] std::optional<std::uint8_t> Byte(std::size_t at) const
    {
        if (at >= m_header.size()) return std::nullopt;
        return std::to_integer<std::uint8_t>(m_header[at]);
    }
    /// Big-endian. Nullopt beyond the end.
    [[nodiscard]] std::optional<std::uint16_t> Word(std::size_t at) const
    {
        if (at + 1 >= m_header.size()) return std::nullopt;
        return static_cast<std::uint16_t>(std::to_integer<unsigned>(m_header[at]) << 8 |
                                          std::to_integer<unsigned>(m_header[at + 1]));
    }

private:
    std::span<const std::byte> m_header;
};

}  // namespace manager

#endif
