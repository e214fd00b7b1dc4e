// The state as it is shown: the text itself, and that the model accepts it.

#include "manager/state_json.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <chrono>
#include <system_error>

#include <nlohmann/json.hpp>

#include "manager/journal.h"
#include "manager/service.h"
#include "manager/shown.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

class StateText : public testing::Test {
protected:
    StateText()
    {
        EXPECT_EQ(LY_SUCCESS, ly_ctx_new(SFLOW_TEST_YANG_DIR, 0, &m_context));
        EXPECT_NE(nullptr, ly_ctx_load_module(m_context, "switch-state", nullptr, nullptr));
    }
    ~StateText() override { ly_ctx_destroy(m_context); }

    /// Whether the model accepts it all; the reason where not.
    [[nodiscard]] std::string Fault(const std::string& json) const
    {
        lyd_node* tree = nullptr;
        const LY_ERR result = lyd_parse_data_mem(m_context, json.c_str(), LYD_JSON, LYD_PARSE_STRICT,
                                                 LYD_VALIDATE_PRESENT, &tree);
        lyd_free_all(tree);
        return result == LY_SUCCESS ? "" : ly_errmsg(m_context);
    }

    ly_ctx* m_context = nullptr;
    State m_state;
    system_clock::time_point m_now{milliseconds{1'795'240'811'123}};
    Service m_service{m_state, nullptr, [this] { return m_now; }};
};

TEST_F(StateText, OfAManagerThatNobodyHasSpokenTo)
{
    const std::string json = StateJson(m_service, {.pid = 4711}, "");
    EXPECT_EQ(R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":false,"pid":4711,)"
              R"("session":"none","since":"2026-11-21T06:00:11.123Z","operations":"0",)"
              R"("operations-refused":"0","packet-source":"none"}}}}})",
              json);
    EXPECT_EQ("", Fault(json));
}

TEST_F(StateText, OfAllThatFlows)
{
    Snapshot snapshot = Flowing();
    snapshot.interfaces.push_back(FlowingInterface("eth2", {"c1"}, {}));
    snapshot.interfaces.back().settings = {4096, Direction::kBoth, 64, 0};
    Configured configured = FlowingConfigured();
    configured.interfaces["eth2"].collectors[0] = {"c1"};
    const std::string json = StateJson(snapshot, &configured);
    EXPECT_EQ(
        R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":true,"pid":4711,"session":"loaded",)"
        R"("since":"2026-11-21T05:00:11.123Z","operations":"9","operations-refused":"0",)"
        R"("packet-source":"ebpf-tcx"},"agent-address":"192.0.2.9",)"
        R"("collector":[{"name":"c1","address":"192.0.2.1","port":6343,"datagram-size":1400,"sending":true,)"
        R"("packets-sent":"12","bytes-sent":"16000","flow-samples-sent":"80","counter-samples-sent":"4",)"
        R"("packets-lost":"0","samples-lost":"0","errors":"0",)"
        R"("last-packet-time":"2026-11-21T06:00:09.623Z","last-packet-age":1}],)"
        R"("interface":[{"name":"eth1","sampling-rate":512,"sampling-rate-source":"own-setting",)"
        R"("max-header-size":128,"polling-interval":20,"direction":"ingress","flow-collector":["c1"],)"
        R"("counter-collector":["c1"],"kernel-interface":"k-eth1","ifindex":7,"admin-status":"up",)"
        R"("oper-status":"up","packet-source":"ebpf-tcx","packets-seen":"40960","packets-sampled":"80",)"
        R"("drops-buffer":"0","drops-no-collector":"0","last-sample-time":"2026-11-21T06:00:08.123Z",)"
        R"("last-sample-age":3,"counters-sent":"4","last-counters-time":"2026-11-21T05:59:10.123Z",)"
        R"("last-counters-age":61},)"
        R"({"name":"eth2","sampling-rate":4096,"sampling-rate-source":"speed-class",)"
        R"("max-header-size":64,"polling-interval":0,"direction":"both","flow-collector":["c1"],)"
        R"("kernel-interface":"k-eth2","ifindex":7,"admin-status":"up",)"
        R"("oper-status":"up","packet-source":"ebpf-tcx","packets-seen":"40960","packets-sampled":"80",)"
        R"("drops-buffer":"0","drops-no-collector":"0","last-sample-time":"2026-11-21T06:00:08.123Z",)"
        R"("last-sample-age":3,"counters-sent":"4","last-counters-time":"2026-11-21T05:59:10.123Z",)"
        R"("last-counters-age":61}]}}}})",
        json);
    EXPECT_EQ("", Fault(json));
}

