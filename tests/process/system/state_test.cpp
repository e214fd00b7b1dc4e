// SPDX-License-Identifier: Apache-2.0
// The state of real processes: of one among many interfaces, and of a manager that is dead, stopped or gone
// in between.

#include <chrono>
#include <string>

#include <nlohmann/json.hpp>
#include <regex>

#include "system/system_test.h"

namespace system_tests {

namespace {

using testing::AllOf;
using testing::StartsWith;

class StateTest : public SystemTest {
protected:
    explicit StateTest(WorldOptions options = {}) : SystemTest(std::move(options)) {}

    static std::string Filter(const std::string& sflow)
    {
        return "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow>" + sflow +
               "</sflow></oam></state>";
    }
    static std::string OfInterface(const std::string& name, const std::string& more = "")
    {
        return Filter("<interface><name>" + name + "</name>" + more + "</interface>");
    }

    /// No command that needs the manager shows anything but why not.
    void ExpectNoState(const std::string& why)
    {
        for (const std::string command :
             {"show sflow", "show sflow interface", "show sflow interface eth1", "show sflow collector",
              "show sflow interfaces", "show sflow agent", "show sflow drops", "show sflow | json",
              "show sflow interface | json"}) {
            const auto result = TheWorld().Cli(command);
            EXPECT_EQ(1, result.status) << command;
            EXPECT_EQ("", result.output) << command;
            EXPECT_THAT(result.errors, HasSubstr(": " + why)) << command;
        }
        const auto asJson = TheWorld().Cli("show sflow problems | json");
        EXPECT_EQ(2, asJson.status);
        EXPECT_EQ("", asJson.output);
        EXPECT_THAT(asJson.errors, HasSubstr(why));
        const auto problems = TheWorld().Cli("show sflow problems");
        EXPECT_EQ(2, problems.status);
        // Its lines are broken at the terminal's width.
        const std::string unbroken = std::regex_replace(problems.output, std::regex("\n(?=[a-z])"), " ");
        EXPECT_THAT(unbroken, AllOf(StartsWith(why), HasSubstr("sflow-app"))) << "what is known";
    }
    std::string ManagerName()
    {
        return "sflow-mgr (process " + std::to_string(TheWorld().Manager().Pid()) + ")";
    }
};

/// So many interfaces, all to one collector; every other one with a sampling rate of its own.
std::string Large(int interfaces)
{
    std::string list;
    for (int i = 0; i < interfaces; ++i)
        list += std::string(i == 0 ? "" : ",") + R"({"name":"port)" + std::to_string(i) + R"(",)" +
                (i % 2 == 0 ? R"("sampling-rate":512,)" : "") +
                R"("flow-sampling-collector":[{"name":"c1"}]})";
    return scenario::Switch(
        R"("agent":{"ipv4":"192.0.2.9"},"collector":[{"name":"c1","ip":"127.0.0.1"}],"interface":[)" + list +
        "]");
}

TEST_F(StateTest, OfAThousandInterfacesIsWholeAndOfOneIsThatOne)
{
    TheWorld().Start(Large(1000));
    auto client = Connect();
    const auto all = client.Call(netconf::Get(Filter("<interface><sampling-rate-source/></interface>")));
    ASSERT_TRUE(all.ok && all.errors.empty()) << all.xml.substr(0, 1000);
    std::size_t entries = 0;
    for (std::size_t at = 0; (at = all.data.find("<interface>", at)) != std::string::npos; ++at) ++entries;
    EXPECT_EQ(1000U, entries);
    EXPECT_THAT(all.data, HasSubstr("<name>port500</name><sampling-rate-source>own-setting</"));
    EXPECT_THAT(all.data, HasSubstr("<name>port501</name><sampling-rate-source>speed-class</"));

    const auto one = client.Call(netconf::Get(OfInterface("port999", "<sampling-rate/><problem/>")));
    EXPECT_EQ(
        "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><interface><name>port999</name>"
        "<sampling-rate>4096</sampling-rate><problem>interface-missing</problem></interface></sflow></oam>"
        "</state>",
        one.data);
    EXPECT_EQ("", client.Call(netconf::Get(OfInterface("port1000"))).data);
    const auto problems = nlohmann::json::parse(TheWorld().Cli("show sflow problems | json").output);
    EXPECT_EQ(1001U, problems.at("switch-state:state").at("oam").at("sflow").at("problem").size())
        << "each interface is missing in the kernel, and nothing is sent to the collector";
}

TEST_F(StateTest, OfADeadManagerIsAnError)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Manager().Kill();
    TheWorld().AwaitLog(
        "cdbd", "sflow-mgr (process " + std::to_string(TheWorld().Manager().Pid()) + ") is disconnected");
    ExpectNoState("sflow-mgr is not connected; start sflow-mgr, or the whole switch with tools/switch up");
    EXPECT_THAT(TheWorld().CliDone("show system processes"), HasSubstr("sflow-app"));
    const std::string text = "sflow-mgr is not connected";
    const std::string log = TheWorld().Log("cdbd");
    EXPECT_NE(std::string::npos, log.find(text));
    EXPECT_EQ(log.find(text), log.rfind(text)) << "logged once";

    TheWorld().StartManager();
    Await("the state to be there again", [&] { return TheWorld().Cli("show sflow").status == 0; });
    EXPECT_THAT(TheWorld().Log("cdbd"), HasSubstr("the state of /state/oam/sflow is whole again"));
}

TEST_F(StateTest, OfAStoppedManagerIsAnErrorThatNamesItAndHoldsNobodyUp)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Manager().Freeze();
    auto waiting = Connect();
    waiting.Send(netconf::Get(Filter("")));
    // While that waits for the manager, others are served.
    auto other = Connect();
    EXPECT_THAT(other.Call(netconf::GetConfig("running")).data, HasSubstr("eth1"));
    EXPECT_THAT(
        other.Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system/></state>")).data,
        HasSubstr("sflow-mgr"));
    const auto late = waiting.Receive();
    ASSERT_EQ(1U, late.errors.size()) << late.xml;
    EXPECT_TRUE(late.ok);
    EXPECT_THAT(late.errors[0].message, StartsWith(ManagerName() + " does not answer since "));
    EXPECT_EQ("operation-failed", late.errors[0].tag);
    ExpectNoState(ManagerName() + " does not answer since ");
    // Commits and sessions go on.
    auto edit = Connect();
    Do(edit, netconf::Lock("candidate"));
    Do(edit, netconf::Unlock("candidate"));

    TheWorld().Manager().Thaw();
    Await("the state to be there again", [&] { return TheWorld().Cli("show sflow").status == 0; });
    AwaitSettled();
}

}  // namespace

}  // namespace system_tests
