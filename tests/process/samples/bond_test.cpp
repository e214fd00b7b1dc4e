// SPDX-License-Identifier: Apache-2.0
// Bonds: what samples and counters of a member say, and those of the bond itself. Needs a kernel with bonds.
// sFlow.org, sflow_lag.txt: lag_port_stats; sFlow v5, section 5: flow_sample's source_id, input and output.

#include <set>
#include <utility>

#include "samples/samples_test.h"
#include "support/poll.h"

namespace samples_tests {

namespace {

constexpr std::uint32_t kAllOnes = 0xFFFFFFFF;

class BondTest : public SourceTest {
protected:
    /// A bond b0 with the members m1 and m2, and one with n1 and n2 at the cables' other ends; both run LACP.
    void SetUp() override
    {
        SourceTest::SetUp();
        if (IsSkipped()) return;
        try {
            Network::Ip(
                "link add b0 type bond mode 802.3ad lacp_rate fast miimon 50\n"
                "link add b1 type bond mode 802.3ad lacp_rate fast miimon 50");
        } catch (const std::runtime_error& error) {
            GTEST_SKIP() << "this kernel has no bonds: " << error.what();
        }
        Network::Veth("m1", "n1");
        Network::Veth("m2", "n2");
        Network::Veth("v0", "v1");
        for (const auto& [member, bond] : {std::pair{"m1", "b0"}, {"m2", "b0"}, {"n1", "b1"}, {"n2", "b1"}})
            Network::Ip(std::string("link set ") + member + " down\nlink set " + member + " master " + bond);
        Network::Ip(
            "link set b0 address 02:00:00:00:00:20\nlink set v0 address 02:00:00:00:00:20\n"
            "link set b0 up\nlink set b1 up\n"
            "addr add 198.51.100.1/24 dev b0\naddr add 203.0.113.1/24 dev v0");
        SetSwitch("ipv4/ip_forward", "1");
        Network::AwaitSending("b0");
        Network::AwaitSending("b1");
    }

    /// The samples of the test's own packets, by data source. LACP's own frames are sampled, too.
    static std::vector<DecodedFlow> OwnFlows(Collector& collector, std::uint32_t source)
    {
        std::vector<DecodedFlow> own;
        for (const DecodedFlow& flow : collector.Flows(source))
            if (flow.header && support::NumberOf(flow.header->bytes) == kNumber) own.push_back(flow);
        return own;
    }
    static constexpr std::uint64_t kNumber = 0x5f105f10;
};

INSTANTIATE_TEST_SUITE_P(, BondTest, BothSources(), NameOfSource);

TEST_P(BondTest, AMemberIsNamedWhereItIsSampledAndTheBondWhereItIs)
{
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    for (const char* device : {"m1", "m2", "b0", "v0"}) agent.Update(device, {.flows = "c1"});
    const std::uint32_t bond = Network::Index("b0");
    const std::set<std::uint32_t> members{Network::Index("m1"), Network::Index("m2")};

    Injector("b1").Send(support::UdpFrame(
        {.to = 0x20, .source = "198.51.100.9", .destination = "198.51.100.1", .number = kNumber}));
    support::Await("a sample of the bond", [&] { return !OwnFlows(collector, bond).empty(); });
    std::vector<DecodedFlow> ofMembers;
    support::Await("a sample of a member", [&] {
        for (const std::uint32_t member : members)
            for (const DecodedFlow& flow : OwnFlows(collector, member)) ofMembers.push_back(flow);
        return !ofMembers.empty();
    });
    const DecodedFlow ofBond = OwnFlows(collector, bond).front();
    EXPECT_EQ(ofBond.input, (DecodedPort{0, bond}));
    EXPECT_EQ(ofBond.output, kInternal);
    EXPECT_TRUE(members.contains(ofMembers.front().sourceIndex));
    EXPECT_EQ(ofMembers.front().input, (DecodedPort{0, ofMembers.front().sourceIndex}));
    EXPECT_EQ(ofMembers.front().output, kInternal);

    // Which member a routed packet leaves by is the bond's choice, after the route's.
    Injector("v1").Send(support::UdpFrame(
        {.to = 0x20, .source = "203.0.113.9", .destination = "198.51.100.77", .number = kNumber}));
    const std::uint32_t entry = Network::Index("v0");
    support::Await("a sample of what is routed", [&] { return !OwnFlows(collector, entry).empty(); });
    EXPECT_EQ(OwnFlows(collector, entry).front().output, (DecodedPort{0, bond}));
}

TEST_P(BondTest, AMembersCountersHaveTheRecordOfLacp)
{
    Collector collector;
    Agent& agent = StartSource();
    agent.AddCollector("c1", collector.Port());
    for (const char* device : {"m1", "b0"}) agent.Update(device, {.counters = "c1", .interval = 1});
    const std::uint32_t member = Network::Index("m1"), bond = Network::Index("b0");
    constexpr std::uint8_t kRuns = 0x3C;  // aggregation, synchronization, collecting, distributing
    support::Await("LACP", [&] {
        const auto counters = collector.Counters(member);
        return !counters.empty() && counters.back().lag && (counters.back().lag->actorState & kRuns) == kRuns;
    });
    const support::DecodedLag lag = collector.Counters(member).back().lag.value();
    EXPECT_EQ(lag.aggregate, bond);
    EXPECT_NE(lag.actorSystem, "00:00:00:00:00:00");
    EXPECT_NE(lag.partnerSystem, "00:00:00:00:00:00");
    EXPECT_NE(lag.partnerSystem, lag.actorSystem);
    EXPECT_EQ(lag.partnerState & kRuns, kRuns);
    EXPECT_GT(lag.lacpdusIn, 0U);
    EXPECT_NE(lag.lacpdusIn, kAllOnes);
    EXPECT_GT(lag.lacpdusOut, 0U);
    EXPECT_NE(lag.lacpdusOut, kAllOnes);
    EXPECT_EQ(lag.illegalIn, 0U);

    support::Await("the bond's own", [&] { return !collector.Counters(bond).empty(); });
    const DecodedCounters own = collector.Counters(bond).back();
    EXPECT_FALSE(own.lag);
    EXPECT_EQ(own.generic->ifType, 161U);
}

}  // namespace

}  // namespace samples_tests