TEST_F(StateText, OfAllThatDoesNotFlow)
{
    Snapshot snapshot = Flowing();
    snapshot.source = {"none", "CAP_NET_RAW is missing", false};
    snapshot.addedDirection = Direction::kEgress;
    snapshot.limitations = {"no marks", "no \xff statistics", "no\x01\tbell"};
    snapshot.agentAddress.reset();
    auto& stream = snapshot.collectors[0].stream;
    stream = {};
    stream.lostDatagrams = 2;
    stream.lostSamples = 14;
    stream.errors = 3;
    stream.lastError = std::make_error_code(std::errc::connection_refused);
    stream.lastErrorText = "send: \"refused\"";
    stream.lastErrorTime = kNow + std::chrono::hours{1};  // the clock was set back
    auto& interface = snapshot.interfaces[0];
    interface.name = "lo\\";
    interface.status = {};
    interface.status.present = true;
    interface.status.ifIndex = 9;
    interface.status.kernelName = "lo";
    interface.status.samplingError = "no";
    interface.settings = {4294967295U, Direction::kEgress, 512, 0};
    interface.status.dropsBuffer = 18446744073709551615U;
    interface.status.dropsNoCollector = 1;
    const std::string json = StateJson(snapshot, nullptr);
    EXPECT_EQ(
        R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":true,"pid":4711,"session":"loaded",)"
        R"("since":"2026-11-21T05:00:11.123Z","operations":"9","operations-refused":"0",)"
        R"("packet-source":"none","packet-source-reason":"CAP_NET_RAW is missing","added-direction":"egress",)"
        "\"limitation\":[\"no marks\",\"no \uFFFD statistics\",\"no\uFFFD\\tbell\"]},"
        R"("collector":[{"name":"c1","address":"192.0.2.1","port":6343,"datagram-size":1400,"sending":false,)"
        R"("packets-sent":"0","bytes-sent":"0","flow-samples-sent":"0","counter-samples-sent":"0",)"
        R"("packets-lost":"2","samples-lost":"14","errors":"3","last-error":"send: \"refused\"",)"
        R"("last-error-time":"2026-11-21T07:00:11.123Z","last-error-age":0,"problem":["refused"]}],)"
        R"("interface":[{"name":"lo\\","sampling-rate":4294967295,)"
        R"("max-header-size":512,"polling-interval":0,"direction":"egress","flow-collector":["c1"],)"
        R"("counter-collector":["c1"],"kernel-interface":"lo","ifindex":9,"admin-status":"down",)"
        R"("oper-status":"down","packet-source":"none","sampling-error":"no","packets-seen":"0",)"
        R"("packets-sampled":"0","drops-buffer":"18446744073709551615","drops-no-collector":"1",)"
        R"("counters-sent":"0","problem":["no-permission","polling-off"]}],)"
        R"("problem":[{"subject":"agent","name":"agent","reason":"no-agent-address","text":)"
        R"("there is no agent address, so a collector can't tell whose datagrams these are; )"
        R"(set oam sflow agent ipv4 ADDRESS, or give a management interface an address"},)"
        R"({"subject":"collector","name":"c1","reason":"refused","text":)"
        R"("nobody listens at 192.0.2.1:6343; start the collector there, or correct its port"},)"
        R"({"subject":"interface","name":"lo\\","reason":"no-permission","text":)"
        R"("the manager may not sample packets: CAP_NET_RAW is missing; start sflow-mgr with more privileges"},)"
        R"({"subject":"interface","name":"lo\\","reason":"polling-off","text":)"
        R"("its counters are not sent: the polling interval is 0; set oam sflow interface lo\\ )"
        R"(polling-interval 20"}]}}}})",
        json);
    EXPECT_EQ("", Fault(json));
}

TEST_F(StateText, GivesEachThingItsOwnProblems)
{
    Snapshot snapshot = Flowing();
    snapshot.interfaces.clear();
    for (const char* name : {"b", "d", "e"}) snapshot.interfaces.push_back(FlowingInterface(name));
    snapshot.interfaces[0].status = {};
    snapshot.interfaces[2].settings.interval = 0;
    Configured configured;
    for (const char* name : {"a", "b", "c", "d", "e", "f"}) configured.interfaces[name];
    const std::string json = StateJson(snapshot, &configured);
    EXPECT_EQ("", Fault(json));
    const auto sflow = nlohmann::json::parse(json).at("switch-state:state").at("oam").at("sflow");
    EXPECT_EQ(R"(["interface-missing"])", sflow.at("interface").at(0).at("problem").dump());
    EXPECT_FALSE(sflow.at("interface").at(1).contains("problem"));
    EXPECT_EQ(R"(["polling-off"])", sflow.at("interface").at(2).at("problem").dump());
    EXPECT_EQ(5U, sflow.at("problem").size());
}

