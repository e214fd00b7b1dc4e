// SPDX-License-Identifier: Apache-2.0
// Why nothing flows: each reason with its sentence, from records in which all else flows.

#include "manager/status/diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <system_error>

#include "manager/shown.h"

namespace manager {

void PrintTo(const Problem& problem, std::ostream* out)
{
    *out << Name(problem.subject) << ' ' << problem.name << ' ' << Name(problem.reason) << ": "
         << problem.text;
}

namespace {

struct World : Flowing {
    Configured configured = FlowingConfigured();

    InterfaceStatus& Status() { return interfaces.at("eth1"); }
    StreamStatus& Stream() { return collectors.at("c1"); }
    void Set(const InterfaceSettings& settings) { Update("eth1", "", "", settings); }
    void Send(const SendSettings& send) { own.Update({.collectors = {{"c1", OwnCollector{.send = send}}}}); }
    void Fail(std::errc error, const std::string& text, Tried tried = Tried::kSend)
    {
        Stream().lastTried = tried;
        Stream().sending = false;
        Stream().errors = 3;
        Stream().lastError = std::make_error_code(error);
        Stream().lastErrorText = text;
        Stream().lastErrorTime = kNow;
    }
    /// As the daemon leaves the manager when the configuration disables the collector.
    void DisableCollector()
    {
        configured.collectors["c1"].enabled = false;
        ClearCollectors();
        Clear();
    }
};

struct DiagnosisRow {
    const char* name;
    std::function<void(World&)> change;
    std::vector<Problem> problems;
};

void PrintTo(const DiagnosisRow& row, std::ostream* out) { *out << row.name; }

Problem OfInterface(Reason reason, const std::string& text)
{
    return {Subject::kInterface, "eth1", reason, text};
}

Problem OfCollector(Reason reason, const std::string& text)
{
    return {Subject::kCollector, "c1", reason, text};
}

const Problem kUnsent = OfCollector(
    Reason::kNothingSent, "nothing has been sent to it yet: its interfaces have had nothing to send");

const Problem kAlone =
    OfCollector(Reason::kNoInterface,
                "no interface sends to it; set oam sflow interface INTERFACE flow-sampling-collector c1");

const Problem kDisabled = OfCollector(
    Reason::kCollectorDisabled, "the collector c1 is disabled; set oam sflow collector c1 enabled true");

// clang-format off
const DiagnosisRow kInterfaceRows[] = {
    {"NothingIsWrong", [](World&) {}, {}},
    {"MissingInTheKernel", [](World& w) { w.Status() = {}; },
     {OfInterface(Reason::kInterfaceMissing,
                  "no kernel interface has that name, alternative name or alias; ip link set DEVICE alias eth1")}},
    {"SetDown", [](World& w) { w.Status().adminUp = w.Status().operUp = false; },
     {OfInterface(Reason::kInterfaceDown, "the kernel interface k-eth1 is set down; ip link set k-eth1 up")}},
    {"WithoutLink", [](World& w) { w.Status().operUp = false; },
     {OfInterface(Reason::kInterfaceDown,
                  "the kernel interface k-eth1 has no link; look at the cable and the other end")}},
    {"NoTrafficIn", [](World& w) { w.Status().packetsSeen = w.Status().samples = 0; },
     {OfInterface(Reason::kNoTraffic, "no packet has entered the kernel interface k-eth1 since sampling began")}},
    {"NoTrafficOut",
     [](World& w) {
         w.Status().packetsSeen = w.Status().samples = 0;
         w.Set({512, Direction::kEgress, 128, 20});
     },
     {OfInterface(Reason::kNoTraffic, "no packet has left the kernel interface k-eth1 since sampling began")}},
    {"NoTrafficWithAnAddedDirection",
     [](World& w) {
         w.Status().packetsSeen = w.Status().samples = 0;
         w.own.Update({.general = OwnGeneral{.direction = Direction::kEgress}});
     },
     {OfInterface(Reason::kNoTraffic,
                  "no packet has entered or left the kernel interface k-eth1 since sampling began")}},
    {"NoTrafficAnyMore", [](World& w) { w.Status().quiet = std::chrono::seconds(10); },
     {OfInterface(Reason::kNoTraffic, "no packet has entered the kernel interface k-eth1 for at least 10 s")}},
    {"APauseInTheTraffic", [](World& w) { w.Status().quiet = std::chrono::seconds(9); }, {}},
    {"AllSampledWereLostBeforeTheTrafficEnded",
     [](World& w) {
         w.Status().samples = 0;
         w.Status().dropsBuffer = 80;
         w.Status().quiet = std::chrono::seconds(60);
     },
     {OfInterface(Reason::kBufferFull,
                  "all 80 packets sampled were lost for lack of room; raise the sampling rate's number, or start "
                  "sflow-mgr with a larger --ring-size")}},
    {"NotReadyYet",
     [](World& w) {
         w.Status().sampled = false;
         w.Status().pending = true;
         w.Status().packetsSeen = w.Status().samples = 0;
     },
     {OfInterface(Reason::kNoSampleYet,
                  "sampling is about to begin at the kernel interface k-eth1: the kernel makes interfaces ready one "
                  "after the other; with many of them, sflow-mgr --expedite-rcu is quicker")}},
    {"NoSampleYet",
     [](World& w) {
         w.Status().packetsSeen = 100;
         w.Status().samples = 0;
     },
     {OfInterface(Reason::kNoSampleYet, "100 packets seen, and at 1 in 512 none of them has been sampled yet")}},
    {"AllSampledAreLost",
     [](World& w) {
         w.Status().samples = 0;
         w.Status().dropsBuffer = 80;
     },
     {OfInterface(Reason::kBufferFull,
                  "all 80 packets sampled were lost for lack of room; raise the sampling rate's number, or start "
                  "sflow-mgr with a larger --ring-size")}},
    {"NoPermission", [](World& w) { w.manager.source = {"none", "CAP_NET_RAW is missing", false}; },
     {OfInterface(Reason::kNoPermission,
                  "the manager may not sample packets: CAP_NET_RAW is missing; start sflow-mgr with more "
                  "privileges")}},
    {"NoKernelSupport", [](World& w) { w.manager.source = {"none", "no packet sockets", true}; },
     {OfInterface(Reason::kNoKernelSupport, "this kernel offers no way of sampling packets: no packet sockets")}},
    {"SourceError",
     [](World& w) {
         w.Status().sampled = false;
         w.Status().samplingError = "Device or resource busy";
     },
     {OfInterface(Reason::kSourceError,
                  "packets can't be sampled at the kernel interface k-eth1: Device or resource busy")}},
    {"InUseUnderAnotherName",
     [](World& w) {
         w.Status() = {};
         w.Status().samplingError = "kernel interface k1 is in use under another name; configure one of the two";
     },
     {OfInterface(Reason::kSourceError,
                  "kernel interface k1 is in use under another name; configure one of the two")}},
    {"MissingIsSaidBeforeNoPermission",
     [](World& w) {
         w.Status() = {};
         w.manager.source = {"none", "CAP_NET_RAW is missing", false};
     },
     {OfInterface(Reason::kInterfaceMissing,
                  "no kernel interface has that name, alternative name or alias; ip link set DEVICE alias eth1")}},
    {"NoCollectorConfigured",
     [](World& w) {
         w.Clear();
         w.configured.interfaces["eth1"].collectors = {};
     },
     {kAlone, OfInterface(Reason::kNoCollector,
                          "it has no collector; set oam sflow interface eth1 flow-sampling-collector COLLECTOR")}},
    {"OnlyCountersWanted",
     [](World& w) {
         w.Replace("eth1", "", "c1");
         w.configured.interfaces["eth1"].collectors = {std::vector<std::string>{}, {"c1"}};
     },
     {OfInterface(Reason::kNoFlowCollector,
                  "only its counters are sent; for packet samples: set oam sflow interface eth1 "
                  "flow-sampling-collector COLLECTOR")}},
    {"CollectorDisabled", [](World& w) { w.DisableCollector(); },
     {kDisabled, OfInterface(Reason::kCollectorDisabled,
                             "the collector c1 is disabled; set oam sflow collector c1 enabled true")}},
    {"FlowCollectorsDisabledAndCountersNot",
     [](World& w) {
         for (const char* name : {"c2", "c3", "c4", "c5"}) w.configured.collectors[name].enabled = false;
         w.configured.interfaces["eth1"].collectors = {std::vector<std::string>{"c2", "c3", "c4", "c5"}, {"c1"}};
         w.Replace("eth1", "", "c1");
     },
     {{Subject::kCollector, "c2", Reason::kCollectorDisabled,
       "the collector c2 is disabled; set oam sflow collector c2 enabled true"},
      {Subject::kCollector, "c3", Reason::kCollectorDisabled,
       "the collector c3 is disabled; set oam sflow collector c3 enabled true"},
      {Subject::kCollector, "c4", Reason::kCollectorDisabled,
       "the collector c4 is disabled; set oam sflow collector c4 enabled true"},
      {Subject::kCollector, "c5", Reason::kCollectorDisabled,
       "the collector c5 is disabled; set oam sflow collector c5 enabled true"},
      OfInterface(Reason::kCollectorDisabled,
                  "all its collectors (c2, c3, c4 and 1 more) are disabled; set oam sflow collector c2 enabled "
                  "true")}},
    {"CollectorUnknown",
     [](World& w) {
         w.ClearCollectors();
         w.configured = {};
     },
     {OfCollector(Reason::kCollectorUnknown,
                  "the collector c1 is attached, but the manager knows no collector of that name; set oam sflow "
                  "collector c1 ip ADDRESS, or request sflow resync"),
      OfInterface(Reason::kCollectorUnknown,
                  "the collector c1 is attached, but the manager knows no collector of that name; set oam sflow "
                  "collector c1 ip ADDRESS, or request sflow resync")}},
    {"SamplingOff",
     [](World& w) {
         w.Set({0, Direction::kIngress, 128, 20});
         w.Status().sampled = false;
         w.Status().packetsSeen = w.Status().samples = 0;
     },
     {OfInterface(Reason::kSamplingOff,
                  "no packets are sampled: the sampling rate is 0; set oam sflow interface eth1 sampling-rate "
                  "4096")}},
    {"SamplingOffIsSaidBeforeNoPermission",
     [](World& w) {
         w.Set({0, Direction::kIngress, 128, 20});
         w.manager.source = {"none", "CAP_NET_RAW is missing", false};
     },
     {OfInterface(Reason::kSamplingOff,
                  "no packets are sampled: the sampling rate is 0; set oam sflow interface eth1 sampling-rate "
                  "4096")}},
    {"SamplingOffThatNobodyMisses",
     [](World& w) {
         w.Set({0, Direction::kIngress, 128, 20});
         w.Replace("eth1", "", "c1");
         w.configured.interfaces["eth1"].collectors = {std::vector<std::string>{}, {"c1"}};
     },
     {OfInterface(Reason::kNoFlowCollector,
                  "only its counters are sent; for packet samples: set oam sflow interface eth1 "
                  "flow-sampling-collector COLLECTOR")}},
    {"PollingOff", [](World& w) { w.Set({512, Direction::kIngress, 128, 0}); },
     {OfInterface(Reason::kPollingOff,
                  "its counters are not sent: the polling interval is 0; set oam sflow interface eth1 "
                  "polling-interval 20")}},
    {"PollingOffThatNobodyMisses",
     [](World& w) {
         w.Set({512, Direction::kIngress, 128, 0});
         w.Apply(RemoveCounter("eth1", "c1"));
         w.configured.interfaces["eth1"].collectors.at(static_cast<std::size_t>(Kind::kCounter)).clear();
     },
     {}},
    {"TwoAtOnce",
     [](World& w) {
         w.Set({512, Direction::kIngress, 128, 0});
         w.Status().operUp = false;
     },
     {OfInterface(Reason::kInterfaceDown,
                  "the kernel interface k-eth1 has no link; look at the cable and the other end"),
      OfInterface(Reason::kPollingOff,
                  "its counters are not sent: the polling interval is 0; set oam sflow interface eth1 "
                  "polling-interval 20")}},
    {"NoDaemon",
     [](World& w) {
         w.manager.session = Service::Session::kNone;
         w.Clear();
         w.ClearCollectors();
     },
     {{Subject::kAgent, "agent", Reason::kNoSession,
       "the configuration daemon is not connected: what is in effect stays as it is, and no commit reaches it; "
       "start sflow-app"},
      OfCollector(Reason::kNotLoaded,
                  "it is configured, but the manager has not been told of it: no configuration daemon is "
                  "connected; start sflow-app"),
      OfInterface(Reason::kNotLoaded,
                  "it is configured, but the manager has not been told of it: no configuration daemon is "
                  "connected; start sflow-app")}},
    {"Loading",
     [](World& w) {
         w.manager.session = Service::Session::kLoading;
         w.Clear();
     },
     {kAlone, OfInterface(Reason::kNotLoaded,
                          "it is configured, but the manager has not been told of it yet: the configuration "
                          "daemon is loading")}},
    {"FlowCollectorNotTold",
     [](World& w) { w.Apply(RemoveFlow("eth1", "c1")); },
     {OfInterface(Reason::kNotLoaded,
                  "it is configured, but the configuration daemon has not told the manager of it; request sflow "
                  "resync")}},
};

const DiagnosisRow kCollectorRows[] = {
    {"NoRoute", [](World& w) { w.Fail(std::errc::network_unreachable, "x"); },
     {OfCollector(Reason::kNoRoute,
                  "the kernel has no route to 192.0.2.1:6343; look at: ip route get 192.0.2.1")}},
    {"ProhibitedRoute", [](World& w) { w.Fail(std::errc::permission_denied, "x"); },
     {OfCollector(Reason::kNoRoute,
                  "the kernel's route to 192.0.2.1:6343 is one of type prohibit, or that of a broadcast address; "
                  "look at: ip route show table all match 192.0.2.1")}},
    {"BlackholeRoute", [](World& w) { w.Fail(std::errc::invalid_argument, "x"); },
     {OfCollector(Reason::kNoRoute,
                  "the kernel's route to 192.0.2.1:6343 is one of type blackhole, or the address to send from is "
                  "gone; look at: ip route show table all match 192.0.2.1")}},
    {"PortZero",
     [](World& w) {
         w.Fail(std::errc::destination_address_required, "x");
         w.Apply(Add("c1", "192.0.2.1", 0));
     },
     {OfCollector(Reason::kSendError,
                  "192.0.2.1:0 is no place to send to: there is no port 0; set oam sflow collector c1 port "
                  "6343")}},
    {"Unreachable", [](World& w) { w.Fail(std::errc::host_unreachable, "x"); },
     {OfCollector(Reason::kUnreachable,
                  "the host of 192.0.2.1:6343 does not answer, or a route or router can't reach it; is it up?")}},
    {"Refused", [](World& w) { w.Fail(std::errc::connection_refused, "x"); },
     {OfCollector(Reason::kRefused,
                  "no program listens at 192.0.2.1:6343; start the collector there, or correct its port")}},
    {"Forbidden", [](World& w) { w.Fail(std::errc::operation_not_permitted, "x"); },
     {OfCollector(Reason::kNoPermission,
                  "the kernel forbids datagrams to 192.0.2.1:6343; look at the packet filter's output rules")}},
    {"TooLarge", [](World& w) { w.Fail(std::errc::message_size, "x"); },
     {OfCollector(Reason::kSendError,
                  "a datagram of 1400 bytes is too large for the way to 192.0.2.1:6343; make them smaller: set oam "
                  "sflow collector c1 datagram-size SIZE")}},
    {"OtherError", [](World& w) { w.Fail(std::errc::no_buffer_space, "send to 192.0.2.1: No buffer space"); },
     {OfCollector(Reason::kSendError,
                  "datagrams to 192.0.2.1:6343 can't be sent: send to 192.0.2.1: No buffer space")}},
    {"NoRouteByADeviceFromAnAddress",
     [](World& w) {
         w.Send({.sourceAddress = Address("192.0.2.9"), .dscp = 1, .device = "vrf-x"});
         w.Fail(std::errc::network_unreachable, "x");
     },
     {OfCollector(Reason::kNoRoute,
                  "the kernel has no route to 192.0.2.1:6343; look at: ip route get 192.0.2.1 from 192.0.2.9 oif "
                  "vrf-x")}},
    {"SourceAddressMissing",
     [](World& w) {
         w.Send({.sourceAddress = Address("192.0.2.9")});
         w.Fail(std::errc::address_not_available, "x", Tried::kSource);
     },
     {OfCollector(Reason::kSourceAddressMissing,
                  "this machine does not have the address 192.0.2.9 that datagrams to it are to come from; ip "
                  "address add 192.0.2.9/32 dev DEVICE, or set oam sflow-manager collector c1 source-address "
                  "ADDRESS")}},
    {"SourceAddressMissingInAVrf",
     [](World& w) {
         w.Send({.sourceAddress = Address("192.0.2.9"), .device = "vrf-x"});
         w.Fail(std::errc::address_not_available, "x", Tried::kSource);
     },
     {OfCollector(Reason::kSourceAddressMissing,
                  "this machine does not have the address 192.0.2.9 that datagrams to it are to come from, or not "
                  "where vrf-x routes; ip address add 192.0.2.9/32 dev DEVICE, or set oam sflow-manager collector "
                  "c1 source-address ADDRESS")}},
    {"DeviceMissing",
     [](World& w) {
         w.Send({.device = "vrf-x"});
         w.Fail(std::errc::no_such_device, "x", Tried::kDevice);
     },
     {OfCollector(Reason::kDeviceMissing,
                  "there is no device vrf-x by which datagrams to it could leave; make it, or: delete oam "
                  "sflow-manager collector c1 device")}},
    {"DeviceForbidden",
     [](World& w) {
         w.Send({.device = "vrf-x"});
         w.Fail(std::errc::operation_not_permitted, "x", Tried::kDevice);
     },
     {OfCollector(Reason::kNoPermission,
                  "the manager may not bind a socket to the device vrf-x; start sflow-mgr as root, grant it "
                  "CAP_NET_RAW, or: delete oam sflow-manager collector c1 device")}},
    {"NotMarked",
     [](World& w) { w.Fail(std::errc::invalid_argument, "send with DSCP 1: no", Tried::kDscp); },
     {OfCollector(Reason::kSendError, "datagrams to 192.0.2.1:6343 can't be sent: send with DSCP 1: no")}},
    {"OnlySettings",
     [](World& w) { w.own.Update({.collectors = {{"c9", OwnCollector()}}}); },
     {{Subject::kCollector, "c9", Reason::kCollectorUnknown,
       "oam sflow-manager has settings for the collector c9, but there is no collector of that name; set oam "
       "sflow collector c9 ip ADDRESS, or delete oam sflow-manager collector c9"}}},
    {"SettingsOfADisabledCollector",
     [](World& w) {
         w.own.Update({.collectors = {{"c9", OwnCollector()}}});
         w.configured.collectors["c9"].enabled = false;
     },
     {{Subject::kCollector, "c9", Reason::kCollectorDisabled,
       "the collector c9 is disabled; set oam sflow collector c9 enabled true"}}},
    {"ErrorThatIsOver",
     [](World& w) {
         w.Fail(std::errc::connection_refused, "x");
         w.Stream().sending = true;
     },
     {}},
    {"NothingSent",
     [](World& w) {
         w.Stream() = {};
         w.Status().packetsSeen = w.Status().samples = 0;
     },
     {kUnsent, OfInterface(Reason::kNoTraffic,
                           "no packet has entered the kernel interface k-eth1 since sampling began")}},
    {"NoInterface",
     [](World& w) {
         w.Clear();
         w.configured.interfaces.clear();
     },
     {kAlone}},
    {"NoInterfaceThatTheManagerKnows",
     [](World& w) {
         w.Clear();
         w.configured.interfaces.clear();
         w.manager.hasOperated = true;
     },
     {OfCollector(Reason::kNoInterface,
                  "no interface sends to it; where one is configured to: request sflow resync; else: set oam sflow "
                  "interface INTERFACE flow-sampling-collector c1")}},
    {"AttachmentLost",
     [](World& w) {
         w.configured.collectors["c2"];
         w.configured.collectors["off"].enabled = false;
         for (auto& collectors : w.configured.interfaces["eth1"].collectors) collectors = {"c1", "c2", "off"};
     },
     {{Subject::kCollector, "c2", Reason::kNotLoaded,
       "it is configured, but the configuration daemon has not told the manager of it; request sflow resync"},
      {Subject::kCollector, "off", Reason::kCollectorDisabled,
       "the collector off is disabled; set oam sflow collector off enabled true"},
      OfInterface(Reason::kNotLoaded,
                  "it is configured to send to c2, but the configuration daemon has not told the manager of that; "
                  "request sflow resync")}},
    {"DisabledAndUnused",
     [](World& w) {
         w.DisableCollector();
         w.configured.interfaces.clear();
     },
     {kDisabled}},
    {"NoAgentAddress", [](World& w) { w.ForgetAddress(); },
     {{Subject::kAgent, "agent", Reason::kNoAgentAddress,
       "there is no agent address, so a collector can't tell whose datagrams these are; set oam sflow agent "
       "ipv4 ADDRESS, or give a management interface an address"}}},
    {"NoAgentAddressKnownToTheDaemon", [](World& w) { w.Apply(Agent("0.0.0.0")); },
     {{Subject::kAgent, "agent", Reason::kNoAgentAddress,
       "there is no agent address, so a collector can't tell whose datagrams these are; set oam sflow agent "
       "ipv4 ADDRESS, or give a management interface an address"}}},
    {"NoAgentAddressThatNobodyMisses",
     [](World& w) {
         w.ForgetAddress();
         w.Clear();
         w.ClearCollectors();
         w.configured = {};
     },
     {}},
};
// clang-format on

class OfOneThing : public testing::TestWithParam<DiagnosisRow> {};

TEST_P(OfOneThing, IsNamedWithItsRemedy)
{
    World world;
    GetParam().change(world);
    EXPECT_EQ(GetParam().problems, DiagnoseAll(world.Look(), &world.configured));
}

const auto kNameOf = [](const auto& row) { return std::string(row.param.name); };
INSTANTIATE_TEST_SUITE_P(Interface, OfOneThing, testing::ValuesIn(kInterfaceRows), kNameOf);
INSTANTIATE_TEST_SUITE_P(Collector, OfOneThing, testing::ValuesIn(kCollectorRows), kNameOf);

TEST(Diagnosis, WithoutTheConfigurationTellsWhatItCan)
{
    World world;
    EXPECT_EQ(std::vector<Problem>{}, DiagnoseAll(world.Look(), nullptr));
    world.Replace("eth1", "", "");
    EXPECT_THAT(
        DiagnoseAll(world.Look(), nullptr),
        testing::ElementsAre(
            kAlone,
            OfInterface(
                Reason::kNoCollector,
                "it has no collector; set oam sflow interface eth1 flow-sampling-collector COLLECTOR")));
}

TEST(Diagnosis, IsInTheOrderOfNames)
{
    World world;
    world.Clear();
    for (const char* name : {"b", "d", "f"}) {
        world.Update(name);
        world.interfaces.at(name) = {};
    }
    for (const char* name : {"a", "b", "c", "d", "g"}) world.configured.interfaces[name];
    std::string order;
    for (const Problem& problem : DiagnoseAll(world.Look(), &world.configured)) order += problem.name + " ";
    EXPECT_EQ("a b c d eth1 f g ", order);
}

TEST(Diagnosis, NamesEveryReasonDifferently)
{
    std::set<std::string> names;
    for (int reason = 0; reason <= static_cast<int>(Reason::kNoSession); ++reason)
        names.insert(Name(static_cast<Reason>(reason)));
    EXPECT_EQ(static_cast<std::size_t>(Reason::kNoSession) + 1, names.size());
}

}  // namespace
}  // namespace manager
