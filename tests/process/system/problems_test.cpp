// SPDX-License-Identifier: Apache-2.0
// Why are there no samples? A switch with real interfaces and collectors in a network of its own, brought
// into each state in which nothing flows, and what its shell says then.

#include <linux/capability.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "scenario/scenario.h"
#include "support/decoding_collector.h"
#include "support/network.h"
#include "system/event_monitor.h"
#include "system/system_test.h"

namespace system_tests {
namespace {

using support::DecodingCollector;
using support::Network;
using Lines = std::vector<std::string>;

class Problems : public testing::Test {
protected:
    void SetUp() override
    {
        if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        if (::prctl(PR_CAPBSET_READ, CAP_NET_ADMIN) == 0)
            GTEST_SKIP() << "a test before this one has given privileges away, which needs a process each";
        m_network.emplace();
        m_world.emplace(WorldOptions{.logLevel = 11});
    }
    ~Problems() override
    {
        if (HasFailure() && m_world) std::cerr << m_world->Log("sflow-mgr");
    }

    /// The sflow container: collectors c1 (listening), and what the test adds.
    void Start(const std::string& collectors, const std::string& interfaces)
    {
        m_collector.emplace();
        const std::string c1 =
            R"({"name":"c1","ip":"127.0.0.1","port":)" + std::to_string(m_collector->Port()) + "}";
        m_world->Start(scenario::Switch(R"("agent":{"ipv4":"192.0.2.9"},"collector":[)" + c1 + collectors +
                                        R"(],"interface":[)" + interfaces + "]"));
        support::Await("the manager to serve its state", [&] {
            return m_world->CliDone("show sflow | json").find("\"agent-address\"") != std::string::npos;
        });
    }
    static std::string Interface(const std::string& name, const std::string& collector)
    {
        const std::string attached =
            collector.empty() ? "" : R"(,"flow-sampling-collector":[{"name":")" + collector + R"("}])";
        return R"({"name":")" + name + R"(","sampling-rate":1)" + attached + "}";
    }

    /// One line a problem: "interface eth1 no-traffic: TEXT".
    Lines Shown()
    {
        const auto shown = nlohmann::json::parse(m_world->Cli("show sflow problems | json").output);
        Lines lines;
        const auto found = shown.find("switch-state:state");
        if (found == shown.end()) return lines;
        const auto& sflow = found->at("oam").at("sflow");
        if (!sflow.contains("problem")) return lines;
        for (const auto& problem : sflow.at("problem")) {
            const auto text = [&](const char* key) { return problem.at(key).get<std::string>(); };
            lines.push_back(text("subject") + " " + text("name") + " " + text("reason") + ": " +
                            text("text"));
        }
        return lines;
    }
    /// Waits until that is all that is shown, while a frame enters by each far end again and again.
    void Awaits(const Lines& expected, const Lines& farEnds = {})
    {
        Lines shown;
        const auto isShown = [&] {
            for (const std::string& far : farEnds) support::Injector(far).Send(support::UdpFrame({}));
            return (shown = Shown()) == expected;
        };
        EXPECT_TRUE(support::Becomes(isShown, std::chrono::seconds(15)));
        EXPECT_THAT(shown, testing::ElementsAreArray(expected));
    }