TEST_F(StateText, TakesItsNumbersOfTheMoment)
{
    for (const auto& operation : {Add("c1"), Add("c2"), Update("eth2"), Update("eth1", "c1", "c2")})
        EXPECT_EQ("", m_state.Apply(operation));
    const StreamStatus stream = SendingCollector("c1").stream;
    const StatusSources sources{
        .now = [] { return kNow; },
        .source =
            [] {
                return SourceStatus{"packet-socket", "too old", true};
            },
        .interface = [](const std::string& name) { return FlowingInterface(name).status; },
        .collector = [&stream](const std::string& name) { return name == "c1" ? &stream : nullptr; },
        .limitations = [] { return std::vector<std::string>{"no marks"}; },
        .addedDirection = Direction::kBoth,
        .pid = 12};
    const std::string json = StateJson(
        m_service, sources,
        R"({"switch-oam-sflow:sflow":{"interface":[{"name":"eth1","sampling-rate":1},{"name":"eth3"}]}})");
    EXPECT_EQ("", Fault(json));
    const auto sflow = nlohmann::json::parse(json).at("switch-state:state").at("oam").at("sflow");
    EXPECT_EQ("packet-socket", sflow.at("manager").at("packet-source"));
    EXPECT_EQ("both", sflow.at("manager").at("added-direction"));
    EXPECT_EQ(R"(["no marks"])", sflow.at("manager").at("limitation").dump());
    EXPECT_EQ(12, sflow.at("manager").at("pid"));
    EXPECT_EQ("12", sflow.at("collector").at(0).at("packets-sent"));
    EXPECT_EQ("0", sflow.at("collector").at(1).at("packets-sent"));
    EXPECT_EQ("k-eth1", sflow.at("interface").at(0).at("kernel-interface"));
    EXPECT_EQ(R"(["c1"])", sflow.at("interface").at(0).at("flow-collector").dump());
    EXPECT_EQ(R"(["c2"])", sflow.at("interface").at(0).at("counter-collector").dump());
    EXPECT_EQ("own-setting", sflow.at("interface").at(0).at("sampling-rate-source"));
    EXPECT_FALSE(sflow.at("interface").at(1).contains("sampling-rate-source"));
    EXPECT_EQ("eth3", sflow.at("problem").back().at("name"));
}

TEST_F(StateText, MovesItsTimesToTheWallClockAndKeepsAgesWhenThatIsSet)
{
    for (const auto& operation : {Add("c1"), Update("eth1", "c1")}) EXPECT_EQ("", m_state.Apply(operation));
    const StreamStatus stream = SendingCollector("c1").stream;
    StatusSources sources{.now = [] { return kNow; },
                          .interface = [](const std::string& name) { return FlowingInterface(name).status; },
                          .collector = [&stream](const std::string&) { return &stream; }};
    const Snapshot before = TakeSnapshot(m_service, sources);
    for (const auto step : {std::chrono::hours(7), std::chrono::hours(-7), std::chrono::hours(0)}) {
        sources.wall = [step] { return kNow + step; };
        const Snapshot snapshot = TakeSnapshot(m_service, sources);
        EXPECT_EQ(kNow + step, snapshot.now);
        EXPECT_EQ(before.since + step, snapshot.since);
        EXPECT_EQ(*before.collectors[0].stream.lastDatagram + step,
                  snapshot.collectors[0].stream.lastDatagram);
        EXPECT_EQ(*before.interfaces[0].status.lastSample + step, snapshot.interfaces[0].status.lastSample);
        EXPECT_EQ(*before.interfaces[0].status.lastCounters + step,
                  snapshot.interfaces[0].status.lastCounters);
        EXPECT_EQ(before.collectors[0].stream.lastErrorTime.has_value(),
                  snapshot.collectors[0].stream.lastErrorTime.has_value());
    }
}

TEST_F(StateText, NamesTheJournalAndWhatIsMissingInIt)
{
    Journal journal("/dev/full");
    Service service(m_state, &journal, [this] { return m_now; });
    service.Open();
    const std::string json = StateJson(service, {}, "");
    EXPECT_NE(std::string::npos, json.find(R"("session":"loading")")) << json;
    EXPECT_NE(std::string::npos, json.find(R"("journal":"/dev/full","journal-errors":"1")")) << json;
    EXPECT_EQ("", Fault(json));
}

TEST_F(StateText, FaultsAreFound)
{
    EXPECT_NE("", Fault(R"({"switch-state:state":{"oam":{"sflow":{"unheard-of":1}}}})"));
}

}  // namespace
}  // namespace manager
