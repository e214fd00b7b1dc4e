// SPDX-License-Identifier: Apache-2.0
// The monitor against the kernel, in a network namespace of the test's own.

#include <chrono>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "net/link_recorder.h"
#include "net/monitor/monitor.h"
#include "net/monitor_fixture.h"
#include "support/network.h"

namespace net {
namespace {

using support::Network;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class MonitorTest : public MonitorFixture {
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        if (m_monitor != nullptr) Table().AddObserver(m_recorder);
    }

    Links& Table() { return m_monitor->CurrentLinks(); }

    bool ComesFor(const char* name, const std::function<bool(const Link&)>& condition)
    {
        return Comes([&] {
            const Link* link = Table().Find(name);
            return link != nullptr && condition(*link);
        });
    }
    /// Everything that the kernel has told so far is in the table.
    void Settle()
    {
        static int number = 0;
        const std::string last = "last" + std::to_string(++number);
        Network::Ip("link add " + last + " type bridge");
        ASSERT_TRUE(Comes([&] { return Table().Find(last) != nullptr; }));
        Network::Ip("link del " + last);
        ASSERT_TRUE(Comes([&] { return Table().Find(last) == nullptr; }));
    }

    LinkRecorder m_recorder;
};

TEST_F(MonitorTest, KnowsEverythingOnceStarted)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {"v0"});
    Network::Ip(
        "link property add dev v0 altname one\nlink property add dev v0 altname two\n"
        "link set v1 alias \"port 1/1/1\"");
    EXPECT_TRUE(Table().All().empty());
    m_monitor->Start();
    const Link* port = Table().Find("two");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->name, "v0");
    EXPECT_THAT(port->altNames, UnorderedElementsAre("one", "two"));
    EXPECT_EQ(port->index, Network::Index("v0"));
    EXPECT_EQ(port->hardwareType, 1);
    EXPECT_TRUE(port->up);
    EXPECT_TRUE(port->running);
    EXPECT_TRUE(port->promiscuous);  // a bridge makes its ports so
    EXPECT_EQ(port->speed, 10'000'000'000U);
    EXPECT_EQ(port->duplex, Duplex::kFull);
    EXPECT_EQ(port->master, Network::Index("br0"));
    EXPECT_NE(port->mac, MacAddress{});
    const Link* bridge = Table().Find("br0");
    ASSERT_NE(bridge, nullptr);
    EXPECT_EQ(bridge->kind, "bridge");
    EXPECT_FALSE(bridge->vlanFiltering);
    ASSERT_NE(Table().Find("port 1/1/1"), nullptr);
    EXPECT_FALSE(Table().Find("port 1/1/1")->promiscuous);
    ASSERT_NE(Table().Find("lo"), nullptr);
    EXPECT_TRUE(Table().Find("lo")->loopback);
}

TEST_F(MonitorTest, SeesLinksAppearAndVanish)
{
    m_monitor->Start();
    Network::Veth("v0", "v1");
    const std::uint32_t index = Network::Index("v0");
    EXPECT_TRUE(ComesFor("v0", [](const Link& link) { return link.running && link.speed != 0; }));
    Network::Ip("link del v0");
    EXPECT_TRUE(Comes([&] { return Table().Find("v1") == nullptr && Table().Find(index) == nullptr; }));
    EXPECT_THAT(m_recorder.Taken(), testing::Contains("removed " + std::to_string(index) + " v0"));
}

TEST_F(MonitorTest, FollowsEveryKindOfName)
{
    Network::Veth("v0", "v1");
    m_monitor->Start();
    // The kernel tells of the carrier a little later.
    for (const char* end : {"v0", "v1"})
        ASSERT_TRUE(ComesFor(end, [](const Link& link) { return link.running && link.speed != 0; }));
    m_recorder.Taken();
    const std::uint32_t index = Network::Index("v0");
    const std::string changed = "changed " + std::to_string(index) + " ";
    Network::Ip("link set v0 alias gigabit-ethernet-1/1/1");
    EXPECT_TRUE(Comes([&] { return Table().Find("gigabit-ethernet-1/1/1") != nullptr; }));
    EXPECT_THAT(m_recorder.Taken(), ElementsAre(changed + "v0"));
    Network::Ip("link property add dev v0 altname uplink");
    EXPECT_TRUE(Comes([&] { return Table().Find("uplink") != nullptr; }));
    EXPECT_THAT(m_recorder.Taken(), ElementsAre(changed + "v0"));
    Network::Ip("link property del dev v0 altname uplink");
    EXPECT_TRUE(Comes([&] { return Table().Find("uplink") == nullptr; }));
    EXPECT_THAT(m_recorder.Taken(), ElementsAre(changed + "v0"));
    Network::Ip("link set v0 name renamed");
    EXPECT_TRUE(Comes([&] { return Table().Find("renamed") != nullptr; }));
    EXPECT_EQ(Table().Find("v0"), nullptr);
    EXPECT_EQ(Table().Find("renamed")->index, index);
    EXPECT_THAT(m_recorder.Taken(), ElementsAre(changed + "renamed"));
}

TEST_F(MonitorTest, FollowsMasterAndState)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {});
    m_monitor->Start();
    const std::uint32_t bridge = Network::Index("br0");
    Network::Ip("link set v0 master br0");
    EXPECT_TRUE(ComesFor("v0", [&](const Link& link) { return link.master == bridge; }));
    Network::Ip("link set v0 nomaster");
    EXPECT_TRUE(ComesFor("v0", [&](const Link& link) { return link.master == 0; }));
    Network::Ip("link set v1 down");
    EXPECT_TRUE(ComesFor("v0", [](const Link& link) { return link.up && !link.running; }));
    EXPECT_TRUE(ComesFor("v1", [](const Link& link) { return !link.up; }));
    Network::Ip("link set v1 up");
    EXPECT_TRUE(ComesFor("v0", [](const Link& link) { return link.running; }));
}

