// SPDX-License-Identifier: Apache-2.0
// What counter samples cost: reading the kernel's counters, encoding and sending, in a network namespace
// with so many virtual Ethernet interfaces. An iteration is one second of polling; the processor time of
// an iteration is what the manager uses in a second for it. Needs root.

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <benchmark/benchmark.h>

#include "manager/export/exporter.h"
#include "manager/export/poller.h"
#include "manager/fake_worker.h"
#include "net/counters/counters.h"
#include "net/counters/kernel_counters.h"
#include "net/links/links.h"
#include "support/manual_timers.h"
#include "support/network.h"

namespace {

using support::Network;

/// A namespace that grows to as many interfaces as are asked for.
class Interfaces {
public:
    const std::vector<std::uint32_t>& AtLeast(std::size_t count)
    {
        if (!m_network) m_network.emplace();
        std::string lines;
        const std::size_t first = m_pairs;
        for (; 2 * m_pairs < count; ++m_pairs) {
            const std::string number = std::to_string(m_pairs);
            lines += "link add p" + number + " type veth peer name h" + number + "\n";
            lines += "link set p" + number + " up\nlink set h" + number + " up\n";
        }
        if (!lines.empty()) Network::Ip(lines);
        for (std::size_t pair = first; pair < m_pairs; ++pair)
            for (const char* end : {"p", "h"})
                m_indexes.push_back(Network::Index(end + std::to_string(pair)));
        return m_indexes;
    }

private:
    std::optional<Network> m_network;
    std::size_t m_pairs = 0;
    std::vector<std::uint32_t> m_indexes;
};

/// A port of the loopback where a thread of its own takes all datagrams; its time is not counted.
class Sink {
public:
    Sink() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
            throw std::runtime_error("no port to receive on");
        m_settings = {
            .address = address.sin_addr.s_addr, .port = ntohs(address.sin_port), .datagramSize = 1400};
        const timeval patience{.tv_sec = 0, .tv_usec = 50'000};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        m_thread = std::jthread([socket = m_socket](const std::stop_token& stop) {
            std::vector<char> bytes(65536);
            while (!stop.stop_requested()) std::ignore = ::recv(socket, bytes.data(), bytes.size(), 0);
        });
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    ~Sink()
    {
        m_thread.request_stop();
        m_thread.join();
        ::close(m_socket);
    }
    [[nodiscard]] const manager::CollectorSettings& Settings() const { return m_settings; }

private:
    int m_socket;
    manager::CollectorSettings m_settings;
    std::jthread m_thread;
};

void FillTable(net::Links& links, const std::vector<std::uint32_t>& indexes, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        net::Link link;
        link.index = indexes[i];
        link.name = "port" + std::to_string(i);
        link.hardwareType = ARPHRD_ETHER;
        link.up = link.running = true;
        links.Put(link);
    }
}

/// `interfaces` polled every `interval` seconds, evenly spread over it.
void Poll(benchmark::State& state, Interfaces& interfaces)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto interval = static_cast<std::uint16_t>(state.range(1));
    const auto& indexes = interfaces.AtLeast(count);
    net::Links links;
    FillTable(links, indexes, count);

    support::ManualTimers timers;
    FakeWorker worker(timers);
    const Sink sink;
    manager::Exporter exporter([] { return std::chrono::system_clock::now(); },
                               [&timers] { return timers.Elapsed(); }, 0);
    exporter.SetAgentAddress(htonl(INADDR_LOOPBACK));
    const manager::Stream& stream = exporter.Set("c1", sink.Settings());
    const std::vector<manager::Stream*> streams{exporter.Find("c1")};
    std::uint32_t start = 0;
    manager::Poller poller(
        timers, worker, net::MakeCounterReader(), links, [&exporter] { exporter.Flush(); },
        [&timers] { return std::chrono::steady_clock::time_point(timers.Elapsed()); },
        [] { return std::chrono::system_clock::now(); }, [&start](std::uint32_t) { return start; });
    for (std::size_t i = 0; i < count; ++i) {
        start = static_cast<std::uint32_t>(i * interval * 1000 / count);
        const std::string name = "gigabit-ethernet-1/1/" + std::to_string(i + 1);
        poller.Set(name, {.ifIndex = indexes[i], .interval = interval, .streams = &streams});
    }
    timers.Advance(std::chrono::seconds(interval));  // each once, so that all is warm

    const std::uint64_t before = stream.Status().counterSamples;
    for (auto _ : state) timers.Advance(std::chrono::seconds(1));
    const auto sent = static_cast<double>(stream.Status().counterSamples - before);
    state.counters["due"] = sent / static_cast<double>(state.iterations());
    state.counters["sample"] =
        benchmark::Counter(sent, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// `wanted` of `interfaces` read by a dump of all, or by a request each.
void Read(benchmark::State& state, Interfaces& interfaces, bool dump)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto wanted = static_cast<std::size_t>(state.range(1));
    const auto& all = interfaces.AtLeast(count);
    std::vector<std::uint32_t> indexes;
    for (std::size_t i = 0; i < wanted; ++i) indexes.push_back(all[i * count / wanted]);
    std::ranges::sort(indexes);
    net::LinkCountersReader reader;
    for (auto _ : state) {
        if (dump)
            reader.Dump(indexes);
        else
            reader.Ask(indexes);
    }
    if (reader.Found().size() != wanted) state.SkipWithError("not all were found");
    state.counters["sample"] =
        benchmark::Counter(static_cast<double>(wanted),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Register(Interfaces& interfaces)
{
    const auto poll = [&](benchmark::State& state) { Poll(state, interfaces); };
    const auto byDump = [&](benchmark::State& state) { Read(state, interfaces, true); };
    const auto byRequest = [&](benchmark::State& state) { Read(state, interfaces, false); };
    // The namespace only grows, so the small ones come first.
    for (const std::int64_t count : {256, 4096}) {
        benchmark::RegisterBenchmark("Poll", poll)
            ->ArgNames({"interfaces", "interval"})
            ->Args({count, 10})
            ->Args({count, 1});
        for (const std::int64_t part : {10, 5, 1}) {
            benchmark::RegisterBenchmark("ReadByDump", byDump)
                ->ArgNames({"interfaces", "wanted"})
                ->Args({count, count / part});
            benchmark::RegisterBenchmark("ReadByRequest", byRequest)
                ->ArgNames({"interfaces", "wanted"})
                ->Args({count, count / part});
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (const std::string why = Network::WhyNot(); !why.empty()) {
        std::fprintf(stderr, "counters_bench: %s\n", why.c_str());
        return 1;
    }
    Interfaces interfaces;
    Register(interfaces);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