    std::optional<Network> m_network;
    std::optional<World> m_world;
    std::optional<DecodingCollector> m_collector;
};

TEST_F(Problems, EachInterfaceAndCollectorThatDoesNotFlowHasALineUntilItIsMended)
{
    for (const std::string name : {"busy", "low", "idle", "alone", "off"}) Network::Veth(name, name + "-far");
    Network::Ip("link set low down\n");
    Start(R"(,{"name":"away","ip":"203.0.113.1"},{"name":"not","ip":"127.0.0.1","enabled":false})",
          R"({"name":"busy","sampling-rate":1,"flow-sampling-collector":[{"name":"c1"},{"name":"away"}]},)" +
              Interface("low", "c1") + "," + Interface("idle", "c1") + "," + Interface("alone", "") + "," +
              Interface("off", "not") + "," + Interface("missing", "c1"));
    const std::string away =
        "collector away no-route: the kernel has no route to 203.0.113.1:6343; look at: "
        "ip route get 203.0.113.1";
    const std::string disabled = "is disabled; set oam sflow collector not enabled true";
    const std::string idle =
        "interface idle no-traffic: no packet has entered the kernel interface idle since sampling began";
    Awaits({away, "collector not collector-disabled: the collector not " + disabled,
            "interface alone no-collector: it has no collector; set oam sflow interface alone "
            "flow-sampling-collector COLLECTOR",
            idle, "interface low interface-down: the kernel interface low is set down; ip link set low up",
            "interface missing interface-missing: no kernel interface has that name, alternative name or "
            "alias; ip link set DEVICE alias missing",
            "interface off collector-disabled: the collector not " + disabled},
           {"busy-far"});
    EXPECT_GT(m_collector->Count(), 0U);
    const std::string text = m_world->Cli("show sflow problems").output;
    for (const char* label : {"collector away", "collector not", "interface alone", "interface idle",
                              "interface low", "interface missing", "interface off"})
        EXPECT_THAT(text, HasSubstr("\n  " + std::string(label) + " ")) << text;

    // Each remedy takes its line away, and leaves the others.
    m_world->CliDone("set oam sflow collector not enabled true; set oam sflow collector not port " +
                     std::to_string(m_collector->Port()) +
                     "; set oam sflow interface alone flow-sampling-collector c1; commit");
    Network::Ip("link set low up\n");
    Network::Veth("spare", "spare-far");
    Network::Ip("link set spare alias missing\n");
    Awaits({away, idle}, {"low-far", "alone-far", "spare-far", "off-far"});
    Network::Ip("address add 203.0.113.1/32 dev lo\n");
    const DecodingCollector there("203.0.113.1", 6343);
    Awaits({}, {"busy-far", "idle-far"});
    EXPECT_GT(there.Count(), 0U);
}

TEST_F(Problems, AnAgentAddressThatNobodyKnowsHasALineUntilThereIsOne)
{
    Network::Veth("busy", "busy-far");
    Start("", Interface("busy", "c1"));
    Awaits({}, {"busy-far"});
    m_world->CliDone("delete oam sflow agent ipv4; delete interface mgmt mgmt0; commit");
    Awaits({"agent agent no-agent-address: there is no agent address, so a collector can't tell whose "
            "datagrams these are; set oam sflow agent ipv4 ADDRESS, or give a management interface an "
            "address"},
           {"busy-far"});
    EXPECT_THAT(m_world->CliDone("show sflow agent"), HasSubstr("0.0.0.0"));
    m_world->CliDone("set interface mgmt m ipv4 address ip 192.0.2.1/24; commit");
    Awaits({}, {"busy-far"});
}

TEST_F(Problems, ARouteThatForbidsOrDiscardsIsNoRoute)
{
    Network::Veth("busy", "busy-far");
    Network::Ip("route add prohibit 198.51.100.1/32\nroute add blackhole 198.51.100.2/32\n");
    Start(R"(,{"name":"black","ip":"198.51.100.2"},{"name":"prohibited","ip":"198.51.100.1"})",
          R"({"name":"busy","sampling-rate":1,"flow-sampling-collector":)"
          R"([{"name":"c1"},{"name":"black"},{"name":"prohibited"}]})");
    const std::string black =
        "collector black no-route: the kernel's route to 198.51.100.2:6343 is one of type blackhole, or the "
        "address to send from is gone; look at: ip route show table all match 198.51.100.2";
    Awaits(
        {black,
         "collector prohibited no-route: the kernel's route to 198.51.100.1:6343 is one of type prohibit, or "
         "that of a broadcast address; look at: ip route show table all match 198.51.100.1"},
        {"busy-far"});
    EXPECT_THAT(Network::Run({"ip", "route", "show", "table", "all", "match", "198.51.100.1"}),
                HasSubstr("prohibit"));
    Network::Ip("route delete prohibit 198.51.100.1/32\naddress add 198.51.100.1/32 dev lo\n");
    const DecodingCollector there("198.51.100.1", 6343);
    Awaits({black}, {"busy-far"});
}

TEST_F(Problems, ARateOfZeroAndTrafficThatHasEndedAreSaid)
{
    for (const std::string name : {"busy", "zero"}) Network::Veth(name, name + "-far");
    const std::string zero =
        R"({"name":"zero","default-sampling-rate":0,"flow-sampling-collector":[{"name":"c1"}]})";
    Start("", Interface("busy", "c1") + "," + zero);
    const std::string off =
        "interface zero sampling-off: no packets are sampled: the sampling rate is 0; set oam sflow "
        "interface "
        "zero sampling-rate 4096";
    Awaits({off}, {"busy-far", "zero-far"});
    Lines shown;
    EXPECT_TRUE(support::Becomes([&] { return (shown = Shown()).size() == 2; }, std::chrono::seconds(25)));
    ASSERT_EQ(2U, shown.size());
    EXPECT_THAT(shown[0],
                testing::MatchesRegex("interface busy no-traffic: no packet has entered the kernel interface "
                                      "busy for at least 1[0-9] s"));
    EXPECT_EQ(off, shown[1]);
    m_world->CliDone("set oam sflow interface zero sampling-rate 1; commit");
    Awaits({}, {"busy-far", "zero-far"});
}

TEST_F(Problems, WithoutPermissionEachInterfaceSaysSo)
{
    Network::Veth("busy", "far");
    // What the switch starts from here on has none of these.
    for (const int capability : {CAP_NET_RAW, CAP_BPF, CAP_PERFMON, CAP_NET_ADMIN, CAP_SYS_ADMIN})
        ASSERT_EQ(0, ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0)) << capability;
    Start("", Interface("busy", "c1"));
    const Lines shown = Shown();
    const std::string manager = m_world->CliDone("show sflow agent");
    const auto limit = [](const char* name) {
        std::uint64_t bytes = 0;
        std::ifstream(std::string("/proc/sys/net/core/") + name) >> bytes;
        return bytes;
    };
    const bool small = limit("rmem_max") < 2 * 1024 * 1024 || limit("wmem_max") < 512 * 1024;
    EXPECT_EQ(manager.find("  Limitation    without CAP_NET_ADMIN the buffers for ") != std::string::npos,
              small)
        << "named where the machine's limits are lower than what is asked for";
    EXPECT_THAT(manager, HasSubstr("  Limitation    the manager's own datagrams are not marked"));
    EXPECT_THAT(manager, HasSubstr("  Limitation    no packets are sampled: ebpf:"));
    ASSERT_EQ(2U, shown.size());
    EXPECT_THAT(shown[0], HasSubstr("collector c1 nothing-sent: "));
    EXPECT_THAT(shown[1], testing::StartsWith(
                              "interface busy no-permission: the manager may not sample packets: ebpf: "));
    EXPECT_THAT(shown[1], HasSubstr("; packet-socket: "));
    EXPECT_THAT(shown[1], HasSubstr("; start sflow-mgr with more privileges"));
}

/// From here on this process, and all that it starts, is on a kernel without programs and packet sockets.
void TakeTheKernelsSupportAway()
{
    const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    ASSERT_EQ(0, seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(bpf), 0));
    ASSERT_EQ(0, seccomp_rule_add(filter, SCMP_ACT_ERRNO(EAFNOSUPPORT), SCMP_SYS(socket), 1,
                                  scmp_arg_cmp{0, SCMP_CMP_EQ, AF_PACKET, 0}));
    ASSERT_EQ(0, seccomp_load(filter));
    seccomp_release(filter);
}

