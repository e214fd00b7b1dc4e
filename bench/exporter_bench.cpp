// SPDX-License-Identifier: Apache-2.0
// What sending a sample costs: into the datagram, through the kernel, to a receiver on loopback that takes
// all. One process in a network namespace of its own; "cpu" is this thread's, so the kernel's work for
// sending is in it, and the receiver's system calls are not.

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <span>
#include <thread>
#include <vector>

#include "manager/export/exporter.h"

namespace {

using manager::Stream;
constexpr std::uint16_t kPort = 6343;
constexpr int kPerFlush = 1024;  // samples

/// Takes everything that comes, in a thread of its own.
class Receiver {
public:
    /// `merged`: takes messages as they were sent (UDP_GRO); else the kernel cuts them for it, in the time of
    /// the sender.
    explicit Receiver(bool merged) : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int space = 64 * 1024 * 1024;
        const int on = merged ? 1 : 0;
        const timeval wait{.tv_sec = 0, .tv_usec = 50'000};
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(kPort);
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // What it has no room for is dropped, which is cheaper: a large buffer where that is allowed.
        static_cast<void>(::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &space, sizeof space));
        if (::setsockopt(m_socket, IPPROTO_UDP, UDP_GRO, &on, sizeof on) < 0 ||
            ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) < 0 ||
            ::bind(m_socket, reinterpret_cast<const sockaddr*>(&at), sizeof at) < 0) {
            std::perror("receiver");
            std::exit(1);
        }
        m_thread = std::thread([this] {
            std::vector<std::byte> bytes(65536);
            while (!m_end) static_cast<void>(::recv(m_socket, bytes.data(), bytes.size(), MSG_TRUNC));
        });
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver()
    {
        m_end = true;
        m_thread.join();
        ::close(m_socket);
    }

private:
    int m_socket;
    std::atomic<bool> m_end = false;
    std::thread m_thread;
};

std::chrono::milliseconds Uptime()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

void Run(benchmark::State& state, const std::function<std::size_t(int)>& size)
{
    const Receiver receiver(state.range(1) != 0);
    manager::Exporter exporter(std::chrono::system_clock::now, Uptime, 0);
    Stream& stream =
        exporter.Set("c1", {.address = htonl(INADDR_LOOPBACK), .port = kPort, .datagramSize = 1400});
    const std::vector<std::byte> sample(1372);
    for (auto _ : state) {
        for (int n = 0; n < kPerFlush; ++n)
            stream.Put(std::span(sample).first(size(n)), Stream::Sample::kFlow);
        exporter.Flush();
    }
    const manager::StreamStatus& status = stream.Status();
    state.SetItemsProcessed(state.iterations() * kPerFlush);
    state.counters["lost"] = static_cast<double>(status.lostDatagrams);
    state.counters["samples a datagram"] = static_cast<double>(status.flowSamples) /
                                           static_cast<double>(std::max<std::uint64_t>(1, status.datagrams));
}

/// Into a new network namespace with loopback up.
bool MoveAway()
{
    if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    request.ifr_flags = IFF_UP;
    const bool up = ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
    ::close(socket);
    return up;
}

/// All samples alike: datagrams go as one message.
void EqualSamples(benchmark::State& state)
{
    Run(state, [&](int) { return static_cast<std::size_t>(state.range(0)); });
}
BENCHMARK(EqualSamples)->ArgNames({"bytes", "merged"})->ArgsProduct({{100, 220}, {0, 1}});

/// A short packet now and then: datagrams of several sizes.
void MixedSamples(benchmark::State& state)
{
    Run(state, [&](int n) { return n % state.range(0) == 0 ? std::size_t{156} : std::size_t{220}; });
}
BENCHMARK(MixedSamples)->ArgNames({"one in", "merged"})->ArgsProduct({{3, 10, 50}, {0}});

/// Put alone: nothing has a route, so nothing is sent.
void PutOnly(benchmark::State& state)
{
    manager::Exporter exporter(std::chrono::system_clock::now, Uptime, 0);
    Stream& stream = exporter.Set("c1", {.address = htonl(0x0A090909), .port = kPort, .datagramSize = 1400});
    const std::vector<std::byte> sample(220);
    for (auto _ : state) stream.Put(sample, Stream::Sample::kFlow);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(PutOnly);

/// A flush of one datagram with one sample.
void OneByOne(benchmark::State& state)
{
    const Receiver receiver(false);
    manager::Exporter exporter(std::chrono::system_clock::now, Uptime, 0);
    Stream& stream =
        exporter.Set("c1", {.address = htonl(INADDR_LOOPBACK), .port = kPort, .datagramSize = 1400});
    const std::vector<std::byte> sample(220);
    for (auto _ : state) {
        stream.Put(sample, Stream::Sample::kFlow);
        exporter.Flush();
    }
}
BENCHMARK(OneByOne);

}  // namespace

int main(int count, char** arguments)
{
    if (!MoveAway()) {
        std::perror("exporter_bench: left out, it needs a network namespace of its own");
        return 0;
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
