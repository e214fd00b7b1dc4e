// SPDX-License-Identifier: Apache-2.0
// A reconciler with a source, a kernel and a clock of the test's own, and real collectors on
// loopback that decode what they get.

#ifndef TESTS_UNIT_MANAGER_SAMPLING_FIXTURE_H
#define TESTS_UNIT_MANAGER_SAMPLING_FIXTURE_H

#include "manager/sampling/reconciler.h"

#include <net/if_arp.h>
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "manager/discards/discards.h"
#include "manager/export/exporter.h"
#include "manager/export/poller.h"
#include "manager/fake_worker.h"
#include "manager/sampling/fake_drops.h"
#include "manager/service/service_table.h"
#include "net/counters/counters.h"
#include "net/routes/forwarding.h"
#include "support/datagram_socket.h"
#include "support/manual_timers.h"
#include "support/sflow_decoder.h"

namespace manager {

using Strings = std::vector<std::string>;

/// Notes what it is told; packets come when the test says so.
class FakeSource final : public capture::PacketSource {
public:
    explicit FakeSource(capture::SampleSink& sink) : m_sink(sink) {}

    [[nodiscard]] std::string Kind() const override { return "fake"; }
    void Add(std::uint32_t ifIndex, const capture::Settings& settings) override
    {
        if (!refusal.empty()) throw capture::Unavailable(capture::Unavailable::Cause::kOther, refusal);
        EXPECT_FALSE(counts.contains(ifIndex));
        counts[ifIndex] = {};
        Note("add", ifIndex, settings);
    }
    void Change(std::uint32_t ifIndex, const capture::Settings& settings) override
    {
        EXPECT_TRUE(counts.contains(ifIndex));
        Note("change", ifIndex, settings);
        if (!refusal.empty()) throw capture::Unavailable(capture::Unavailable::Cause::kOther, refusal);
    }
    [[nodiscard]] bool Sampled(std::uint32_t ifIndex) const override
    {
        return counts.contains(ifIndex) && !later.contains(ifIndex);
    }
    capture::Counts Remove(std::uint32_t ifIndex) override
    {
        EXPECT_TRUE(counts.contains(ifIndex));
        Drain();
        calls.push_back("remove " + std::to_string(ifIndex));
        const capture::Counts last = counts[ifIndex];
        counts.erase(ifIndex);
        return last;
    }
    [[nodiscard]] capture::Counts Read(std::uint32_t ifIndex) override { return counts.at(ifIndex); }
    [[nodiscard]] std::vector<InterfaceCounts> ReadAll() override
    {
        ++reads;
        std::vector<InterfaceCounts> all;
        for (const auto& [ifIndex, one] : counts) all.push_back({ifIndex, one});
        return all;
    }
    void Drain() override
    {
        ++drains;
        const auto samples = std::exchange(waiting, {});
        if (!samples.empty()) m_sink.OnSamples(samples);
        m_sink.OnDrained();
    }

    /// A packet is sampled, `pool` frames after the one before it.
    void Draw(std::uint32_t ifIndex, std::uint64_t pool = 1)
    {
        capture::Counts& now = counts.at(ifIndex);
        now.pool += pool;
        capture::Sample sample;
        sample.ifIndex = ifIndex;
        sample.rate = 10;
        sample.length = 100;
        sample.etherType = 0x0800;
        sample.header = frame;
        sample.pool = now.pool;
        sample.drops = now.drops;
        waiting.push_back(sample);
    }

    Strings calls;
    int reads = 0;  // of all counts
    int drains = 0;
    std::string refusal;
    std::set<std::uint32_t> later;  // added, but not attached yet
    std::map<std::uint32_t, capture::Counts> counts;
    std::vector<capture::Sample> waiting;
    std::vector<std::byte> frame{std::vector<std::byte>(100, std::byte{7})};

private:
    void Note(const std::string& what, std::uint32_t ifIndex, const capture::Settings& settings)
    {
        calls.push_back(what + " " + std::to_string(ifIndex) + " 1/" + std::to_string(settings.rate) + " " +
                        std::to_string(settings.headerSize) + (settings.ingress ? " in" : "") +
                        (settings.egress ? " out" : ""));
    }
    capture::SampleSink& m_sink;
};

class FakeForwarding final : public net::Forwarding {
public:
    net::Destination Resolve(const net::Entering& packet) override
    {
        asked.push_back(packet.ifIndex);
        lengths.push_back(packet.length);
        return answer;
    }
    net::Origin Trace(const net::Entering& packet, std::optional<std::uint32_t> enteredBy) override
    {
        traced.emplace_back(packet.ifIndex, enteredBy);
        return origin;
    }
    [[nodiscard]] std::uint16_t PortVlan(std::uint32_t) const override { return 0; }
    net::Destination answer;
    net::Origin origin;
    std::vector<std::pair<std::uint32_t, std::optional<std::uint32_t>>> traced;
    std::vector<std::uint32_t> asked, lengths;
};

class FakeReader final : public net::CounterReader {
public:
    std::span<const net::LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) override
    {
        m_counters.clear();
        for (const std::uint32_t ifIndex : ifIndexes) {
            m_counters.emplace_back();
            m_counters.back().ifIndex = ifIndex;
        }
        return m_counters;
    }
    std::optional<net::EthernetCounters> ReadEthernet(std::uint32_t) override { return std::nullopt; }
    std::optional<net::AggregateMember> ReadMember(std::uint32_t) override { return std::nullopt; }
    void Forget(std::uint32_t ifIndex) override { forgotten.push_back(ifIndex); }
    std::vector<std::uint32_t> forgotten;

private:
    std::vector<net::LinkCounters> m_counters;
};

