// SPDX-License-Identifier: Apache-2.0
// Counter samples of the whole manager: what the kernel has counted, at the right time, to the right
// collectors. Which packets are sampled, and how, does not matter here.

#include <algorithm>
#include <map>
#include <set>

#include "samples/samples_test.h"
#include "samples/shapes.h"

namespace samples_tests {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kNotCounted = 0xFFFFFFFF;

class CountersTest : public SamplesTest {
protected:
    void SetUp() override
    {
        SamplesTest::SetUp();
        if (IsSkipped()) return;
        if (const std::string why = support::WhyNotSource("packet-socket"); !why.empty()) GTEST_SKIP() << why;
    }

    /// Sends so many frames of the size on an interface.
    static void Send(const std::string& device, std::size_t frames, std::size_t size, std::uint8_t to = 2)
    {
        Injector(device).Send(std::vector<Bytes>(frames, support::UdpFrame({.to = to, .size = size})));
    }

    /// An interface m1 that counts the multicast that it receives, which virtual Ethernet does not, and some
    /// of it. False if the kernel has no such interfaces.
    static bool AddMulticast()
    {
        constexpr std::size_t kFrames = 4;
        Network::Veth("x1", "x2");
        try {
            Network::Ip("link add m1 link x1 type macvlan mode bridge\nlink set m1 up");
        } catch (const std::runtime_error&) {
            return false;
        }
        const Bytes multicast = To(support::UdpFrame({}), {1, 0, 0x5E, 1, 1, 1});
        Network::Ip("maddr add 01:00:5e:01:01:01 dev m1");
        Injector("x2").Send(std::vector<Bytes>(kFrames, multicast));
        support::Await("multicast", [] { return CountersOf("m1").multicast == kFrames; });
        return true;
    }

