// SPDX-License-Identifier: Apache-2.0
// What the shell shows of a switch at work, and what its requests do: kernel interfaces in a network of the
// test's own, packets that the test sends, and collectors that it reads.

#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/metrics.h"
#include "system/event_monitor.h"
#include "system/own_settings.h"

namespace system_tests {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::StartsWith;

constexpr std::uint16_t kMetricsPort = 9100;  // in the test's own network
constexpr std::uint32_t kTestSubAgent = 0xFFFFFFFF;

class Screens : public OwnSettings {
protected:
    [[nodiscard]] WorldOptions Options() const override
    {
        WorldOptions options = OwnSettings::Options();
        options.managerArguments = {"--metrics", "127.0.0.1:" + std::to_string(kMetricsPort)};
        return options;
    }

    void SetUp() override
    {
        OwnSettings::SetUp();
        if (!IsSkipped()) Start();
    }

    RunResult Cli(const std::string& commands) { return m_world->Cli(commands); }

    // The status is 1, nothing is on standard output, and the error has this text.
    void ExpectRefused(const std::string& command, const std::string& text)
    {
        const auto result = Cli(command);
        EXPECT_EQ(1, result.status) << command;
        EXPECT_EQ("", result.output) << command;
        EXPECT_THAT(result.errors, HasSubstr(text)) << command;
    }

    // No line is longer than what fits where there is no terminal.
    static void ExpectNarrow(const std::string& text)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 79U) << line;
    }
};

// ---- show interfaces ----

TEST_F(Screens, InterfacesOfTheKernelAreShownSampledOrWithTheReason)
{
    Network::Ip("link add spare type bridge\nlink set far-end alias uplink\n");
    Commit(
        "set oam sflow interface uplink sampling-rate 512; set oam sflow interface uplink "
        "flow-sampling-collector c1");
    EXPECT_EQ(0, Cli("set oam sflow interface eth9 flow-sampling-collector c1; commit").status);
    const auto row = [](const std::string& text) { return ContainsRegex("(^|\n)" + text + "( +[0-9]+)?\n"); };
    support::Await("both to be sampled",
                   [&] { return Cli("show interfaces").output.find("1 in 512") != std::string::npos; });
    const std::string shown = m_world->CliDone("show interfaces");
    ExpectNarrow(shown);
    EXPECT_THAT(shown, AllOf(row("busy +- +10G +up +1 in 1 +busy +veth"),
                             row("far-end +uplink +10G +up +1 in 512 +uplink +veth"),
                             row("spare +- +- +down +no: not configured +- +bridge"),
                             ContainsRegex("\n- +- +- +missing +no: [a-z-]+ +eth9 +-( +-)?\n")));

    const auto sflow = nlohmann::json::parse(m_world->CliDone("show interfaces | json"))
                           .at("switch-state:state")
                           .at("oam")
                           .at("sflow");
    const auto entry = [&](const char* list, const std::string& name) {
        for (const auto& each : sflow.at(list))
            if (each.at("name") == name) return each;
        return nlohmann::json();
    };
    const auto link = entry("kernel-interface", "far-end");
    EXPECT_EQ("uplink", link.at("alias"));
    EXPECT_EQ("10000000000", link.at("speed"));
    EXPECT_EQ("up", link.at("oper-status"));
    EXPECT_EQ(Network::Index("far-end"), link.at("ifindex"));
    EXPECT_EQ("down", entry("kernel-interface", "spare").at("admin-status"));
    EXPECT_EQ("far-end", entry("interface", "uplink").at("kernel-interface"));
    EXPECT_NE("none", entry("interface", "uplink").at("packet-source"));
    EXPECT_EQ("interface", entry("problem", "eth9").at("subject"));

    // What happens to the interface shows.
    Network::Ip("link set far-end down\n");
    support::Await("no link", [&] {
        return testing::Matches(AllOf(row("busy +- +10G +no link +1 in 1 +busy +veth"),
                                      row("far-end +uplink +10G +down +1 in 512 +uplink +veth")))(
            Cli("show interfaces").output);
    });
    Network::Ip("link delete busy\n");
    support::Await("the interface to be missing", [&] {
        return testing::Matches(ContainsRegex("\n- +- +- +missing +no: [a-z-]+ +busy +-( +-)?\n"))(
            Cli("show interfaces").output);
    });
}

// ---- show sflow interface ----