/// Decodes what it gets, when it is asked; what is not asked for is dropped.
class Collector {
public:
    [[nodiscard]] CollectorSettings Settings(std::uint16_t size = 1400) const
    {
        return {htonl(INADDR_LOOPBACK), m_socket.Port(), size};
    }
    /// All flow samples that have come; loopback delivers at once.
    [[nodiscard]] std::vector<support::DecodedFlow> Flows() { return Take<support::DecodedFlow>(); }
    /// Likewise of counters.
    [[nodiscard]] std::vector<support::DecodedCounters> Counters()
    {
        return Take<support::DecodedCounters>();
    }

    /// All datagrams that have come, whole.
    [[nodiscard]] std::vector<support::Datagram> Datagrams()
    {
        std::vector<support::Datagram> all;
        while (const auto received = m_socket.Receive())
            all.push_back(support::DecodeDatagram(received->bytes));
        return all;
    }

    std::vector<std::uint32_t> sequences;
    std::vector<std::uint32_t> subAgents;  // of the same datagrams
    std::size_t largest = 0;

private:
    template <typename Sample>
    std::vector<Sample> Take()
    {
        std::vector<Sample> taken;
        while (const auto received = m_socket.Receive()) {
            largest = std::max(largest, received->bytes.size());
            const auto datagram = support::DecodeDatagram(received->bytes);
            sequences.push_back(datagram.sequence);
            subAgents.push_back(datagram.subAgent);
            for (const auto& sample : datagram.samples)
                if (const auto* wanted = std::get_if<Sample>(&sample)) taken.push_back(*wanted);
        }
        return taken;
    }

    support::DatagramSocket m_socket{support::DatagramSocket::Options{}};
};

class SamplingTest : public testing::Test {
protected:
    /// With a direction that all interfaces are sampled in besides.
    explicit SamplingTest(std::optional<Direction> added = std::nullopt)
        : own(added), reconciler({table, own, timers, links, forwarding, exporter, poller, discards}, [this] {
              return Wall();
          })
    {
        reconciler.SetSource(&source, {.kind = "fake", .reason = "", .permission = true});
        own.WhenChanged([this](const OwnChange& change) { reconciler.Reconcile(change); });
    }

    [[nodiscard]] WallTime Wall() const { return WallTime(std::chrono::seconds(1000) + timers.Elapsed()); }

    /// As an operation of a session is taken.
    void Apply(const Operation& operation)
    {
        const auto applied = table.Apply(operation);
        ASSERT_TRUE(applied) << applied.error();
        reconciler.Reconcile(*applied);
    }

    static net::Link LinkOf(std::uint32_t index, const std::string& name, const std::string& alias = "")
    {
        net::Link link;
        link.index = index;
        link.name = name;
        link.alias = alias;
        link.hardwareType = ARPHRD_ETHER;
        link.up = link.running = true;
        return link;
    }
    void Collect(const std::string& name, const Collector& collector, std::uint16_t size = 1400)
    {
        Apply(AddCollector{name, collector.Settings(size)});
    }
    void Update(const std::string& interface, const std::string& collector, std::uint32_t rate = 10)
    {
        Apply(UpdateInterface{interface, collector, "", {.rate = rate, .maxHeaderSize = 128, .interval = 0}});
    }
    /// The interface eth1, of index 5, is there and sampled for c1.
    void SampleEth1()
    {
        Collect("c1", c1);
        links.Put(LinkOf(5, "eth1"));
        Update("eth1", "c1");
    }
    Strings Calls() { return std::exchange(source.calls, {}); }
    void DrawAndDrain(std::uint32_t ifIndex, int packets = 1)
    {
        for (int i = 0; i < packets; ++i) source.Draw(ifIndex);
        source.Drain();
    }
    static std::vector<std::uint32_t> Sequences(const std::vector<support::DecodedFlow>& flows)
    {
        std::vector<std::uint32_t> sequences;
        for (const auto& flow : flows) sequences.push_back(flow.sequence);
        return sequences;
    }

    support::ManualTimers timers;
    net::Links links;
    FakeForwarding forwarding;
    FakeWorker worker{timers};
    std::shared_ptr<FakeReader> reader = std::make_shared<FakeReader>();
    Exporter exporter{&std::chrono::system_clock::now, [] { return std::chrono::milliseconds(5); }, 0};
    Poller poller{timers,
                  worker,
                  reader,
                  links,
                  [this] { exporter.Flush(); },
                  [this] { return std::chrono::steady_clock::time_point(timers.Elapsed()); },
                  &std::chrono::system_clock::now,
                  [](std::uint32_t) { return 0U; }};
    ServiceTable table;
    OwnSettings own;
    FakeDrops drops;
    Discards discards{{timers, links, own, exporter},
                      [this](capture::DropSink& sink) { return drops.Make(sink); },
                      [this] { return Wall(); }};
    Reconciler reconciler;
    FakeSource source{reconciler.Sink()};
    Collector c1, c2;
};

}  // namespace manager

#endif
