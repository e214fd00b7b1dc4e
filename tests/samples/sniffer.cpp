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
#include <system_error>

#include "support/network.h"

namespace samples_tests {
namespace {

/// Of the payload of UDP in an untagged frame; 0 where it is none.
std::uint64_t NumberIn(const std::uint8_t* frame, std::size_t size)
{
    constexpr std::size_t kEthernet = 14, kUdp = 8, kNumber = 8;
    const bool six = frame[12] == 0x86;
    const std::size_t ip = six ? 40 : 20;
    const std::size_t at = kEthernet + ip + kUdp;
    if (size < at + kNumber || frame[kEthernet + (six ? 6 : 9)] != IPPROTO_UDP) return 0;
    std::uint64_t number = 0;
    for (std::size_t byte = 0; byte < kNumber; ++byte) number = number << 8U | frame[at + byte];
    return number;
}

}  // namespace

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
    std::array<std::uint8_t, 2048> frame{};
    for (ssize_t size; (size = ::recv(m_socket, frame.data(), frame.size(), 0)) >= ETHER_HDR_LEN;)
        m_numbers.insert(NumberIn(frame.data(), static_cast<std::size_t>(size)));
    return m_numbers.contains(number);
}

}  // namespace samples_tests
