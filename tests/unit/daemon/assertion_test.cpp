// SPDX-License-Identifier: Apache-2.0
// Values of another type than the schema's: the assertion that fails, by its exact text.

#include "support.h"

namespace daemon_tests {
namespace {

constexpr char kGetCollectors[] = "void SFlowConfigHandler::GetCollectors(int)";
constexpr char kGetCollector[] = "bool SFlowConfigHandler::GetCollector(int, std::string, collector_st&)";
constexpr char kGetInterfaces[] =
    "bool SFlowConfigHandler::GetInterfaces(int, bool, std::string, std::string)";
constexpr char kGetInterfaceCollectors[] =
    "void SFlowConfigHandler::GetInterfaceCollectors(int, ECollector, bool, std::string, std::string)";
constexpr char kHandleCfgAgent[] = "confd_iter_ret SFlowConfigHandler::HandleCfgAgent(int)";
constexpr char kHandleCfg[] =
    "confd_iter_ret SFlowConfigHandler::HandleCfg(confd_hkeypath_t*, confd_iter_op, confd_value_t*, "
    "confd_value_t*)";

// A leaf that is delivered with the wrong type to one reader.
struct WrongValue {
    const char* name;
    const char* leaf;
    fakes::Value value;
    std::function<void(SFlowConfigHandler&, int)> read;
    const char* function;
    const char* text;
};

void PrintTo(const WrongValue& row, std::ostream* out) { *out << row.name; }

class WrongValueTest : public HandlerTest, public testing::WithParamInterface<WrongValue> {};

TEST_P(WrongValueTest, FailsTheAssertion)
{
    AddCollector("c1", "192.0.2.1");
    AddInterface("eth1", {"c1"}, {"c1"});
    cdb.Create("/config/interface/mgmt{m0}");
    cdb.Deliver(GetParam().leaf, GetParam().value);
    EXPECT_EXIT(GetParam().read(handler, Session()), testing::KilledBySignal(SIGABRT),
                FailedAssertion(GetParam().function, GetParam().text));
}

const auto kReadAll = [](SFlowConfigHandler& handler, int sock) { inside::GetCollectors(handler, sock); };
const auto kReadOne = [](SFlowConfigHandler& handler, int sock) {
    collector_st record;
    inside::GetCollector(handler, sock, "c1", record);
};
const auto kReadInterfaces = [](SFlowConfigHandler& handler, int sock) {
    inside::GetInterfaces(handler, sock, true, "", "");
};
const auto kReadInterface = [](SFlowConfigHandler& handler, int sock) {
    inside::GetInterfaces(handler, sock, true, "", "eth1");
};
const auto kReadAgent = [](SFlowConfigHandler& handler, int) {
    inside::MgrAvailable(handler) = true;
    Keypath keypath("/config/oam/sflow/agent/ipv4");
    handler.GetSubscriptionPoints()[1].callback(keypath.Get(), MOP_VALUE_SET, nullptr, nullptr);
};

#define COLLECTOR "/config/oam/sflow/collector{c1}/"
#define INTERFACE "/config/oam/sflow/interface{eth1}/"

INSTANTIATE_TEST_SUITE_P(
    Collectors, WrongValueTest,
    testing::Values(
        WrongValue{"list_name", COLLECTOR "name", true, kReadAll, kGetCollectors, "(&v[i])->type == C_BUF"},
        WrongValue{"list_enabled", COLLECTOR "enabled", std::uint16_t{1}, kReadAll, kGetCollectors,
                   "(&v[i + 1])->type == C_BOOL"},
        WrongValue{"list_ip", COLLECTOR "ip", true, kReadAll, kGetCollectors, "(&v[i + 2])->type == C_IPV4"},
        WrongValue{"list_ip_without_value",
                   COLLECTOR "ip",
                   {},
                   kReadAll,
                   kGetCollectors,
                   "(&v[i + 2])->type == C_IPV4"},
        WrongValue{"list_datagram_size", COLLECTOR "datagram-size", std::uint32_t{1}, kReadAll,
                   kGetCollectors, "(&v[i + 3])->type == C_UINT16"},
        WrongValue{"list_port", COLLECTOR "port", std::uint32_t{1}, kReadAll, kGetCollectors,
                   "(&v[i + 4])->type == C_UINT16"},
        WrongValue{"entry_name", COLLECTOR "name", true, kReadOne, kGetCollector, "(&v[0])->type == C_BUF"},
        WrongValue{
            "entry_enabled", COLLECTOR "enabled", {}, kReadOne, kGetCollector, "(&v[1])->type == C_BOOL"},
        WrongValue{"entry_ip", COLLECTOR "ip", fakes::Ipv4Plen{}, kReadOne, kGetCollector,
                   "(&v[2])->type == C_IPV4"},
        WrongValue{"entry_datagram_size", COLLECTOR "datagram-size", true, kReadOne, kGetCollector,
                   "(&v[3])->type == C_UINT16"},
        WrongValue{"entry_port", COLLECTOR "port", std::uint32_t{1}, kReadOne, kGetCollector,
                   "(&v[4])->type == C_UINT16"}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Interfaces, WrongValueTest,
    testing::Values(WrongValue{"name", INTERFACE "name", true, kReadInterfaces, kGetInterfaces,
                               "(&v[i])->type == C_BUF"},
                    WrongValue{"rate", INTERFACE "sampling-rate", std::uint16_t{1}, kReadInterfaces,
                               kGetInterfaces, "(&v[i + 1])->type == C_UINT32"},
                    WrongValue{"max_header_size", INTERFACE "max-header-size", std::uint32_t{1},
                               kReadInterfaces, kGetInterfaces, "(&v[i + 3])->type == C_UINT16"},
                    WrongValue{"polling_interval", INTERFACE "polling-interval", std::uint32_t{1},
                               kReadInterfaces, kGetInterfaces, "(&v[i + 4])->type == C_UINT16"},
                    WrongValue{"rate_of_one",
                               INTERFACE "sampling-rate",
                               {},
                               kReadInterface,
                               kGetInterfaces,
                               "(&v[i + 1])->type == C_UINT32"},
                    WrongValue{"flow_name", INTERFACE "flow-sampling-collector{c1}/name", true,
                               kReadInterfaces, kGetInterfaceCollectors, "(&vCollector[c])->type == C_BUF"},
                    WrongValue{"counter_name",
                               INTERFACE "counter-sampling-collector{c1}/name",
                               {},
                               kReadInterfaces,
                               kGetInterfaceCollectors,
                               "(&vCollector[c])->type == C_BUF"}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Agent, WrongValueTest,
    testing::Values(WrongValue{"agent", "/config/oam/sflow/agent/ipv4", fakes::Ipv4Plen{}, kReadAgent,
                               kHandleCfgAgent, "(&v)->type == C_IPV4"},
                    WrongValue{"management", "/config/interface/mgmt{m0}/ipv4/address/ip", fakes::Ipv4{},
                               kReadAgent, kHandleCfgAgent, "(&v)->type == C_IPV4_AND_PLEN"}),
    [](const auto& row) { return row.param.name; });

// A keypath, or a new value, of which the positions named are not of the type that the node needs.
struct WrongKeypath {
    const char* name;
    const char* path;
    std::vector<int> positions;
    confd_vtype newValue;
    const char* text;
    const char* lastEntry;  // of the journal: what had happened by then
};

void PrintTo(const WrongKeypath& row, std::ostream* out) { *out << row.name; }

class WrongKeypathTest : public HandlerTest, public testing::WithParamInterface<WrongKeypath> {};

TEST_P(WrongKeypathTest, FailsTheAssertion)
{
    OpenGate();
    Keypath keypath(GetParam().path);
    for (const int position : GetParam().positions) keypath->v[position][0].type = C_UINT32;
    confd_value_t value{};
    value.type = GetParam().newValue;
    EXPECT_EXIT(
        {
            std::signal(SIGABRT, [](int) {
                std::fprintf(stderr, "%s\n", fakes::Platform::Get().recorder.journal.back().c_str());
            });
            Change(keypath, MOP_CREATED, &value);
        },
        testing::KilledBySignal(SIGABRT),
        testing::AllOf(FailedAssertion(kHandleCfg, GetParam().text),
                       testing::EndsWith(std::string("\n") + GetParam().lastEntry + "\n")));
}

constexpr char kBuf0[] = "(&(kp->v[0][0]))->type == C_BUF";
constexpr char kBuf1[] = "(&(kp->v[1][0]))->type == C_BUF";
constexpr char kBuf2[] = "(&(kp->v[2][0]))->type == C_BUF";
constexpr char kTagAt0[] = "log 10 HandleCfg: Found tag in pos = 0";
constexpr char kTagAt1[] = "log 10 HandleCfg: Found tag in pos = 1";
constexpr char kSessionOpen[] = "session open 1 true";
#define FLOW INTERFACE "flow-sampling-collector{c1}"
#define COUNTER INTERFACE "counter-sampling-collector{c1}"

INSTANTIATE_TEST_SUITE_P(
    Keypaths, WrongKeypathTest,
    testing::Values(
        WrongKeypath{"collector", "/config/oam/sflow/collector{c1}", {0}, C_NOEXISTS, kBuf0, kTagAt1},
        WrongKeypath{"interface", "/config/oam/sflow/interface{eth1}", {0}, C_NOEXISTS, kBuf0, kTagAt1},
        WrongKeypath{"sampling_rate", INTERFACE "sampling-rate", {1}, C_NOEXISTS, kBuf1, kTagAt0},
        WrongKeypath{"max_header_size", INTERFACE "max-header-size", {1}, C_NOEXISTS, kBuf1, kTagAt0},
        WrongKeypath{"polling_interval", INTERFACE "polling-interval", {1}, C_NOEXISTS, kBuf1, kTagAt0},
        WrongKeypath{"flow_collector", FLOW, {0}, C_NOEXISTS, kBuf0, kTagAt1},
        WrongKeypath{"flow_interface", FLOW, {2}, C_NOEXISTS, kBuf2, kTagAt1},
        WrongKeypath{"flow_both_collector_first", FLOW, {0, 2}, C_NOEXISTS, kBuf0, kTagAt1},
        WrongKeypath{"counter_collector", COUNTER, {0}, C_NOEXISTS, kBuf0, kTagAt1},
        WrongKeypath{"counter_interface", COUNTER, {2}, C_NOEXISTS, kBuf2, kTagAt1},
        WrongKeypath{"counter_both_collector_first", COUNTER, {0, 2}, C_NOEXISTS, kBuf0, kTagAt1},
        WrongKeypath{
            "enabled_value", COLLECTOR "enabled", {}, C_NOEXISTS, "(new_value)->type == C_BOOL", kTagAt0},
        WrongKeypath{"enabled_collector", COLLECTOR "enabled", {1}, C_BOOL, kBuf1, kTagAt0},
        WrongKeypath{"enabled_both_value_first",
                     COLLECTOR "enabled",
                     {1},
                     C_UINT16,
                     "(new_value)->type == C_BOOL",
                     kTagAt0},
        WrongKeypath{"address_after_session", COLLECTOR "ip", {1}, C_NOEXISTS, kBuf1, kSessionOpen},
        WrongKeypath{"size_after_session", COLLECTOR "datagram-size", {1}, C_NOEXISTS, kBuf1, kSessionOpen},
        WrongKeypath{"port_after_session", COLLECTOR "port", {1}, C_NOEXISTS, kBuf1, kSessionOpen}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace daemon_tests
