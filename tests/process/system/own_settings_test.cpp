// SPDX-License-Identifier: Apache-2.0
// The manager's own settings, from a commit to the datagrams at a collector: in effect at once, kept without
// the database, read again by the next manager, and unheard of by the configuration daemon. In a network of
// the test's own.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "system/own_settings.h"

namespace system_tests {
namespace {

TEST_F(OwnSettings, AreOnTheNextDatagramsAndLeaveTheSequencesAlone)
{
    Start();
    const Sampled before = Sample();
    EXPECT_EQ("127.0.0.1", before.from);
    EXPECT_EQ(0U, before.dscp);
    EXPECT_EQ(0U, before.subAgent);
    m_world->ManagerJournal().Skip();

    Commit("set oam sflow-manager collector c1 dscp 46");
    Sampled sampled = Sample();
    EXPECT_EQ(46U, sampled.dscp);
    EXPECT_EQ("127.0.0.1", sampled.from);
    EXPECT_EQ(before.datagram + 1, sampled.datagram);

    Commit("set oam sflow-manager collector c1 source-address 127.0.0.9");
    sampled = Sample();
    EXPECT_EQ("127.0.0.9", sampled.from);
    EXPECT_EQ(46U, sampled.dscp);

    Commit("set oam sflow-manager collector c1 dscp 46");
    Commit(
        "set oam sflow-manager collector c1 dscp 8; "
        "set oam sflow-manager collector c1 source-address 127.0.0.10; "
        "set oam sflow-manager collector c1 discards true; set oam sflow-manager discard-limit 0");
    sampled = Sample();
    EXPECT_EQ(8U, sampled.dscp);
    EXPECT_EQ("127.0.0.10", sampled.from);
    const auto shown = CollectorShown();
    EXPECT_EQ(8, shown.at("dscp"));
    EXPECT_EQ("127.0.0.10", shown.at("source-address"));
    EXPECT_EQ(true, shown.at("discards"));
    EXPECT_EQ(0, Sflow().at("manager").at("discard-limit"));
    EXPECT_THAT(m_world->CliDone("show sflow collectors"),
                testing::ContainsRegex("c1 +127\\.0\\.0\\.10 +- +8 +0 sent"));

    Commit("delete oam sflow-manager collector c1");
    sampled = Sample();
    EXPECT_EQ("127.0.0.1", sampled.from);
    EXPECT_EQ(0U, sampled.dscp);
    EXPECT_EQ(before.datagram + 4, sampled.datagram);
    EXPECT_EQ(before.sample + 4, sampled.sample);

    // The daemon has heard nothing of all that.
    m_world->CliDone("set oam sflow agent ipv4 192.0.2.10; commit");
    EXPECT_THAT(m_world->ManagerJournal().Until("SetAgentAddress 192.0.2.10"),
                ElementsAre("SetAgentAddress 192.0.2.10"));
}

TEST_F(OwnSettings, ASubAgentHasSequencesOfItsOwn)
{
    Start();
    Sample();
    Sample();
    for (const std::string number : {"7", "4294967295"}) {
        Commit("set oam sflow-manager sub-agent " + number);
        for (std::uint32_t n = 1; n <= 2; ++n) {
            const Sampled sampled = Sample();
            EXPECT_EQ(std::stoul(number), sampled.subAgent);
            EXPECT_EQ(n, sampled.datagram);
            EXPECT_EQ(n, sampled.sample);
        }
        EXPECT_THAT(m_world->CliDone("show sflow agent"), HasSubstr("Sub-agent  " + number + "\n"));
    }
    Commit("delete oam sflow-manager");
    const Sampled sampled = Sample();
    EXPECT_EQ(0U, sampled.subAgent);
    EXPECT_EQ(1U, sampled.datagram);
}

TEST_F(OwnSettings, ADirectionIsSampledBesidesUntilItIsDeleted)
{
    Start();
    const std::uint32_t index = Network::Index("busy");
    const auto sent = [&] { return CollectorShown().at("flow-samples-sent").get<std::string>(); };
    Injector("busy").Send(support::UdpFrame({}));
    const Sampled before = Sample();
    EXPECT_NE(index, before.output);

    Commit("set oam sflow-manager direction egress");
    EXPECT_EQ("egress", Sflow().at("manager").at("added-direction"));
    support::Await("leaving packets to be sampled", [&] {
        Injector("busy").Send(support::UdpFrame({}));
        const auto all = SamplesIn(*m_collector);
        return !all.empty() && all.back().output == index;
    });
    DecodingCollector::AwaitQuiet({&*m_collector});
    EXPECT_EQ(index, Sample("busy").output);
    EXPECT_NE(index, Sample().output) << "the interface's own direction is sampled as before";

    Commit("delete oam sflow-manager direction");
    EXPECT_FALSE(Sflow().at("manager").contains("added-direction"));
    const std::string until = sent();
    Injector("busy").Send(support::UdpFrame({}));
    EXPECT_NE(index, Sample().output);
    DecodingCollector::AwaitQuiet({&*m_collector});
    EXPECT_EQ(std::stoull(until) + 1, std::stoull(sent()));
}

TEST_F(OwnSettings, GoOnWithoutTheDatabaseAndAreReadAgainByANewManager)
{
    Start();
    Commit("set oam sflow-manager sub-agent 3; set oam sflow-manager collector c1 dscp 46");
    const Sampled before = Sample();
    EXPECT_EQ(1U, before.datagram);
    m_world->Cdbd().Kill();
    m_world->AwaitLog("sflow-mgr", "connection to the database ended");
    Sampled sampled = Sample();
    EXPECT_EQ(46U, sampled.dscp);
    EXPECT_EQ(3U, sampled.subAgent);
    EXPECT_EQ(2U, sampled.datagram);

    m_world->StartCdbd();
    Sflow();  // it is connected again
    sampled = Sample();
    EXPECT_EQ(3U, sampled.datagram) << "nothing is different, so nothing has begun anew";
    EXPECT_EQ(46U, sampled.dscp);

    m_world->Manager().Kill();
    m_world->StartManager();
    m_world->AwaitLoad();
    AwaitSampling();
    sampled = Sample();
    EXPECT_EQ(46U, sampled.dscp);
    EXPECT_EQ(3U, sampled.subAgent);
    Commit("set oam sflow-manager collector c1 dscp 10");
    EXPECT_EQ(10U, Sample().dscp);
}

TEST_F(OwnSettings, ChangedWhileTheManagerIsAwayAreInEffectOnItsReturnAndTheCommitterIsWarned)
{
    Start();
    m_world->Manager().Kill();
    m_world->AwaitLog("cdbd",
                      "sflow-mgr (process " + std::to_string(m_world->Manager().Pid()) + ") is disconnected");
    const std::string text =
        " stands, but no process that is connected subscribes to what it changes below "
        "/config/oam/sflow-manager; that takes effect when sflow-mgr connects";
    auto result = m_world->Cli("set oam sflow-manager collector c1 dscp 46; commit");
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.errors, HasSubstr(text));
    result = m_world->Cli("set oam sflow interface busy max-header-size 64; commit");
    EXPECT_THAT(result.errors, Not(HasSubstr("subscribes")))
        << "of the daemon's configuration the daemon hears";
    EXPECT_THAT(result.errors, HasSubstr("warning: sflow-mgr is not connected; start sflow-mgr"));
    result = m_world->Cli(
        "set oam sflow interface busy max-header-size 128; set oam sflow-manager sub-agent 9; commit");
    EXPECT_THAT(result.errors, HasSubstr(text)) << "part of it";
    m_world->StartManager();
    m_world->AwaitLoad();
    AwaitSampling();
    const Sampled sampled = Sample();
    EXPECT_EQ(46U, sampled.dscp);
    EXPECT_EQ(9U, sampled.subAgent);
}

TEST_F(OwnSettings, DoNotMakeACommitOfTheDaemonsWaitForTheManager)
{
    Start();
    m_world->Manager().Freeze();
    const auto begin = std::chrono::steady_clock::now();
    const auto result = m_world->Cli("set oam sflow interface busy max-header-size 64; commit");
    EXPECT_THAT(result.errors, HasSubstr("acknowledged by sflow-app"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8))
        << "cdbd waits 10 s for a subscriber";
    m_world->Manager().Thaw();
}

TEST_F(OwnSettings, OfACollectorThatComesLaterAreThoseOfItsFirstDatagram)
{
    Start();
    Commit("set oam sflow-manager collector c9 dscp 46");
    EXPECT_THAT(
        Problems(),
        ElementsAre("collector c9 collector-unknown: oam sflow-manager has settings for the collector c9, "
                    "but there is no collector of that name; set oam sflow collector c9 ip ADDRESS, or "
                    "delete oam sflow-manager collector c9"));
    DecodingCollector later, together;
    const auto add = [](const std::string& name, const DecodingCollector& at) {
        return "set oam sflow collector " + name + " ip 127.0.0.1; set oam sflow collector " + name +
               " port " + std::to_string(at.Port()) +
               "; set oam sflow interface busy flow-sampling-collector " + name;
    };
    const auto first = [](DecodingCollector& collector) {
        support::Await("a sample", [&] {
            Injector("far-end").Send(support::UdpFrame({}));
            return collector.Count() > 0;
        });
        return SamplesIn(collector).front();
    };
    Commit(add("c9", later));
    EXPECT_EQ(46U, first(later).dscp);
    EXPECT_EQ(1U, SamplesIn(later).front().datagram);
    // In one commit: the manager hears of the settings first.
    Commit(add("c10", together) +
           "; set oam sflow-manager collector c10 dscp 8; "
           "set oam sflow-manager collector c10 source-address 127.0.0.9");
    const Sampled sampled = first(together);
    EXPECT_EQ(8U, sampled.dscp);
    EXPECT_EQ("127.0.0.9", sampled.from);
}

TEST_F(OwnSettings, ThatCanNotBeHadAreNamedWithTheirRemedyAndNothingIsSent)
{
    Start();
    Sample();
    Commit("set oam sflow-manager collector c1 source-address 192.0.2.77");
    const std::string missing =
        "collector c1 source-address-missing: this machine does not have the address 192.0.2.77 that "
        "datagrams "
        "to it are to come from; ip address add 192.0.2.77/32 dev DEVICE, or set oam sflow-manager collector "
        "c1 "
        "source-address ADDRESS";
    EXPECT_THAT(Problems(), ElementsAre(missing));
    EXPECT_THAT(m_world->Log("sflow-mgr"),
                HasSubstr("collector c1: send from 192.0.2.77 to 127.0.0.1:" +
                          std::to_string(m_collector->Port()) + ": Cannot assign requested address"));
    const std::size_t heard = m_collector->Count();
    support::Await("datagrams to be lost", [&] {
        Injector("far-end").Send(support::UdpFrame({}));
        return CollectorShown().at("packets-lost") != "0";
    });
    EXPECT_EQ(heard, m_collector->Count());
    Network::Ip("address add 192.0.2.77/32 dev lo\n");
    support::Await("datagrams from that address", [&] {
        Injector("far-end").Send(support::UdpFrame({}));
        return m_collector->Count() > heard;
    });
    EXPECT_EQ("192.0.2.77", SamplesIn(*m_collector).back().from);
    EXPECT_THAT(Problems(), testing::IsEmpty());

    Commit(
        "delete oam sflow-manager collector c1 source-address; "
        "set oam sflow-manager collector c1 device vrf-none");
    EXPECT_THAT(
        Problems(),
        ElementsAre("collector c1 device-missing: there is no device vrf-none by which datagrams to it could "
                    "leave; make it, or: delete oam sflow-manager collector c1 device"));
    Commit("delete oam sflow-manager collector c1 device");
    DecodingCollector::AwaitQuiet({&*m_collector});
    EXPECT_EQ("127.0.0.1", Sample().from);
}

TEST_F(OwnSettings, ThatMakeNoSenseAreRefusedWithTheRemedy)
{
    Start();
    const auto refused = [&](const std::string& leaf, const std::string& value) {
        auto client = netconf::Client::Connect(m_world->NetconfSocket());
        const auto reply = client.Call(netconf::EditConfig(
            "<config xmlns=\"urn:switch:yang:switch-config\"><oam xmlns=\"urn:switch:yang:switch-oam-sflow\">"
            "<sflow-manager xmlns=\"urn:switch:yang:switch-oam-sflow-manager\">" +
            (leaf == "direction" ? "" : std::string("<collector><name>c1</name>")) + "<" + leaf + ">" +
            value + "</" + leaf + ">" + (leaf == "direction" ? "" : "</collector>") +
            "</sflow-manager></oam></config>"));
        EXPECT_FALSE(reply.ok);
        return reply.errors.empty() ? "" : reply.errors.front().message;
    };
    EXPECT_THAT(refused("dscp", "64"), HasSubstr("use a number from 0 to 63"));
    EXPECT_THAT(refused("direction", "sideways"), HasSubstr("use egress, ingress or both"));
    EXPECT_THAT(refused("device", "a/b"), HasSubstr("a device's name has no slash and no colon"));
    EXPECT_THAT(refused("source-address", "here"), HasSubstr("use an IPv4 address such as 192.0.2.1"));
    const auto shell = m_world->Cli("set oam sflow-manager direction up");
    EXPECT_EQ(1, shell.status);
    EXPECT_THAT(shell.errors, HasSubstr("egress, ingress, both"));
}

/// Two ways to a collector in another namespace, of which the routes prefer the one by "near".
class TwoWays : public OwnSettings {
protected:
    void SetUp() override
    {
        OwnSettings::SetUp();
        if (IsSkipped()) return;
        m_host.emplace();
        const std::string pid = std::to_string(m_host->Pid());
        Network::Ip(
            "link add near type veth peer name near-end\nlink add far type veth peer name away-end\n"
            "link set near-end netns " +
            pid + "\nlink set away-end netns " + pid +
            "\naddress add 10.1.0.1/24 dev near\naddress add 10.2.0.1/24 dev far\n"
            "link set near up\nlink set far up\n");
        m_host->Within([] {
            Network::Ip(
                "link set lo up\naddress add 10.9.0.1/32 dev lo\naddress add 10.1.0.2/24 dev near-end\n"
                "address add 10.2.0.2/24 dev away-end\nlink set near-end up\nlink set away-end up\n");
        });
        for (const char* const device : {"near", "far"}) Network::AwaitSending(device);
        m_host->Within([this] { m_collector.emplace("10.9.0.1"); });
    }
    ~TwoWays() override { m_collector.reset(); }

