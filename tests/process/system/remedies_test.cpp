// SPDX-License-Identifier: Apache-2.0
// Each remedy that `show sflow problems` prints is carried out as it is printed, and the line is gone after
// it.

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "scenario/scenario.h"
#include "support/decoding_collector.h"
#include "support/network.h"
#include "system/remedies.h"
#include "system/system_test.h"

namespace system_tests {
namespace {

using support::DecodingCollector;
using support::Network;

struct Ground {
    World& world;
    std::vector<std::unique_ptr<DecodingCollector>>& collectors;
};

struct RemedyRow {
    const char* name;
    std::string sentence;  // how the text begins, as the source has it
    std::string remedy;    // likewise
    /// Brings the problem about; `line` is then there: "interface p1 no-collector".
    std::function<void(Ground&)> harm;
    std::string line;
    std::map<std::string, std::string> places{};  // what to write for DEVICE, ADDRESS...
    std::function<void(Ground&)> carryOut{};      // if the remedy is no command
    const char* notRun = nullptr;                 // why this table does not carry it out
};

void PrintTo(const RemedyRow& row, std::ostream* out) { *out << row.name; }

std::function<void(Ground&)> Commands(const std::string& commands)
{
    return [commands](Ground& ground) { ground.world.CliDone(commands + "; commit"); };
}

std::function<void(Ground&)> Ip(const std::string& lines)
{
    return [lines](Ground&) { Network::Ip(lines + "\n"); };
}

void Nothing(Ground&) {}

/// Two collectors that are enabled at once: the daemon attaches one of them only.
constexpr const char* kEnableBoth =
    "set oam sflow collector off-a enabled true; set oam sflow collector off-b enabled true";

const RemedyRow kRows[] = {
    {"NoSession",
     "the configuration daemon is not connected",
     "start sflow-app",
     [](Ground& ground) { ground.world.Daemon().Kill(); },
     "agent agent no-session",
     {},
     [](Ground& ground) { ground.world.StartDaemon(); }},
    {"NoAgentAddress",
     "there is no agent address",
     "set oam sflow agent ipv4 ADDRESS",
     Commands("delete oam sflow agent ipv4; delete interface mgmt mgmt0"),
     "agent agent no-agent-address",
     {{"ADDRESS", "192.0.2.9"}}},
    {"Disabled", "{} {} disabled", "set oam sflow collector {} enabled true", Nothing,
     "collector off-a collector-disabled"},
    {"DisabledAtAnInterface", "{} {} disabled", "set oam sflow collector {} enabled true",
     Commands("delete oam sflow interface p1; set oam sflow interface p1 flow-sampling-collector off-a"),
     "interface p1 collector-disabled"},
    {"OnlySettingsAdded",
     "oam sflow-manager has settings",
     "set oam sflow collector {0} ip ADDRESS",
     Commands("set oam sflow-manager collector ghost dscp 46"),
     "collector ghost collector-unknown",
     {{"ADDRESS", "127.0.0.1"}}},
    {"OnlySettingsDeleted", "oam sflow-manager has settings", "delete oam sflow-manager collector {0}",
     Commands("set oam sflow-manager collector ghost dscp 46"), "collector ghost collector-unknown"},
    {"NotLoadedWithoutDaemon",
     "it is configured, but the manager has not been told of it: no",
     "start sflow-app",
     [](Ground& ground) {
         ground.world.Daemon().Kill();
         ground.world.CliDone("set oam sflow collector fresh ip 127.0.0.1; commit");
     },
     "collector fresh not-loaded",
     {},
     [](Ground& ground) { ground.world.StartDaemon(); }},
    {"NotLoaded", "it is configured, but the configuration daemon has not told the manager of it",
     "request sflow resync",
     Commands(std::string("delete oam sflow interface p1 flow-sampling-collector c1; commit; ") +
              kEnableBoth),
     "interface p1 not-loaded"},
    {"AttachmentLost", "it is configured to send to {}", "request sflow resync", Commands(kEnableBoth),
     "interface p1 not-loaded"},
    {"NoInterfaceWhereItIsConfigured", "no interface sends to it; where", "request sflow resync",
     Commands(kEnableBoth), "collector off-a no-interface"},
    {"NoInterfaceWhereItIsNot",
     "no interface sends to it; where",
     "set oam sflow interface INTERFACE flow-sampling-collector {}",
     Commands("set oam sflow collector alone ip 127.0.0.1"),
     "collector alone no-interface",
     {{"INTERFACE", "p1"}}},
    {"NoInterface",
     "no interface sends to it; set",
     "set oam sflow interface INTERFACE flow-sampling-collector {}",
     [](Ground& ground) {
         ground.world.CliDone("set oam sflow collector alone ip 127.0.0.1; commit; request sflow resync");
     },
     "collector alone no-interface",
     {{"INTERFACE", "p1"}}},
    {"Refused",
     "no program listens",
     "start the collector there",
     Commands("set oam sflow collector c1 port 6399"),
     "collector c1 refused",
     {},
     [](Ground& ground) {
         ground.collectors.push_back(std::make_unique<DecodingCollector>("127.0.0.1", 6399));
     }},
    {"DeviceMissing", "there is no device", "delete oam sflow-manager collector {0} device",
     Commands("set oam sflow-manager collector c1 device nodev"), "collector c1 device-missing"},
    {"SourceAddressAdded",
     "this machine does not have the address",
     "ip address add {1}/32 dev DEVICE",
     Commands("set oam sflow-manager collector c1 source-address 127.1.2.3; set oam sflow-manager collector "
              "c1 source-address 198.51.100.7"),
     "collector c1 source-address-missing",
     {{"DEVICE", "lo"}}},
    {"SourceAddressChanged",
     "this machine does not have the address",
     "set oam sflow-manager collector {0} source-address ADDRESS",
     Commands("set oam sflow-manager collector c1 source-address 198.51.100.7"),
     "collector c1 source-address-missing",
     {{"ADDRESS", "127.0.0.1"}}},
    {"Missing",
     "no kernel interface has that name",
     "ip link set DEVICE alias {}",
     Commands("set oam sflow interface port-9 flow-sampling-collector c1"),
     "interface port-9 interface-missing",
     {{"DEVICE", "p2"}}},
    {"Down", "the kernel interface {0} is set down", "ip link set {0} up", Ip("link set p1 down"),
     "interface p1 interface-down"},
    {"NoCollector",
     "it has no collector",
     "set oam sflow interface {} flow-sampling-collector COLLECTOR",
     Commands("set oam sflow interface p2 sampling-rate 1"),
     "interface p2 no-collector",
     {{"COLLECTOR", "c1"}}},
    {"NoFlowCollector",
     "only its counters",
     "set oam sflow interface {} flow-sampling-collector COLLECTOR",
     Commands("set oam sflow interface p2 counter-sampling-collector c1"),
     "interface p2 no-flow-collector",
     {{"COLLECTOR", "c1"}}},
    {"SamplingOff", "no packets are sampled", "set oam sflow interface {} sampling-rate 4096",
     Commands("set oam sflow interface p2 flow-sampling-collector c1; "
              "set oam sflow interface p2 default-sampling-rate 0"),
     "interface p2 sampling-off"},
    {"PollingOff", "its counters are not sent", "set oam sflow interface {} polling-interval 20",
     Commands("set oam sflow interface p1 counter-sampling-collector c1; "
              "set oam sflow interface p1 polling-interval 0"),
     "interface p1 polling-off"},
    {"UnknownAdded",
     "the collector {0} is attached",
     "set oam sflow collector {0} ip ADDRESS",
     {},
     {},
     {},
     {},
     "the configuration refuses an attachment to a collector that it does not have"},
    {"UnknownResync",
     "the collector {0} is attached",
     "request sflow resync",
     {},
     {},
     {},
     {},
     "the configuration refuses an attachment to a collector that it does not have"},
    {"PortZero",
     "{} is no place to send to",
     "set oam sflow collector {} port 6343",
     {},
     {},
     {},
     {},
     "the model has no port 0; only a client of the service that reads another model sends it"},
    {"TooLarge",
     "a datagram of {1} bytes",
     "set oam sflow collector {2} datagram-size SIZE",
     {},
     {},
     {},
     {},
     "the kernel divides what is too large for a device, and refuses only what no device takes"},
    {"DeviceForbiddenRoot",
     "the manager may not bind",
     "start sflow-mgr as root",
     {},
     {},
     {},
     {},
     "privileges: tests of the manager's start have them"},
    {"DeviceForbiddenDelete",
     "the manager may not bind",
     "delete oam sflow-manager collector {0} device",
     {},
     {},
     {},
     {},
     "privileges; the command is that of DeviceMissing"},
    {"NoPermission",
     "the manager may not sample",
     "start sflow-mgr with more privileges",
     {},
     {},
     {},
     {},
     "privileges: tests of the manager's start have them"},
    {"BufferFull",
     "all {} packets sampled were lost",
     "start sflow-mgr with a larger --ring-size",
     {},
     {},
     {},
     {},
     "takes more packets than a loaded machine sends"},
    {"Pending",
     "sampling is about to begin",
     "sflow-mgr --expedite-rcu",
     {},
     {},
     {},
     {},
     "the line goes by itself; the option makes that quicker"},
};

TEST(Remedies, EachInTheCodeHasARow)
{
    const auto remedies = RemediesInTheCode();
    ASSERT_GT(remedies.size(), 20U) << "the source is read";
    for (const RemedyText& each : remedies) {
        const auto isOf = [&](const RemedyRow& row) {
            return each.sentence.starts_with(row.sentence) && each.remedy == row.remedy;
        };
        EXPECT_TRUE(std::ranges::any_of(kRows, isOf)) << each.sentence << "\nhas no row for: " << each.remedy;
    }
    for (const RemedyRow& row : kRows) {
        const auto isOf = [&](const RemedyText& each) {
            return each.sentence.starts_with(row.sentence) && each.remedy == row.remedy;
        };
        EXPECT_TRUE(std::ranges::any_of(remedies, isOf)) << row.name << " is of no remedy in the code";
    }
}

class Remedy : public testing::TestWithParam<RemedyRow> {
protected:
    void SetUp() override
    {
        if (GetParam().notRun != nullptr) GTEST_SKIP() << GetParam().notRun;
        if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        m_world.emplace(WorldOptions{.logLevel = 11});
    }

