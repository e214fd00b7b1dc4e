// SPDX-License-Identifier: Apache-2.0
// Dropped packets, from the kernel to the collectors that want notifications of them: each that the test has
// sent is told or counted, in datagrams, in the state and in the metrics. In a network of the test's own,
// with the kernel's own drops.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "system/drops.h"

namespace system_tests {
namespace {

using std::chrono::steady_clock;

constexpr const char* kAtBusy = "interface=\"busy\"";

/// Whether the running kernel has a function of that name.
bool IsFunction(const std::string& name)
{
    std::ifstream symbols("/proc/kallsyms");
    for (std::string address, type, symbol; symbols >> address >> type >> symbol;) {
        if (symbol == name && (type == "t" || type == "T")) return true;
        std::getline(symbols, address);
    }
    return false;
}

/// The reason's entry of an interface's drops.
nlohmann::json ReasonIn(const nlohmann::json& drops, const std::string& name)
{
    for (const auto& reason : drops.at("reason"))
        if (reason.at("name") == name) return reason;
    throw std::runtime_error("no reason " + name + " in " + drops.dump());
}

/// One after the other without a gap, whatever is in them, and discarded packets apart from the rest.
void ExpectWholeAndApart(const std::vector<Arrival>& arrivals)
{
    for (std::size_t i = 0; i < arrivals.size(); ++i) {
        const auto& datagram = arrivals[i].datagram;
        EXPECT_EQ(i + 1, datagram.sequence);
        const std::size_t discards = datagram.Discards().size();
        EXPECT_TRUE(discards == 0 || discards == datagram.samples.size()) << "datagram " << i + 1;
    }
}

void ExpectSequence(const std::vector<DecodedDiscard>& discards)
{
    for (std::size_t i = 0; i < discards.size(); ++i) {
        EXPECT_EQ(i + 1, discards[i].sequence);
        EXPECT_EQ(0U, discards[i].drops);
    }
}

/// What a notification of this frame at "busy" says, with a header of 64 bytes.
void ExpectToldOf(const Bytes& frame, const DecodedDiscard& discard)
{
    const std::uint32_t busy = Network::Index("busy");
    EXPECT_EQ(0U, discard.sourceClass);
    EXPECT_EQ(busy, discard.sourceIndex);
    EXPECT_EQ(busy, discard.input);
    EXPECT_EQ(0U, discard.output);
    ASSERT_TRUE(discard.header);
    EXPECT_EQ(1U, discard.header->protocol) << "Ethernet";
    EXPECT_EQ(frame.size() + 4, discard.header->frameLength);
    EXPECT_EQ(4U, discard.header->stripped);
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 64), discard.header->bytes);
    EXPECT_FALSE(discard.trap);
    ASSERT_TRUE(discard.function);
    EXPECT_TRUE(IsFunction(*discard.function)) << *discard.function;
}