TEST_F(Screens, InterfacesAreShownByNameAndRange)
{
    Network::Ip("link add p2 type veth peer name p4\n");
    EXPECT_EQ(0,
              Cli("set oam sflow interface p[2-4] flow-sampling-collector c1; set oam sflow interface bare "
                  "polling-interval 5; commit")
                  .status);
    support::Await("the interfaces to be in the state",
                   [&] { return Cli("show sflow interface p4").status == 0; });
    EXPECT_THAT(m_world->CliDone("show sflow interface busy"),
                AllOf(HasSubstr("busy"), Not(HasSubstr("p2"))));
    const auto ranged = Cli("show sflow interface p[2-4] busy");
    EXPECT_EQ(0, ranged.status) << ranged.errors;
    EXPECT_THAT(ranged.output,
                AllOf(HasSubstr("\n  p2 "), HasSubstr("\n  p3 "), HasSubstr("\n  p4 "), HasSubstr("busy")));
    EXPECT_EQ("", ranged.errors);
    const auto part = Cli("show sflow interface p[3-6] detail");
    EXPECT_EQ(0, part.status);
    EXPECT_THAT(part.output, AllOf(HasSubstr("p3"), HasSubstr("p4"), Not(HasSubstr("p2"))));
    EXPECT_EQ(
        "warning: 2 of the 4 of p[3-6] are not in the state, the first of them p5; show sflow interface "
        "lists those "
        "that there are\n",
        part.errors);
    ExpectRefused("show sflow interface p[7-9]", "there is no interface p[7-9] in the state");
    ExpectRefused("show sflow interface nowhere", "there is no interface nowhere in the state");
    ExpectRefused("show sflow interface bare", "it has no collector; set oam sflow interface bare");
    ExpectRefused("show sflow interface p[4-2]", "runs backwards");
    EXPECT_THAT(m_world->CliDone("show sflow interface p[2-4] | json"),
                AllOf(HasSubstr("\"p3\""), Not(HasSubstr("busy"))));
}

// ---- request sflow test collector ----

TEST_F(Screens, TestOfACollectorSaysWhatBecameOfTheDatagram)
{
    const auto before = m_collector->Arrivals().back().datagram.sequence;
    const std::string shown = m_world->CliDone("request sflow test collector c1");
    ExpectNarrow(shown);
    EXPECT_THAT(shown, AllOf(ContainsRegex("Outcome +silent: a datagram of [0-9]+ bytes was sent to"),
                             HasSubstr("sequence 1\n"), HasSubstr("tshark -i any")));
    const auto arrived = [&] {
        std::vector<std::uint32_t> sequences;
        for (const Arrival& arrival : m_collector->Arrivals())
            if (arrival.datagram.subAgent == kTestSubAgent) sequences.push_back(arrival.datagram.sequence);
        return sequences;
    };
    support::Await("the datagram", [&] { return !arrived().empty(); });
    const auto answer = nlohmann::json::parse(m_world->CliDone("request sflow test collector c1 | json"));
    EXPECT_EQ("silent", answer.begin().value().at("outcome"));
    support::Await("the second datagram", [&] { return arrived().size() == 2; });
    EXPECT_THAT(arrived(), ElementsAre(1, 2));
    EXPECT_EQ(before + 1, Sample().datagram) << "the numbers of the stream are its own";
}

TEST_F(Screens, TestOfACollectorNamesEachFailure)
{
    const std::uint16_t closed = DecodingCollector().Port();  // where none listens any more
    // A router on the way, which has no route itself.
    const Network::Host router;
    Network::Ip(
        "link add wan type veth peer name lan netns " + std::to_string(router.Pid()) +
        "\nlink set wan up\naddress add 10.9.0.1/24 dev wan\nroute add 203.0.113.0/24 via 10.9.0.2\n");
    router.Within([] { Network::Ip("link set lan up\naddress add 10.9.0.2/24 dev lan\n"); });
    EXPECT_EQ("", router.Run({"sysctl", "-qw", "net.ipv4.ip_forward=1"}));
    Network::AwaitSending("wan");
    EXPECT_EQ(0, Cli("set oam sflow collector closed ip 127.0.0.1 port " + std::to_string(closed) +
                     "; set oam sflow collector routeless ip 198.51.100.1"
                     "; set oam sflow collector beyond ip 203.0.113.1"
                     "; set oam sflow collector off ip 127.0.0.1 enabled false; commit")
                     .status);
    const auto expect = [this](const std::string& name, const std::string& outcome, const std::string& why) {
        const auto result = Cli("request sflow test collector " + name + " | json");
        EXPECT_EQ(1, result.status) << name;
        EXPECT_EQ("", result.errors) << name;
        const auto answer = nlohmann::json::parse(result.output).begin().value();
        EXPECT_EQ(outcome, answer.at("outcome").get<std::string>()) << name;
        EXPECT_THAT(answer.at("text").get<std::string>(), HasSubstr(why)) << name;
        const auto text = Cli("request sflow test collector " + name);
        EXPECT_EQ(1, text.status);
        EXPECT_THAT(text.output, ContainsRegex("Outcome +" + outcome + ": "));
        ExpectNarrow(text.output);
    };
    expect("closed", "refused", "no program listens at that port; start the collector there");
    expect("routeless", "not-sent", "Network is unreachable; look at the routes (ip route get 198.51.100.1)");
    expect("beyond", "unreachable", "the network has reported that 203.0.113.1:6343 can't be reached");
    ExpectRefused("request sflow test collector off", "there is no collector off in effect");
    ExpectRefused("request sflow test collector unknown", "there is no collector unknown in effect");
    ExpectRefused("request sflow test collector", "NAME");
}

