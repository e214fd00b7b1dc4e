// SPDX-License-Identifier: Apache-2.0
// An IPv4 address.

#ifndef NETTYPES_IPV4_ADDR_H
#define NETTYPES_IPV4_ADDR_H

#include <arpa/inet.h>

#include <cstdint>
#include <string>

namespace nettypes {

class IPv4Addr {
public:
    // `word` is the address as it lies in memory on the wire (network byte order).
    explicit IPv4Addr(std::uint32_t word) : m_word(word) {}
    IPv4Addr(const IPv4Addr&) = default;
    IPv4Addr& operator=(const IPv4Addr&) = default;
    virtual ~IPv4Addr() = default;

    // The same word, network byte order.
    std::uint32_t word() const { return m_word; }

    // Dotted decimal, as "192.0.2.1".
    virtual std::string to_string() const
    {
        char text[INET_ADDRSTRLEN] = {};
        in_addr address{};
        address.s_addr = m_word;
        inet_ntop(AF_INET, &address, text, sizeof text);
        return text;
    }

private:
    std::uint32_t m_word;
};

}  // namespace nettypes

#endif