    void Start()
    {
        m_collectors.push_back(std::make_unique<DecodingCollector>());
        const std::string port = R"("port":)" + std::to_string(m_collectors.front()->Port());
        const auto collector = [&](const std::string& name, const std::string& more) {
            return R"({"name":")" + name + R"(","ip":"127.0.0.1",)" + port + more + "}";
        };
        m_world->Start(scenario::Switch(
            R"("agent":{"ipv4":"192.0.2.9"},"collector":[)" + collector("c1", "") + "," +
            collector("off-a", R"(,"enabled":false)") + "," + collector("off-b", R"(,"enabled":false)") +
            R"(],"interface":[{"name":"p1","sampling-rate":1,"flow-sampling-collector":)"
            R"([{"name":"c1"},{"name":"off-a"},{"name":"off-b"}]}])"));
    }

    /// The text of the row's line; nullopt without it, or without an answer.
    std::optional<std::string> Text()
    {
        const auto result = m_world->Cli("show sflow problems | json");
        if (result.output.empty()) return std::nullopt;
        const auto shown = nlohmann::json::parse(result.output);
        const auto& sflow = shown.at("switch-state:state").at("oam").at("sflow");
        m_answered = true;
        if (!sflow.contains("problem")) return std::nullopt;
        for (const auto& problem : sflow.at("problem")) {
            const auto value = [&](const char* key) { return problem.at(key).get<std::string>(); };
            if (value("subject") + " " + value("name") + " " + value("reason") == GetParam().line)
                return value("text");
        }
        return std::nullopt;
    }
    /// The remedy as the line has it, with the row's words in the places.
    std::string Printed(const std::string& text)
    {
        std::string pattern;
        for (const char c : GetParam().remedy) pattern += c == '.' ? std::string("\\.") : std::string(1, c);
        pattern = std::regex_replace(pattern, std::regex("\\{[0-9]?\\}"), "[^ ;,/]+");
        std::smatch found;
        EXPECT_TRUE(std::regex_search(text, found, std::regex(pattern))) << text;
        std::string remedy = found.str();
        for (const auto& [place, word] : GetParam().places)
            remedy = std::regex_replace(remedy, std::regex(place), word);
        return remedy;
    }
    void CarryOut(const std::string& remedy, Ground& ground)
    {
        if (GetParam().carryOut) return GetParam().carryOut(ground);
        if (remedy.starts_with("ip ")) return Network::Ip(remedy.substr(3) + "\n");
        m_world->CliDone(remedy + (remedy.starts_with("request ") ? "" : "; commit"));
    }

    std::optional<Network> m_network;
    std::optional<World> m_world;
    std::vector<std::unique_ptr<DecodingCollector>> m_collectors;
    bool m_answered = false;
};

TEST_P(Remedy, TakesItsLineAway)
{
    for (const std::string name : {"p1", "p2"}) Network::Veth(name, name + "-far");
    Start();
    Ground ground{*m_world, m_collectors};
    GetParam().harm(ground);
    const auto traffic = [] {
        for (const std::string far : {"p1-far", "p2-far"}) try {
                support::Injector(far).Send(support::UdpFrame({}));
            } catch (const std::exception&) {
                // The cable may have been set down.
            }
    };
    std::optional<std::string> text;
    support::Await("the problem", [&] {
        traffic();
        return (text = Text()).has_value();
    });
    CarryOut(Printed(*text), ground);
    support::Await("the end of the problem", [&] {
        traffic();
        m_answered = false;
        return !Text() && m_answered;
    });
}

INSTANTIATE_TEST_SUITE_P(Each, Remedy, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace system_tests