TEST_F(Drops, OfTwoKindsAreToldCountedAndShownWhileSamplesGoOn)
{
    Start();
    Watch(std::string(kWanted) + "; set oam sflow interface busy max-header-size 64");
    const std::size_t flows = m_collector->Flows().size();
    constexpr std::uint64_t kToNoSocket = 7, kToOther = 6, kAll = kToNoSocket + kToOther;
    const auto isToOther = [](std::uint64_t number) { return number % 5 < 2; };
    std::vector<Bytes> frames;
    for (std::uint64_t n = 0; n < kAll; ++n) frames.push_back(isToOther(n) ? ToOther(n) : ToNoSocket(n));
    Send(frames);

    const auto told = AwaitDiscards("busy", kAll);
    ASSERT_EQ(kAll, told.size());
    ExpectSequence(told);
    for (std::size_t i = 0; i < kAll; ++i) {
        SCOPED_TRACE(i);
        ExpectToldOf(frames[i], told[i]);
        EXPECT_EQ(isToOther(i) ? kOtherHost : kNoSocket, told[i].linuxReason);
        EXPECT_EQ(isToOther(i) ? kUnknownL2 : kPortUnreachable, told[i].reason);
    }
    EXPECT_EQ(flows + kAll, m_collector->AwaitFlows(flows + kAll).size()) << "each was sampled too";
    ExpectWholeAndApart(m_collector->Arrivals());

    const nlohmann::json shown = DropsShown("busy");
    EXPECT_EQ(Network::Index("busy"), shown.at("ifindex"));
    EXPECT_EQ(kAll, CountIn(shown, "packets"));
    EXPECT_EQ(0U, CountIn(shown, "packets-not-told"));
    EXPECT_EQ(2U, shown.at("reason").size());
    EXPECT_EQ(kToNoSocket, CountIn(ReasonIn(shown, kNoSocket), "packets"));
    EXPECT_EQ(kPortUnreachable, ReasonIn(shown, kNoSocket).at("code"));
    EXPECT_EQ(told.back().function, ReasonIn(shown, kNoSocket).at("function").get<std::string>());
    EXPECT_EQ(kToOther, CountIn(ReasonIn(shown, kOtherHost), "packets"));
    EXPECT_EQ(kUnknownL2, ReasonIn(shown, kOtherHost).at("code"));
    EXPECT_EQ(true, CollectorShown().at("discards"));
    EXPECT_EQ(std::to_string(kAll), CollectorShown().at("discards-sent").get<std::string>());
    EXPECT_THAT(m_world->CliDone("show sflow collectors"), HasSubstr(std::to_string(kAll) + " sent\n"));
    EXPECT_THAT(m_world->CliDone("show sflow drops"), testing::ContainsRegex("busy +NO_SOCKET +7 "));

    const auto numbers = Numbers();
    const std::string ofReason = std::string("sflow_drops_total{") + kAtBusy + ",reason=\"";
    EXPECT_EQ(1U, numbers.At("sflow_drops_watched"));
    EXPECT_EQ(kToNoSocket, numbers.At(ofReason + kNoSocket + "\"}"));
    EXPECT_EQ(kToOther, numbers.At(ofReason + kOtherHost + "\"}"));
    EXPECT_EQ(kAll, numbers.Sum("sflow_drops_total"));
    EXPECT_EQ(0U, numbers.At(std::string("sflow_drops_not_told_total{") + kAtBusy + "}"));
    EXPECT_EQ(kAll, numbers.At("sflow_collector_samples_total{collector=\"c1\",kind=\"discard\"}"));
}

TEST_F(Drops, ClearedCountFromZeroAndNotificationsGoOn)
{
    Start();
    Watch(kWanted);
    SendToOther(3);
    EXPECT_EQ(3U, AwaitDiscards("busy", 3).size());
    EXPECT_EQ(3U, PacketsShown("busy"));
    m_world->CliDone("clear sflow statistics");
    EXPECT_EQ(nullptr, DropsShown("busy"));
    EXPECT_THAT(m_world->CliDone("show sflow drops"), Not(HasSubstr(kOtherHost)));
    EXPECT_EQ("0", CollectorShown().at("discards-sent").get<std::string>());
    SendToOther(2);
    const auto told = AwaitDiscards("busy", 5);
    EXPECT_EQ(5U, told.size());
    ExpectSequence(told);
    EXPECT_EQ(2U, PacketsShown("busy"));
    EXPECT_EQ(2U, CountIn(ReasonIn(DropsShown("busy"), kOtherHost), "packets"));
    EXPECT_EQ("2", CollectorShown().at("discards-sent").get<std::string>());
    EXPECT_EQ(5U, Numbers().Sum("sflow_drops_total")) << "monitoring counts on";
}

TEST_F(Drops, BeyondTheLimitAreCountedAndTheNextNotificationSaysHowMany)
{
    constexpr std::uint64_t kLimit = 10, kBurst = 500;
    Start();
    Watch(std::string(kWanted) + "; set oam sflow-manager discard-limit " + std::to_string(kLimit));
    EXPECT_EQ(kLimit, Sflow().at("manager").at("discard-limit"));
    const auto begin = steady_clock::now();
    SendToOther(kBurst);
    support::Await("the burst to be counted", [&] { return PacketsShown("busy") >= kBurst; });
    const auto seconds = std::chrono::floor<std::chrono::seconds>(steady_clock::now() - begin).count();
    EXPECT_EQ(kBurst, PacketsShown("busy"));
    const std::uint64_t told = kBurst - PacketsShown("busy", "packets-not-told");
    EXPECT_GE(told, kLimit);
    EXPECT_LE(told, kLimit * static_cast<std::uint64_t>(seconds + 1));
    EXPECT_EQ(told, AwaitDiscards("busy", told).size());
    EXPECT_EQ(kBurst - told, Numbers().At(std::string("sflow_drops_not_told_total{") + kAtBusy + "}"));

    // One at a time, until one is told: what comes later can't be in it then.
    std::uint64_t sent = kBurst;
    support::Await("a notification", [&] {
        SendToOther(1);
        ++sent;
        support::Await("it to be counted", [&] { return PacketsShown("busy") >= sent; });
        return sent - PacketsShown("busy", "packets-not-told") > told;
    });
    const auto all = AwaitDiscards("busy", told + 1);
    ASSERT_EQ(told + 1, all.size());
    EXPECT_EQ(told + 1, all.back().sequence);
    EXPECT_EQ(sent, all.back().sequence + all.back().drops) << "told and not told";
    EXPECT_EQ(all.back().drops, PacketsShown("busy", "packets-not-told"));
}