    /// When each of the samples of an interface came.
    static std::map<std::uint32_t, std::vector<WallTime>> TimesOf(Collector& collector)
    {
        std::map<std::uint32_t, std::vector<WallTime>> times;
        for (const auto& arrival : collector.Arrivals())
            for (const DecodedCounters& counters : arrival.datagram.Counters())
                times[counters.sourceIndex].push_back(arrival.time);
        return times;
    }
};

void ExpectKernels(const DecodedCounters& sample, const std::string& interface)
{
    SCOPED_TRACE(interface);
    const KernelCounters kernel = CountersOf(interface);
    ASSERT_TRUE(sample.generic);
    const auto& generic = *sample.generic;
    EXPECT_EQ(generic.inOctets, kernel.rxBytes);
    EXPECT_EQ(generic.inUnicast, kernel.rxPackets - kernel.multicast);
    const bool counted = kernel.multicast != 0 || interface == "br0";
    EXPECT_EQ(generic.inMulticast, counted ? kernel.multicast : kNotCounted)
        << "what its driver never counts is not known";
    EXPECT_EQ(generic.inDiscards, kernel.rxDropped);
    EXPECT_EQ(generic.inErrors, kernel.rxErrors);
    EXPECT_EQ(generic.outOctets, kernel.txBytes);
    EXPECT_EQ(generic.outUnicast, kernel.txPackets);
    EXPECT_EQ(generic.outDiscards, kernel.txDropped);
    EXPECT_EQ(generic.outErrors, kernel.txErrors);
    EXPECT_EQ(generic.inBroadcast, kNotCounted);
    EXPECT_EQ(generic.inUnknownProtocols, kNotCounted);
    EXPECT_EQ(generic.outMulticast, kNotCounted);
    EXPECT_EQ(generic.outBroadcast, kNotCounted);
}

// sFlow v5, if_counters: ifTable and ifXTable of RFC 2863, ifType of IANAifType-MIB (6, 24); ifStatus: bit
// 0 admin, bit 1 oper; ifDirection: 1 full duplex; what is not counted is all ones. ifInMulticastPkts (RFC
// 2863, 6): received for a group. Linux counts no broadcasts and no multicasts sent: they are among the
// unicasts.
TEST_F(CountersTest, AreTheKernelsAndWhatItDoesNotCountIsAllOnes)
{
    MakeBridge(2);
    Network::Veth("e1", "e2");
    Network::Ip(
        "link set e1 alias gigabit-ethernet-1/1/7\nlink add v1 type veth peer name v2\nlink set v1 up");
    std::map<std::string, std::string> names{{"p1", "p1"}, {"p2", "p2"},   {"gigabit-ethernet-1/1/7", "e1"},
                                             {"v1", "v1"}, {"br0", "br0"}, {"lo", "lo"}};
    Send("h1", 100, 300);
    Send("h2", 10, 1000, 1);
    Send("e2", 50, 400, 9);
    Injector("e2").Send(std::vector<Bytes>(7, support::EthernetFrame(1, 0xFF, 0x88B5, 64)));
    Send("v1", 5, 100);  // its other end is down: what leaves is lost
    if (AddMulticast()) names["m1"] = "m1";
    Collector collector;
    Agent& agent = Start();
    agent.AddCollector("c1", collector.Port());
    for (const auto& [name, device] : names) agent.Update(name, {.counters = "c1", .interval = 1});
    // Nothing moves any more but on the loopback interface, which carries the samples themselves.
    support::Await("counters of all", [&] { return TimesOf(collector).size() == names.size(); });

    std::map<std::uint32_t, DecodedCounters> last;
    for (const DecodedCounters& counters : collector.Counters()) last[counters.sourceIndex] = counters;
    for (const auto& [name, device] : names) {
        const DecodedCounters& sample = last.at(Network::Index(device));
        EXPECT_EQ(sample.generic->ifIndex, Network::Index(device));
        EXPECT_EQ(sample.portName, name) << "as it is called in the configuration";
        EXPECT_FALSE(sample.ethernet) << "which no virtual interface counts";
        if (device != "lo") ExpectKernels(sample, device);
    }
    const auto& p1 = *last.at(Network::Index("p1")).generic;
    EXPECT_EQ(p1.inOctets, 100U * 300);
    EXPECT_EQ(p1.inUnicast, 100U);
    EXPECT_EQ(p1.outOctets, 10U * 1000);
    EXPECT_EQ(p1.outUnicast, 10U);
    EXPECT_EQ(p1.ifType, 6U);
    EXPECT_EQ(p1.speed, 10'000'000'000U) << "as virtual Ethernet says";
    EXPECT_EQ(p1.direction, 1U) << "full duplex";
    EXPECT_TRUE(p1.adminUp);
    EXPECT_TRUE(p1.operUp);
    EXPECT_EQ(p1.promiscuous, 1U) << "a bridge's port";
    EXPECT_EQ(last.at(Network::Index("e1")).generic->promiscuous, 2U);
    EXPECT_EQ(last.at(Network::Index("e1")).generic->inUnicast, 57U);
    const auto& v1 = *last.at(Network::Index("v1")).generic;
    EXPECT_TRUE(v1.adminUp);
    EXPECT_FALSE(v1.operUp);
    EXPECT_EQ(v1.outDiscards, 5U);
    EXPECT_EQ(last.at(Network::Index("lo")).generic->ifType, 24U);
    if (names.contains("m1")) {
        EXPECT_EQ(last.at(Network::Index("m1")).generic->inMulticast, 4U);
        EXPECT_EQ(last.at(Network::Index("m1")).generic->inUnicast, 0U);
    }
}

TEST_F(CountersTest, GoOnWithTheTraffic)
{
    MakeBridge(2);
    Collector collector;
    Agent& agent = Start();
    agent.AddCollector("c1", collector.Port());
    agent.Update("p1", {.counters = "c1", .interval = 1});
    for (std::size_t i = 1; i <= 2; ++i) {
        Send("h1", 10 * i, 200);
        const auto kernel = CountersOf("p1");
        // The one that is on its way may be from before.
        const std::size_t seen = collector.Counters().size();
        const auto counters = collector.AwaitCounters(seen + 2).back();
        EXPECT_EQ(counters.generic->inOctets, kernel.rxBytes);
        EXPECT_EQ(counters.generic->inUnicast, 10 * i * (i + 1) / 2);
    }
}

// sFlow v5, sFlowCpInterval: the longest time between two samples of the counters; when within it, the agent
// decides.
TEST_F(CountersTest, BeginAtRandomInTheFirstIntervalAndThenComeEvenly)
{
    // Each begins in one of 3 seconds: that all begin in the same one has the probability 3^-17, 8e-9.
    constexpr std::uint32_t kInterfaces = 18;
    constexpr std::uint32_t kInterval = 3;
    // The manager's own is a few milliseconds. Where the kernel answers late, because others hold its lock on
    // the links, the counters are late, too: then another round says it.
    constexpr milliseconds kLate{900};
    constexpr int kRounds = 6;
    std::string lines;
    for (std::uint32_t i = 0; i < kInterfaces; ++i)
        lines += "link add e" + std::to_string(i) + " type veth peer name f" + std::to_string(i) + "\n";
    Network::Ip(lines);
    Agent& agent = Start();
    const auto round = [&](const std::string& name) -> std::string {
        Collector collector;
        agent.AddCollector(name, collector.Port());
        const WallTime begin = std::chrono::system_clock::now();
        for (std::uint32_t i = 0; i < kInterfaces; ++i)
            agent.Update("e" + std::to_string(i), {.counters = name, .interval = kInterval});
        const WallTime end = std::chrono::system_clock::now();
        support::Await("two samples of each interface", [&] {
            const auto times = TimesOf(collector);
            return times.size() == kInterfaces &&
                   std::ranges::all_of(times, [](const auto& one) { return one.second.size() >= 2; });
        });
        for (std::uint32_t i = 0; i < kInterfaces; ++i) agent.Unset("e" + std::to_string(i));
        std::set<std::int64_t> offsets;
        for (const auto& [index, times] : TimesOf(collector)) {
            const auto first = std::chrono::duration_cast<milliseconds>(times[0] - begin);
            const auto gap = std::chrono::duration_cast<milliseconds>(times[1] - times[0]);
            if (times[0] < begin || times[0] > end + seconds(kInterval) + kLate ||
                gap < seconds(kInterval) - kLate || gap > seconds(kInterval) + kLate)
                return "that of interface " + std::to_string(index) + " came after " +
                       std::to_string(first.count()) + " ms, the next " + std::to_string(gap.count()) +
                       " ms later";
            offsets.insert((times[0] - begin) / seconds(1));
        }
        return offsets.size() > 1 ? "" : "all came at once";
    };
    std::string wrong = "no round";
    for (int i = 0; i < kRounds && !wrong.empty(); ++i) wrong = round("c" + std::to_string(i));
    EXPECT_EQ(wrong, "");
}

TEST_F(CountersTest, GoToCounterCollectorsAndFlowsToFlowCollectors)
{
    MakeBridge(2);
    Collector flows, counters, both, nothing;
    Agent& agent = Start();
    agent.AddCollector("flows", flows.Port());
    agent.AddCollector("counters", counters.Port());
    agent.AddCollector("both", both.Port());
    agent.AddCollector("nothing", nothing.Port());
    agent.Update("p1", {.flows = "flows", .counters = "counters", .interval = 1});
    agent.AddFlows("p1", "both");
    agent.AddCounters("p1", "both");
    agent.Update("p2", {.flows = "flows", .counters = "counters", .interval = 0});
    Send("h1", 5, 100);
    Send("h2", 3, 100, 1);
    flows.AwaitFlows(8);
    both.AwaitFlows(5);
    counters.AwaitCounters(3);
    both.AwaitCounters(3);
    const std::uint32_t p1 = Network::Index("p1");
    EXPECT_EQ(flows.Flows().size(), 8U);
    EXPECT_TRUE(flows.Counters().empty());
    EXPECT_TRUE(counters.Flows().empty());
    EXPECT_EQ(counters.Counters(p1).size(), counters.Counters().size()) << "a polling of 0 sends nothing";
    EXPECT_EQ(both.Flows(p1).size(), 5U);
    EXPECT_EQ(both.Flows().size(), 5U);
    EXPECT_EQ(both.Counters(p1).size(), both.Counters().size());
    EXPECT_TRUE(nothing.Arrivals().empty());
    EXPECT_EQ(agent.OfInterface("p2", "counters_sent_total"), 0U);

    // Polling 0 also ends what had been polled.
    agent.Update("p2", {.flows = "flows", .counters = "counters", .interval = 1});
    support::Await("counters of p2", [&] { return !counters.Counters(Network::Index("p2")).empty(); });
    agent.Update("p1", {.flows = "flows", .counters = "counters", .interval = 0});
    const std::size_t until = counters.Counters(p1).size();
    counters.AwaitCounters(counters.Counters().size() + 2);
    EXPECT_EQ(counters.Counters(p1).size(), until);
}

}  // namespace

}  // namespace samples_tests