TEST_F(MonitorTest, TakesAMoveToAnotherNamespaceForARemoval)
{
    Network::Veth("v0", "v1");
    m_monitor->Start();
    const support::Network::Host host;
    const std::string index = std::to_string(Network::Index("v1"));
    m_recorder.Taken();
    Network::Ip("link set v1 netns " + std::to_string(host.Pid()));
    EXPECT_TRUE(Comes([&] { return Table().Find("v1") == nullptr; }));
    EXPECT_THAT(m_recorder.Taken(), testing::Contains("removed " + index + " v1"));
}

TEST_F(MonitorTest, TheBridgeLeavingAPortIsNotItsRemoval)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {"v0"});
    m_monitor->Start();
    Network::Ip("link del br0");
    EXPECT_TRUE(Comes([&] { return Table().Find("br0") == nullptr; }));
    EXPECT_TRUE(ComesFor("v0", [](const Link& link) { return link.master == 0; }));
}

TEST_F(MonitorTest, KnowsThePortVlan)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {"v0"});
    m_monitor->Start();
    const std::uint32_t port = Network::Index("v0");
    EXPECT_EQ(m_monitor->CurrentForwarding().PortVlan(port), 0);
    try {
        Network::Ip("link set br0 type bridge vlan_filtering 1");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "bridges of this kernel do not filter VLANs: " << error.what();
    }
    EXPECT_TRUE(ComesFor("br0", [](const Link& link) { return link.vlanFiltering; }));
    EXPECT_TRUE(Comes([&] { return m_monitor->CurrentForwarding().PortVlan(port) == 1; }));
    Network::Bridge("vlan add dev v0 vid 7 pvid untagged");
    EXPECT_TRUE(Comes([&] { return m_monitor->CurrentForwarding().PortVlan(port) == 7; }));
    Network::Bridge("vlan del dev v0 vid 7");
    EXPECT_TRUE(Comes([&] { return m_monitor->CurrentForwarding().PortVlan(port) == 0; }));
    Network::Ip("link set br0 type bridge vlan_default_pvid 9");
    Network::Ip("link set v0 nomaster");
    EXPECT_TRUE(ComesFor("v0", [](const Link& link) { return link.master == 0; }));
    Network::Ip("link set v0 master br0");
    EXPECT_TRUE(Comes([&] { return m_monitor->CurrentForwarding().PortVlan(port) == 9; }));
}

TEST_F(MonitorTest, AStormOfLinksLeavesTheTableAsTheKernelHasIt)
{
    m_monitor->Start();
    m_recorder.Taken();
    std::string made;
    std::string gone;
    for (int i = 0; i < 250; ++i) {
        const std::string name = std::to_string(i);
        made += "link add a" + name + " type veth peer name b" + name + "\n";
        if (i % 5 != 0) gone += "link del a" + name + "\n";
    }
    Network::Ip(made);
    Network::Ip(gone);  // nothing was read meanwhile
    // The table has 101 links on the way up, too, but not yet the last ones.
    EXPECT_TRUE(Comes([&] { return Table().Find("a245") != nullptr && Table().All().size() == 101; }));
    EXPECT_EQ(Table().Find("a246"), nullptr);
    Settle();
    EXPECT_EQ(Table().All().size(), 101U);
}

TEST_F(MonitorTest, AsksForAllLinksWhereItMissedChanges)
{
    Network::Ip("link add old type bridge\nlink add busy type bridge\nlink set busy up");
    m_monitor->Start();
    // More than the socket holds, so the kernel drops the last ones. It tells of aliases of links that are
    // up.
    std::string lines;
    for (int i = 0; i < 4'000; ++i) lines += "link set busy alias x" + std::to_string(i) + "\n";
    Network::Ip(lines);
    Network::Ip("link del old\nlink add fresh type bridge\nlink set busy alias last");
    EXPECT_TRUE(Comes([&] {
        const Link* busy = Table().Find("busy");
        return Table().Find("fresh") != nullptr && Table().Find("old") == nullptr && busy != nullptr &&
               busy->alias == "last";
    }));
}

TEST_F(MonitorTest, OneTurnOfTheLoopIsShortInAStorm)
{
    m_monitor->Start();
    std::string made;
    for (int i = 0; i < 500; ++i) made += "link add br" + std::to_string(i) + " type bridge\n";
    Network::Ip(made);
    // Each handler that runs takes a part only: others get their turn in between.
    std::size_t most = 0;
    std::size_t before = m_recorder.Count();
    EXPECT_TRUE(Comes([&] {
        most = std::max(most, m_recorder.Count() - before);
        before = m_recorder.Count();
        return Table().All().size() == 501;
    }));
    EXPECT_LT(most, 300U);
}

TEST_F(MonitorTest, StoppedItHearsNothingMore)
{
    m_monitor->Start();
    m_monitor->Stop();
    m_recorder.Taken();
    Network::MakeBridge("br0", {});
    m_loop.restart();
    m_loop.run_for(std::chrono::milliseconds(20));
    EXPECT_THAT(m_recorder.Taken(), IsEmpty());
    m_monitor.reset();
    m_loop.restart();
    m_loop.run_for(std::chrono::milliseconds(1));
}

}  // namespace
}  // namespace net