TEST_F(Drops, ALimitOfZeroCountsOnly)
{
    Start();
    Watch(std::string(kWanted) + "; set oam sflow-manager discard-limit 0");
    SendToOther(20);
    support::Await("them to be counted", [&] { return PacketsShown("busy") == 20; });
    EXPECT_EQ(20U, PacketsShown("busy", "packets-not-told"));
    Commit("set oam sflow-manager discard-limit 100");
    SendToOther(1);
    const auto told = AwaitDiscards("busy", 1);
    ASSERT_EQ(1U, told.size());
    EXPECT_EQ(20U, told[0].drops);
}

TEST_F(Drops, AtAnInterfaceThatIsNotConfiguredAreToldWhileAllAreWanted)
{
    Network::Veth("idle", "idle-end");
    Network::AwaitSending("idle-end");
    Start();
    Watch(kWanted);
    SendToOther(3, "idle-end");
    SendToOther(1);
    EXPECT_EQ(1U, AwaitDiscards("busy", 1).size());
    EXPECT_EQ(0U, DiscardsAt("idle").size());
    EXPECT_TRUE(DropsShown("idle").is_null());

    Commit("set oam sflow-manager discard-interfaces all");
    EXPECT_EQ("all", Sflow().at("manager").at("discard-interfaces"));
    SendToOther(4, "idle-end");
    auto told = AwaitDiscards("idle", 4);
    ASSERT_EQ(4U, told.size());
    ExpectSequence(told);
    const std::uint32_t idle = Network::Index("idle");
    for (const DecodedDiscard& discard : told) {
        EXPECT_EQ(idle, discard.input);
        EXPECT_EQ(kOtherHost, discard.linuxReason);
        EXPECT_EQ(128U, discard.header->bytes.size()) << "as where nothing is configured";
    }
    EXPECT_EQ(idle, DropsShown("idle").at("ifindex"));
    EXPECT_EQ(4U, PacketsShown("idle"));
    EXPECT_EQ(4U, Numbers().At("sflow_drops_total{interface=\"idle\",reason=\"OTHERHOST\"}"));

    Commit("set oam sflow-manager discard-interfaces configured");
    SendToOther(2, "idle-end");
    SendToOther(1);
    EXPECT_EQ(2U, AwaitDiscards("busy", 2).size());
    EXPECT_EQ(4U, DiscardsAt("idle").size());
    ExpectWholeAndApart(m_collector->Arrivals());
}

TEST_F(Drops, ACollectorThatNoLongerWantsThemGetsNoneAndTheOtherGoesOn)
{
    DecodingCollector other;
    Start("127.0.0.1", R"(,{"name":"c2","ip":"127.0.0.1","port":)" + std::to_string(other.Port()) + "}");
    Watch(std::string(kWanted) + "; set oam sflow-manager collector c2 discards true");
    SendToOther(3);
    EXPECT_EQ(3U, AwaitDiscards("busy", 3).size());
    EXPECT_EQ(3U, AwaitDiscards("busy", 3, other).size());

    Commit("set oam sflow-manager collector c1 discards false");
    const std::size_t flows = m_collector->Flows().size();
    SendToOther(2);
    const auto told = AwaitDiscards("busy", 5, other);
    ASSERT_EQ(5U, told.size());
    ExpectSequence(told);
    EXPECT_EQ(flows + 2, m_collector->AwaitFlows(flows + 2).size());
    EXPECT_EQ(3U, DiscardsAt("busy").size());
    EXPECT_EQ(5U, PacketsShown("busy"));
    EXPECT_EQ("3", CollectorShown("c1").at("discards-sent"));
    EXPECT_EQ("5", CollectorShown("c2").at("discards-sent"));

    Commit("delete oam sflow-manager collector c2");
    support::Await("nothing to be looked at",
                   [&] { return Sflow().at("manager").at("discard-interfaces") == "none"; });
    EXPECT_EQ("Dropped packets\n  Not looked at  no collector wants notifications of them\n",
              m_world->CliDone("show sflow drops"));
    EXPECT_EQ(0U, Numbers().At("sflow_drops_watched"));
    SendToOther(2);
    EXPECT_EQ(flows + 4, m_collector->AwaitFlows(flows + 4).size());
    DecodingCollector::AwaitQuiet({&*m_collector, &other});
    EXPECT_EQ(3U, DiscardsAt("busy").size());
    EXPECT_EQ(5U, DiscardsAt("busy", other).size());
}