    std::optional<Network::Host> m_host;
};

TEST_F(TwoWays, DatagramsLeaveByTheDeviceThatIsCommitted)
{
    Network::Ip("route add 10.9.0.1 via 10.1.0.2 metric 1\nroute add 10.9.0.1 via 10.2.0.2 metric 2\n");
    Start();
    const Sampled before = Sample();
    EXPECT_EQ("10.1.0.1", before.from);
    Commit("set oam sflow-manager collector c1 device far");
    EXPECT_EQ("far", CollectorShown().at("device"));
    EXPECT_EQ("10.2.0.1", Sample().from);
    Commit("delete oam sflow-manager collector c1 device");
    const Sampled after = Sample();
    EXPECT_EQ("10.1.0.1", after.from);
    EXPECT_EQ(before.datagram + 2, after.datagram);
}

TEST_F(TwoWays, DatagramsAreRoutedInTheVrfThatIsCommitted)
{
    try {
        Network::Ip("link add vrf-x type vrf table 100\nlink set vrf-x up\n");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel has no VRFs: " << error.what();
    }
    Network::Ip(
        "link set far master vrf-x\naddress replace 10.2.0.1/24 dev far\n"
        "route add 10.9.0.1 via 10.1.0.2\nroute add table 100 10.9.0.1 via 10.2.0.2 dev far\n");
    Network::AwaitSending("far");
    Start();
    EXPECT_EQ("10.1.0.1", Sample().from);
    Commit("set oam sflow-manager collector c1 device vrf-x");
    EXPECT_EQ("10.2.0.1", Sample().from);
    Commit("set oam sflow-manager collector c1 source-address 10.2.0.1");
    EXPECT_EQ("10.2.0.1", Sample().from);
    Commit("delete oam sflow-manager");
    EXPECT_EQ("10.1.0.1", Sample().from);
}

}  // namespace
}  // namespace system_tests
