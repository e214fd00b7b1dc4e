// SPDX-License-Identifier: Apache-2.0
#include "manager/export/collector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace exporter_test {
namespace {

using manager::Stream;

void PutWord(std::byte* to, std::uint32_t word)
{
    word = htonl(word);
    std::memcpy(to, &word, sizeof word);
}

std::byte Pattern(std::uint32_t number, std::size_t at) { return static_cast<std::byte>(number * 31 + at); }

/// Reads big-endian words and refuses to read what is not there.
class Reader {
public:
    explicit Reader(std::span<const std::byte> bytes) : m_bytes(bytes) {}
    std::uint32_t Word()
    {
        std::uint32_t word = 0;
        std::memcpy(&word, Take(sizeof word).data(), sizeof word);
        return ntohl(word);
    }
    std::span<const std::byte> Take(std::size_t size)
    {
        if (size > m_bytes.size()) throw std::runtime_error("the datagram is too short");
        const auto taken = m_bytes.first(size);
        m_bytes = m_bytes.subspan(size);
        return taken;
    }
    [[nodiscard]] bool AtEnd() const { return m_bytes.empty(); }

private:
    std::span<const std::byte> m_bytes;
};

Numbered ReadSample(Reader& reader)
{
    const std::uint32_t type = reader.Word();
    if (type != 1 && type != 2) throw std::runtime_error("not a sample's type: " + std::to_string(type));
    Reader body(reader.Take(reader.Word()));
    const Numbered read{body.Word(), type == 1 ? Stream::Sample::kFlow : Stream::Sample::kCounters};
    for (std::size_t at = 0; !body.AtEnd(); ++at)
        if (body.Take(1)[0] != Pattern(read.number, at)) throw std::runtime_error("a sample is damaged");
    return read;
}

Received ReadDatagram(std::span<const std::byte> bytes, const Origin& origin)
{
    Reader reader(bytes);
    Received received;
    received.size = bytes.size();
    received.origin = origin;
    if (reader.Word() != 5 || reader.Word() != 1) throw std::runtime_error("not version 5 of an IPv4 agent");
    char text[INET_ADDRSTRLEN];
    received.agent = ::inet_ntop(AF_INET, reader.Take(4).data(), text, sizeof text);
    received.subAgent = reader.Word();
    received.sequence = reader.Word();
    received.uptime = reader.Word();
    for (std::uint32_t left = reader.Word(); left > 0; --left) received.samples.push_back(ReadSample(reader));
    if (!reader.AtEnd()) throw std::runtime_error("more samples than the datagram says");
    return received;
}

}  // namespace

Bytes MakeSample(const Numbered& numbered, std::size_t size)
{
    if (size < 12 || size % 4 != 0) throw std::invalid_argument("no size of a sample");
    Bytes sample(size);
    PutWord(sample.data(), numbered.kind == Stream::Sample::kFlow ? 1 : 2);
    PutWord(sample.data() + 4, static_cast<std::uint32_t>(size - 8));
    PutWord(sample.data() + 8, numbered.number);
    for (std::size_t at = 12; at < size; ++at) sample[at] = Pattern(numbered.number, at - 12);
    return sample;
}

std::uint32_t Address(const std::string& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) throw std::invalid_argument(text);
    return address.s_addr;
}

manager::CollectorSettings Settings(const std::string& address, std::uint16_t port, std::uint16_t size)
{
    return {.address = Address(address), .port = port, .datagramSize = size};
}

RawCollector::RawCollector(const std::string& address, std::uint16_t port, Merge merge)
    : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    const int space = 64 * 1024 * 1024;
    const int on = merge == Merge::kOn ? 1 : 0;
    const int told = 1;
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = Address(address);
    if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &space, sizeof space) < 0 ||
        ::setsockopt(m_socket, IPPROTO_UDP, UDP_GRO, &on, sizeof on) < 0 ||
        ::setsockopt(m_socket, IPPROTO_IP, IP_RECVTOS, &told, sizeof told) < 0 ||
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&at), sizeof at) < 0)
        throw std::system_error(errno, std::generic_category(), "a collector at " + address);
}

RawCollector::~RawCollector() { ::close(m_socket); }

std::vector<Bytes> RawCollector::Read(int waitMs)
{
    pollfd waiting{.fd = m_socket, .events = POLLIN, .revents = 0};
    if (::poll(&waiting, 1, waitMs) <= 0) return {};
    Bytes bytes(65536);
    alignas(cmsghdr) std::byte control[2 * CMSG_SPACE(sizeof(int))];
    sockaddr_in from{};
    iovec vector{.iov_base = bytes.data(), .iov_len = bytes.size()};
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = ::recvmsg(m_socket, &message, 0);
    if (size < 0) return {};
    char text[INET_ADDRSTRLEN];
    m_last = {::inet_ntop(AF_INET, &from.sin_addr, text, sizeof text), ntohs(from.sin_port)};
    bytes.resize(static_cast<std::size_t>(size));
    std::size_t each = bytes.size();
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        int merged = 0;
        if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_TOS)
            std::memcpy(&m_last.tos, CMSG_DATA(part), sizeof m_last.tos);
        if (part->cmsg_level != IPPROTO_UDP || part->cmsg_type != UDP_GRO) continue;
        std::memcpy(&merged, CMSG_DATA(part), sizeof merged);
        each = static_cast<std::size_t>(merged);
    }
    std::vector<Bytes> datagrams;
    for (std::span<const std::byte> left(bytes); !left.empty();) {
        const auto next = left.first(std::min(each, left.size()));
        datagrams.emplace_back(next.begin(), next.end());
        left = left.subspan(next.size());
    }
    return datagrams;
}

bool Collector::Read(int waitMs)
{
    const std::vector<Bytes> datagrams = m_socket.Read(waitMs);
    for (const Bytes& datagram : datagrams) m_received.push_back(ReadDatagram(datagram, m_socket.Last()));
    return !datagrams.empty();
}

std::vector<Received> Collector::Take(std::size_t datagrams)
{
    while (m_received.size() < datagrams && Read(5000)) {
    }
    return TakeAll();
}

std::vector<Received> Collector::TakeAll()
{
    while (Read(0)) {
    }
    return std::exchange(m_received, {});
}

std::vector<Numbered> Samples(const std::vector<Received>& received)
{
    std::vector<Numbered> samples;
    for (const Received& datagram : received)
        samples.insert(samples.end(), datagram.samples.begin(), datagram.samples.end());
    return samples;
}

std::vector<std::uint32_t> Sequences(const std::vector<Received>& received)
{
    std::vector<std::uint32_t> sequences;
    for (const Received& datagram : received) sequences.push_back(datagram.sequence);
    return sequences;
}

}  // namespace exporter_test
