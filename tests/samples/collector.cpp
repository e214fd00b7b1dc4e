// A collector of the test (see the header).

#include "samples/collector.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <variant>

#include "samples/agent.h"

namespace samples_tests {
namespace {

constexpr std::uint32_t kSampledHeader = 1, kExtendedSwitch = 1001, kExtendedRouter = 1002;

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

WallTime TimeOf(msghdr& message)
{
    for (cmsghdr* at = CMSG_FIRSTHDR(&message); at != nullptr; at = CMSG_NXTHDR(&message, at)) {
        if (at->cmsg_level != SOL_SOCKET || at->cmsg_type != SCM_TIMESTAMPNS) continue;
        timespec time{};
        std::memcpy(&time, CMSG_DATA(at), sizeof time);
        return WallTime(std::chrono::duration_cast<WallTime::duration>(
            std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec)));
    }
    throw std::runtime_error("a datagram without the time at which it came");
}

}  // namespace

Collector::Collector(std::size_t datagramSize, const std::string& address)
    : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_size(datagramSize)
{
    const int room = 64 << 20;
    const int on = 1;
    const timeval pause{0, 20'000};  // between two looks whether it is to end
    if (m_socket < 0 || ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0)
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    ::setsockopt(m_socket, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &pause, sizeof pause);
    sockaddr_in own{};
    socklen_t size = sizeof own;
    own.sin_family = AF_INET;
    ::inet_pton(AF_INET, address.c_str(), &own.sin_addr);
    if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&own), &size) != 0)
        Fail("collector at " + address);
    m_port = ntohs(own.sin_port);
    m_thread = std::thread([this] {
        try {
            Listen();
        } catch (...) {
            const std::lock_guard lock(m_mutex);
            m_error = std::current_exception();
        }
    });
}

Collector::~Collector()
{
    m_stop = true;
    m_thread.join();
    ::close(m_socket);
}

void Collector::Listen()
{
    std::vector<std::byte> bytes(65536);
    while (!m_stop) {
        std::array<char, 128> control{};
        iovec part{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = ::recvmsg(m_socket, &message, 0);
        if (size < 0 && errno != EAGAIN && errno != EINTR) Fail("collector");
        if (size < 0) continue;
        const std::lock_guard lock(m_mutex);
        m_heard.push_back({{bytes.begin(), bytes.begin() + size}, TimeOf(message)});
    }
}

void Collector::Receive()
{
    std::vector<Raw> heard;
    {
        const std::lock_guard lock(m_mutex);
        if (m_error) std::rethrow_exception(m_error);
        heard.swap(m_heard);
    }
    for (Raw& raw : heard) {
        support::Datagram datagram = support::DecodeDatagram(raw.bytes);
        Take({std::move(raw.bytes), raw.time, std::move(datagram)});
    }
}

void Collector::Take(Arrival arrival)
{
    const support::Datagram& now = arrival.datagram;
    EXPECT_LE(arrival.bytes.size(), m_size);
    EXPECT_EQ(now.agent, kAgentAddress);
    EXPECT_FALSE(now.samples.empty()) << "a datagram that says nothing";
    if (m_mayRestart && now.sequence == 1) {
        m_mayRestart = false;
        m_sequences.clear();
    } else {
        EXPECT_EQ(now.sequence, m_arrivals.empty() ? 1 : m_arrivals.back().datagram.sequence + 1);
    }
    if (!m_arrivals.empty()) {
        EXPECT_GE(now.uptime, m_arrivals.back().datagram.uptime);
    }
    for (const auto& sample : now.samples) CheckSample(sample);
    m_flows += now.Flows().size();
    m_counters += now.Counters().size();
    m_arrivals.push_back(std::move(arrival));
}

void Collector::CheckSample(const support::DecodedSample& sample)
{
    if (const auto* flow = std::get_if<DecodedFlow>(&sample)) {
        CheckSequence('f', flow->sourceIndex, flow->sequence);
        std::vector<std::uint32_t> records{kSampledHeader, kExtendedSwitch};
        if (flow->extendedRouter) records.push_back(kExtendedRouter);
        EXPECT_EQ(flow->records, records) << "records that every decoder knows come first";
        EXPECT_EQ(flow->sourceClass, 0U);
        return;
    }
    const auto& counters = std::get<DecodedCounters>(sample);
    CheckSequence('c', counters.sourceIndex, counters.sequence);
    EXPECT_EQ(counters.sourceClass, 0U);
}

void Collector::CheckSequence(char kind, std::uint32_t source, std::uint32_t sequence)
{
    auto& last = m_sequences[{kind, source}];
    if (last != 0) {
        EXPECT_EQ(sequence, last + 1) << "of interface " << source;
    }
    last = sequence;
}

const std::vector<Collector::Arrival>& Collector::Arrivals()
{
    Receive();
    return m_arrivals;
}

std::vector<DecodedFlow> FlowsOf(const std::vector<Collector::Arrival>& arrivals)
{
    std::vector<DecodedFlow> all;
    for (const auto& arrival : arrivals)
        for (DecodedFlow& flow : arrival.datagram.Flows()) all.push_back(std::move(flow));
    return all;
}

std::vector<DecodedCounters> CountersOf(const std::vector<Collector::Arrival>& arrivals)
{
    std::vector<DecodedCounters> all;
    for (const auto& arrival : arrivals)
        for (DecodedCounters& counters : arrival.datagram.Counters()) all.push_back(std::move(counters));
    return all;
}

std::vector<DecodedFlow> Collector::Flows() { return FlowsOf(Arrivals()); }

std::vector<DecodedFlow> Collector::Flows(std::uint32_t ifIndex)
{
    auto all = Flows();
    std::erase_if(all, [ifIndex](const DecodedFlow& flow) { return flow.sourceIndex != ifIndex; });
    return all;
}

std::vector<DecodedCounters> Collector::Counters() { return CountersOf(Arrivals()); }

std::vector<DecodedCounters> Collector::Counters(std::uint32_t ifIndex)
{
    auto all = Counters();
    std::erase_if(all, [ifIndex](const DecodedCounters& one) { return one.sourceIndex != ifIndex; });
    return all;
}

std::vector<DecodedFlow> Collector::AwaitFlows(std::size_t count, std::chrono::milliseconds within)
{
    const auto come = [&] {
        Receive();
        return m_flows >= count;
    };
    if (!support::Becomes(come, within))
        throw support::TimedOut(std::to_string(m_flows) + " flow samples have come, not " +
                                std::to_string(count));
    return Flows();
}

std::vector<DecodedCounters> Collector::AwaitCounters(std::size_t count)
{
    support::Await(std::to_string(count) + " counter samples", [&] {
        Receive();
        return m_counters >= count;
    });
    return Counters();
}

}  // namespace samples_tests
