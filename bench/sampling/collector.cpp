// A collector that does little (see the header).

#include "sampling/collector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "sampling/forwarding_path.h"

namespace sampling {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr int kBufferSize = 256 << 20;               // a second of samples of everything
constexpr std::chrono::milliseconds kPause{5};       // between two looks
constexpr std::chrono::milliseconds kSettling{400};  // longer than a sample waits anywhere

// Sample formats of sFlow version 5, of enterprise 0.
constexpr std::uint32_t kFlow = 1, kCounters = 2, kExpandedFlow = 3, kExpandedCounters = 4;

std::uint32_t Word(Bytes bytes, std::size_t index)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + index * 4, sizeof word);
    return ntohl(word);
}

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

}  // namespace

Collector::Collector() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    const int size = kBufferSize, one = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        Fail("collector");
    // Datagrams that were sent as one segmented packet stay one until here.
    if (::setsockopt(m_socket, SOL_UDP, UDP_GRO, &one, sizeof one) != 0) Fail("UDP_GRO");
    if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0 &&
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0)
        Fail("SO_RCVBUF");
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { Listen(); });
}

Collector::~Collector()
{
    m_stop = true;
    m_thread.join();
    ::close(m_socket);
}

Received Collector::Read() const
{
    const std::lock_guard lock(m_mutex);
    return m_received;
}

Received Collector::Settled() const
{
    auto last = Read();
    for (auto since = Clock::now(); Clock::now() - since < kSettling;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto now = Read();
        if (now.datagrams != last.datagrams) since = Clock::now();
        last = now;
    }
    return last;
}

void Collector::WatchForFlowSample()
{
    {
        const std::lock_guard lock(m_mutex);
        m_firstFlowSample.reset();
    }
    m_watching = true;
    std::this_thread::sleep_for(2 * kPause);  // until the thread waits for datagrams
}

std::optional<Collector::Clock::time_point> Collector::AwaitFlowSample(std::chrono::milliseconds within)
{
    const auto deadline = Clock::now() + within;
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_firstFlowSample || Clock::now() > deadline) {
                m_watching = false;
                return m_firstFlowSample;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Collector::Listen()
{
    support::Pin(0, kManagerCore);
    while (!m_stop) {
        if (m_watching) {
            pollfd waiting{.fd = m_socket, .events = POLLIN, .revents = 0};
            ::poll(&waiting, 1, 50);
        } else {
            std::this_thread::sleep_for(kPause);
        }
        TakeSome();
    }
}

void Collector::TakeSome()
{
    std::array<std::uint8_t, 65536> buffer;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control;
    for (;;) {
        iovec part{buffer.data(), buffer.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t got = ::recvmsg(m_socket, &message, 0);
        if (got <= 0) return;
        auto segment = static_cast<std::size_t>(got);
        const auto* note = CMSG_FIRSTHDR(&message);
        if (note != nullptr && note->cmsg_level == SOL_UDP && note->cmsg_type == UDP_GRO) {
            int size = 0;
            std::memcpy(&size, CMSG_DATA(note), sizeof size);
            if (size > 0) segment = static_cast<std::size_t>(size);
        }
        const std::lock_guard lock(m_mutex);
        for (Bytes rest(buffer.data(), static_cast<std::size_t>(got)); !rest.empty();) {
            const auto datagram = rest.first(std::min(segment, rest.size()));
            TakeDatagram(datagram);
            rest = rest.subspan(datagram.size());
        }
    }
}

void Collector::TakeDatagram(Bytes datagram)
{
    constexpr std::size_t kHead = 28;  // with an IPv4 agent address
    if (datagram.size() < kHead || Word(datagram, 0) != 5 || Word(datagram, 1) != 1) {
        ++m_received.malformed;
        return;
    }
    ++m_received.datagrams;
    m_received.bytes += datagram.size();
    const auto sequence = Word(datagram, 4);
    // A stream that begins anew begins with 1.
    if (sequence != 1) m_received.missingDatagrams += sequence - m_sequence - 1;
    m_sequence = sequence;
    const auto samples = Word(datagram, 6);
    auto rest = datagram.subspan(kHead);
    for (std::uint32_t i = 0; i < samples; ++i) {
        if (rest.size() < 8 || rest.size() - 8 < Word(rest, 1)) {
            ++m_received.malformed;
            return;
        }
        TakeSample(rest.subspan(8, Word(rest, 1)), Word(rest, 0));
        rest = rest.subspan(8 + Word(rest, 1));
    }
    if (!rest.empty()) ++m_received.malformed;
}

void Collector::TakeSample(Bytes sample, std::uint32_t format)
{
    const bool expanded = format == kExpandedFlow || format == kExpandedCounters;
    const bool flow = format == kFlow || format == kExpandedFlow;
    if ((!flow && format != kCounters && format != kExpandedCounters) || sample.size() < 32) {
        ++m_received.malformed;
        return;
    }
    const std::uint64_t source =
        expanded ? std::uint64_t{Word(sample, 1)} << 24U | Word(sample, 2) : Word(sample, 1);
    auto& known = Follow(source << 1U | (flow ? 1U : 0U), Word(sample, 0));
    if (!flow) {
        ++m_received.counterSamples;
        return;
    }
    ++m_received.flowSamples;
    if (!m_firstFlowSample) m_firstFlowSample = Clock::now();
    const auto drops = Word(sample, expanded ? 5 : 4);
    m_received.drops += drops - known.drops;
    known.drops = drops;
}

Collector::Source& Collector::Follow(std::uint64_t key, std::uint32_t sequence)
{
    auto& source = m_sources[key];
    if (sequence == 1)
        source = {};
    else
        m_received.missingSamples += sequence - source.sequence - 1;
    source.sequence = sequence;
    return source;
}

}  // namespace sampling