// ---- clear sflow statistics ----

TEST_F(Screens, ClearedCountsBeginAtZeroAndWhatIsSentGoesOn)
{
    for (int i = 0; i < 3; ++i) Sample();
    const Sampled before = Sample();
    const auto count = [](const nlohmann::json& entry, const char* leaf) {
        return std::stoull(entry.at(leaf).get<std::string>());
    };
    const std::string kSent = "sflow_collector_datagrams_total{collector=\"c1\"}";
    const auto inMetrics = support::Metrics::Fetch(kMetricsPort).At(kSent);
    EXPECT_GE(inMetrics, 4U);
    const std::string since = Sflow().at("manager").at("counts-since");
    support::Await("the next second", [&] {
        const auto result = Cli("clear sflow statistics");
        EXPECT_EQ("the counts of collectors, interfaces and drops begin at zero\n", result.errors);
        return result.status == 0 && Sflow().at("manager").at("counts-since") != since;
    });
    auto sflow = Sflow();
    EXPECT_EQ(0U, count(sflow.at("interface").at(0), "packets-seen"));
    EXPECT_EQ(0U, count(sflow.at("interface").at(0), "packets-sampled"));
    for (const char* leaf : {"packets-sent", "bytes-sent", "flow-samples-sent", "packets-lost"})
        EXPECT_EQ(0U, count(CollectorShown(), leaf)) << leaf;
    EXPECT_EQ(inMetrics, support::Metrics::Fetch(kMetricsPort).At(kSent)) << "monitoring counts on";

    const Sampled after = Sample();
    EXPECT_EQ(before.datagram + 1, after.datagram);
    EXPECT_EQ(before.sample + 1, after.sample);
    sflow = Sflow();
    EXPECT_EQ(1U, count(sflow.at("interface").at(0), "packets-sampled"));
    EXPECT_EQ(1U, count(CollectorShown(), "packets-sent"));
    EXPECT_EQ(1U, count(CollectorShown(), "flow-samples-sent"));
    EXPECT_THAT(m_world->CliDone("show sflow interface busy"), ContainsRegex("busy +up +1 in 1 +off +1 +1 "));
    EXPECT_EQ(0, Cli("show sflow problems").status) << "what is known of faults is kept";
}

// ---- monitor sflow ----

TEST_F(Screens, MonitorGivesALineASecondWhereThereIsNoTerminal)
{
    EventMonitor text(*m_world, "monitor sflow");
    text.Await("datagrams/s");
    Injector("far-end").Send(std::vector<support::Bytes>(50, support::UdpFrame({})));
    const auto has = [&](const std::string& line) {
        return testing::Matches(ContainsRegex("\n[0-9:]+Z +" + line))(text.Text());
    };
    support::Await("the packets", [&] { return has("[1-9][0-9]* packets/s "); });
    // The manager's own rate is of its last five seconds.
    support::Await("the samples", [&] { return has("[0-9]+ packets/s +[1-9][0-9]* samples/s +[1-9]"); });
    ExpectNarrow(text.Text());
    EXPECT_THAT(text.Text(), Not(HasSubstr("\x1b")));
    text.Process().Signal(SIGINT);
    EXPECT_EQ(0, text.Process().Wait());

    EventMonitor data(*m_world, "monitor sflow interface busy | json");
    support::Await("three lines", [&] {
        const std::string all = data.Text();
        return std::count(all.begin(), all.end(), '\n') >= 3;
    });
    data.Process().Signal(SIGINT);
    EXPECT_EQ(0, data.Process().Wait());
    std::istringstream lines(data.Text());
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        const auto parsed = nlohmann::json::parse(line);  // each is an object of its own
        EXPECT_LT(last, parsed.at("time").get<std::string>());
        last = parsed.at("time");
        EXPECT_EQ("busy", parsed.at("interface").at(0).at("name")) << line;
    }
}

TEST_F(Screens, MonitorGoesOnOverARestartOfTheDatabaseAndEndsWithItsReader)
{
    EventMonitor monitor(*m_world, "monitor sflow");
    monitor.Await("datagrams/s");
    m_world->Cdbd().Kill();
    const std::size_t lost = monitor.Text().size();
    support::Await("a line that says so",
                   [&] { return monitor.Text().find("netconf.sock", lost) != std::string::npos; });
    m_world->StartCdbd();
    const std::size_t back = monitor.Text().size();
    support::Await("lines with rates",
                   [&] { return monitor.Text().find("samples/s", back) != std::string::npos; });

    const auto piped =
        m_world->Run({"sh", "-c", World::Program("swcli").string() + " -c 'monitor sflow' | head -n 1"});
    EXPECT_EQ(0, piped.status);
    EXPECT_THAT(piped.output, HasSubstr("samples/s"));
    ExpectRefused("monitor sflow interface busy collector c1", "not both");
}

}  // namespace
}  // namespace system_tests