TEST_F(Problems, OnAKernelWithoutSupportEachInterfaceSaysSo)
{
    Network::Veth("busy", "far");
    ASSERT_NO_FATAL_FAILURE(TakeTheKernelsSupportAway());
    Start("", Interface("busy", "c1"));
    const Lines shown = Shown();
    ASSERT_EQ(2U, shown.size());
    EXPECT_THAT(
        shown[1],
        testing::StartsWith(
            "interface busy no-kernel-support: this kernel offers no way of sampling packets: ebpf: "));
    EXPECT_THAT(shown[1], HasSubstr("; packet-socket: "));
}

TEST_F(Problems, BeginAndEndAsEventsWithTheirSeverity)
{
    Network::Veth("low", "low-far");
    Network::Ip("link set low down\n");
    Start("", Interface("low", "c1"));
    EventMonitor monitor(*m_world, "monitor events since 1h");
    monitor.Await(
        "sampling-problem-begins  subject interface, name low, reason interface-down, severity idle");
    Network::Ip("link set low up\n");
    monitor.Await("sampling-problem-ends  subject interface, name low, reason interface-down, severity idle");
    // The manager that comes back tells what lasts.
    m_world->CliDone("set oam sflow interface missing flow-sampling-collector c1; commit");
    const std::string missing =
        "sampling-problem-begins  subject interface, name missing, reason interface-missing, severity broken";
    const std::string before = monitor.Await(missing);
    m_world->Manager().Kill();
    m_world->StartManager();
    support::Await("the problem again", [&] {
        const std::string text = monitor.Text();
        return text.find(missing, before.find(missing) + 1) != std::string::npos;
    });
    EXPECT_EQ(before.find("sampling-problem-ends  subject interface, name missing"), std::string::npos);
}

}  // namespace
}  // namespace system_tests
