// SPDX-License-Identifier: Apache-2.0
// Hears frames (see the header).

#include "samples/sniffer.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <system_error>

#include "support/network.h"

namespace samples_tests {
Sniffer::Sniffer(const std::string& device)
    : m_socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(support::Network::Index(device));
    if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), "hearing at " + device);
}

Sniffer::~Sniffer() { ::close(m_socket); }

bool Sniffer::Heard(std::uint64_t number)
{
    std::array<std::byte, 2048> frame{};
    for (ssize_t size; (size = ::recv(m_socket, frame.data(), frame.size(), 0)) >= ETHER_HDR_LEN;)
        m_numbers.insert(support::NumberOf(std::span(frame).first(static_cast<std::size_t>(size))));
    return m_numbers.contains(number);
}

}  // namespace samples_tests
