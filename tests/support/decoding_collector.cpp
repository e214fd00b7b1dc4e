// A collector that keeps every datagram (see the header).

#include "support/decoding_collector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace support {
namespace {

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

DecodingCollector::DecodingCollector(const std::string& address, std::uint16_t port, int bufferSize)
    : m_address(address), m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    const int one = 1;
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    socklen_t length = sizeof at;
    if (m_socket < 0 || ::inet_pton(AF_INET, address.c_str(), &at.sin_addr) != 1 ||
        ::bind(m_socket, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0 ||
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&at), &length) != 0 ||
        ::setsockopt(m_socket, SOL_SOCKET, SO_RXQ_OVFL, &one, sizeof one) != 0)
        Fail("collector at " + address);
    if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof bufferSize) != 0 &&
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize) != 0)
        Fail("SO_RCVBUF");
    m_port = ntohs(at.sin_port);
    m_thread = std::thread([this] { Listen(); });
}

DecodingCollector::~DecodingCollector()
{
    m_stop = true;
    m_thread.join();
    ::close(m_socket);
}

void DecodingCollector::Listen()
{
    std::array<std::byte, 65536> buffer;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint32_t))> control;
    while (!m_stop) {
        pollfd waiting{.fd = m_socket, .events = POLLIN, .revents = 0};
        if (::poll(&waiting, 1, 20) <= 0) continue;
        for (;;) {
            iovec part{buffer.data(), buffer.size()};
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            const ssize_t got = ::recvmsg(m_socket, &message, 0);
            if (got < 0) break;
            const auto* note = CMSG_FIRSTHDR(&message);
            if (note != nullptr && note->cmsg_level == SOL_SOCKET && note->cmsg_type == SO_RXQ_OVFL) {
                std::uint32_t overflowed = 0;
                std::memcpy(&overflowed, CMSG_DATA(note), sizeof overflowed);
                m_overflowed = overflowed;
            }
            const std::lock_guard lock(m_mutex);
            m_raw.emplace_back(buffer.begin(), buffer.begin() + got);
        }
    }
}

std::size_t DecodingCollector::Count() const
{
    const std::lock_guard lock(m_mutex);
    return m_raw.size();
}

std::vector<DecodingCollector::Bytes> DecodingCollector::Raw() const
{
    const std::lock_guard lock(m_mutex);
    return m_raw;
}

const std::deque<Datagram>& DecodingCollector::Datagrams()
{
    std::vector<Bytes> fresh;
    {
        const std::lock_guard lock(m_mutex);
        fresh.assign(m_raw.begin() + static_cast<std::ptrdiff_t>(m_decoded.size()), m_raw.end());
    }
    for (const Bytes& bytes : fresh) m_decoded.push_back(DecodeDatagram(bytes));
    return m_decoded;
}

std::vector<DecodedFlow> DecodingCollector::Flows(std::uint32_t ifIndex)
{
    std::vector<DecodedFlow> flows;
    for (const Datagram& datagram : Datagrams())
        for (const DecodedSample& sample : datagram.samples)
            if (const auto* flow = std::get_if<DecodedFlow>(&sample);
                flow != nullptr && (ifIndex == 0 || flow->sourceIndex == ifIndex))
                flows.push_back(*flow);
    return flows;
}

std::vector<DecodedCounters> DecodingCollector::Counters(std::uint32_t ifIndex)
{
    std::vector<DecodedCounters> all;
    for (const Datagram& datagram : Datagrams())
        for (const DecodedSample& sample : datagram.samples)
            if (const auto* counters = std::get_if<DecodedCounters>(&sample);
                counters != nullptr && (ifIndex == 0 || counters->sourceIndex == ifIndex))
                all.push_back(*counters);
    return all;
}

std::uint32_t DecodingCollector::LastSequence(std::uint32_t ifIndex)
{
    const auto& all = Datagrams();
    for (auto datagram = all.rbegin(); datagram != all.rend(); ++datagram)
        for (auto sample = datagram->samples.rbegin(); sample != datagram->samples.rend(); ++sample)
            if (const auto* flow = std::get_if<DecodedFlow>(&*sample);
                flow != nullptr && flow->sourceIndex == ifIndex)
                return flow->sequence;
    return 0;
}

void DecodingCollector::AwaitQuiet(const std::vector<const DecodingCollector*>& collectors,
                                   std::chrono::milliseconds quiet)
{
    const auto count = [&] {
        std::size_t sum = 0;
        for (const DecodingCollector* collector : collectors) sum += collector->Count();
        return sum;
    };
    auto since = std::chrono::steady_clock::now();
    std::size_t last = count();
    Await("collectors to hear nothing more", [&] {
        const auto now = std::chrono::steady_clock::now();
        if (const std::size_t heard = count(); heard != last) {
            last = heard;
            since = now;
        }
        return now - since >= quiet;
    });
}

}  // namespace support