TEST_F(Drops, OfInterfacesThatHaveGoneAreForgotten)
{
    Start();
    Watch(std::string(kWanted) + "; set oam sflow-manager discard-interfaces all");
    for (int round = 0; round < 20; ++round) {
        Network::Veth("brief", "brief-end");
        Network::AwaitSending("brief-end");
        SendToOther(50, "brief-end");
        Network::Ip("link delete brief\n");
    }
    std::size_t told = 0;
    support::Await("notifications", [&] {
        for (const Arrival& arrival : m_collector->Arrivals()) told += arrival.datagram.Discards().size();
        return told > 0;
    });
    std::vector<std::string> interfaces;
    EXPECT_TRUE(support::Becomes([&] { return (interfaces = InterfacesShown()).empty(); }))
        << testing::PrintToString(interfaces);
    EXPECT_EQ(0U, Numbers().Sum("sflow_drops_total"));
}

// Else one that is dropped would beget another.
TEST_F(Drops, OfTheManagersOwnDatagramsAreCountedAndNotTold)
{
    // No socket is at port 1.
    Start("127.0.0.1", R"(,{"name":"c2","ip":"127.0.0.1","port":1})");
    Watch(std::string(kWanted) +
          "; set oam sflow-manager collector c2 discards true; set oam sflow-manager discard-interfaces all");
    SendToOther(3);
    EXPECT_EQ(3U, AwaitDiscards("busy", 3).size());
    EXPECT_GE(PacketsShown("lo"), 1U);
    EXPECT_EQ(PacketsShown("lo"), PacketsShown("lo", "packets-not-told"));
    EXPECT_EQ(0U, DiscardsAt("lo").size());
    EXPECT_EQ("3", CollectorShown("c1").at("discards-sent"));
}

TEST_F(Drops, SettingsThatMakeNoSenseAreRefusedWithTheRemedy)
{
    Start();
    const auto expectRefused = [this](const std::string& setting, const std::string& text) {
        const auto result = m_world->Cli("set oam sflow-manager " + setting);
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.errors, HasSubstr(text));
    };
    expectRefused("discard-limit 10001", "discard-limit 10001");
    expectRefused("discard-limit 10001", "write 0..10000 notifications per second");
    expectRefused("discard-limit -1", "write 0..10000 notifications per second");
    expectRefused("discard-interfaces some", "configured, all");
    expectRefused("collector c1 discards maybe", "true");
    auto client = netconf::Client::Connect(m_world->NetconfSocket());
    const auto reply = client.Call(netconf::EditConfig(
        "<config xmlns=\"urn:switch:yang:switch-config\"><oam xmlns=\"urn:switch:yang:switch-oam-sflow\">"
        "<sflow-manager xmlns=\"urn:switch:yang:switch-oam-sflow-manager\">"
        "<discard-limit>10001</discard-limit></sflow-manager></oam></config>"));
    EXPECT_FALSE(reply.ok);
    ASSERT_EQ(1U, reply.errors.size());
    EXPECT_EQ("invalid-value", reply.errors.front().tag);
    EXPECT_THAT(reply.errors.front().message, HasSubstr("use a number from 0 to 10000"));
}

TEST_F(Drops, AreToldByTheNextManager)
{
    Start();
    Watch(kWanted);
    SendToOther(2);
    EXPECT_EQ(2U, AwaitDiscards("busy", 2).size());
    m_world->Manager().Kill();
    SendToOther(5);  // nothing sees these
    m_world->StartManager();
    m_world->AwaitLoad();
    support::Await("packets to be looked at", [&] {
        const nlohmann::json sflow = Sflow();
        return sflow.at("manager").at("discard-interfaces") == "configured" &&
               sflow.at("interface").at(0).value("packet-source", "none") != "none";
    });
    SendToOther(3);
    const auto told = AwaitDiscards("busy", 5);
    ASSERT_EQ(5U, told.size());
    ExpectSequence({told.begin() + 2, told.end()});
    EXPECT_EQ(3U, PacketsShown("busy"));
}

}  // namespace
}  // namespace system_tests
