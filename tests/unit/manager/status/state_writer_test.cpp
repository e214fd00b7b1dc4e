// SPDX-License-Identifier: Apache-2.0
// The state as it is shown: the nodes themselves, and that the model accepts them.

#include "manager/status/state_writer.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <chrono>
#include <system_error>

#include "agent/state/provided_state.h"
#include "manager/service/journal.h"
#include "manager/shown.h"
#include "manager/status/configured.h"
#include "manager/status/state_answer.h"
#include "support/shown_state.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

const WantedLeaves kAll{true, {}};

class StateText : public testing::Test {
protected:
    StateText()
    {
        EXPECT_EQ(LY_SUCCESS, ly_ctx_new(SFLOW_TEST_YANG_DIR, 0, &m_context));
        EXPECT_NE(nullptr, ly_ctx_load_module(m_context, "switch-state", nullptr, nullptr));
    }
    ~StateText() override { ly_ctx_destroy(m_context); }

    /// Whether the model accepts it all; the reason where not.
    [[nodiscard]] std::string Fault(const ipc::cdb::StateReply& part) const
    {
        return agent::ProvidedState(m_context, {{kStatePath}}).Take(part);
    }

    /// Everything of the view, as the manager writes it in one part.
    std::string Text(const View& view, const Configured* configured)
    {
        ipc::cdb::StateReply part;
        StateWriter writer(part, kStatePath);
        writer.Manager(view.Manager(), view.Own(), kAll);
        if (const auto address = view.Table().AgentAddress()) writer.AgentAddress(*address);
        writer.SubAgent(view.Own().SubAgent());
        const auto problems = DiagnoseAll(view, configured);
        const auto own = [&problems](Subject subject, const std::string& name) {
            std::vector<Problem> found;
            for (const Problem& problem : problems)
                if (problem.subject == subject && problem.name == name) found.push_back(problem);
            return found;
        };
        for (const auto& entry : view.Table().AllCollectors())
            writer.Collector(view.Of(entry), view.Now(), own(Subject::kCollector, entry.first), kAll);
        for (const auto& entry : view.Table().AllInterfaces())
            writer.Interface(view.Of(entry), view, configured, own(Subject::kInterface, entry.first), kAll);
        for (const DropsAtInterface& drops : view.Drops()) writer.Drops(drops, view.Now());
        for (const Problem& problem : problems) writer.Problem(problem);
        EXPECT_EQ("", Fault(part));
        return support::Shown(part).dump();
    }

    /// Of a manager that has nothing but that service.
    [[nodiscard]] View Of(const Service& service) const
    {
        StatusSources sources{m_table, m_own};
        sources.manager = [&service] {
            ManagerStatus status = StatusOf(service);
            status.pid = 4711;
            return status;
        };
        return View(std::move(sources));
    }

    ly_ctx* m_context = nullptr;
    ServiceTable m_table;
    OwnSettings m_own;
    system_clock::time_point m_now{milliseconds{1'795'240'811'123}};
    Service m_service{m_table, nullptr, [this] { return m_now; }, [](const Touched&) {}};
};

TEST_F(StateText, OfAManagerThatNobodyHasSpokenTo)
{
    EXPECT_EQ(
        R"({"sub-agent":"0","manager":{"connected":"false","pid":"4711",)"
        R"("session":"none","since":"2026-11-21T06:00:11.123Z","operations":"0",)"
        R"("operations-refused":"0","packet-source":"none","samples-per-second":"0","datagrams-per-second":"0","discard-limit":"100","discard-interfaces":"none",)"
        R"("discards-uncounted":"0"},"problem":[{"keys":["agent","agent","no-session"],)"
        R"("severity":"broken","text":")" +
            text::NoSession() + R"("}]})",
        Text(Of(m_service), nullptr));
}

TEST_F(StateText, OfAllThatFlows)
{
    Flowing shown;
    shown.Update("eth2", "c1", "", {4096, Direction::kBoth, 64, 0});
    shown.manager.discards = {.running = true, .reason = "", .uncounted = 5};
    shown.drops = TwoDrops();
    Configured configured = FlowingConfigured();
    configured.interfaces["eth2"].collectors[0] = {"c1"};
    const std::string json = Text(shown.Look(), &configured);
    EXPECT_EQ(
        R"({"agent-address":"192.0.2.9","sub-agent":"0","manager":{"connected":"true","pid":"4711","session":"loaded",)"
        R"("since":"2026-11-21T05:00:11.123Z","operations":"9","operations-refused":"0",)"
        R"("packet-source":"ebpf-tcx","samples-per-second":"0","datagrams-per-second":"0","discard-limit":"100","discard-interfaces":"configured",)"
        R"("discards-uncounted":"5"},)"
        R"("collector":[{"keys":["c1"],"address":"192.0.2.1","port":"6343","datagram-size":"1400","dscp":"0",)"
        R"("discards":"false","sending":"true",)"
        R"("packets-sent":"12","bytes-sent":"16000","flow-samples-sent":"80","counter-samples-sent":"4",)"
        R"("discards-sent":"9","packets-lost":"0","samples-lost":"0","errors":"0",)"
        R"("last-packet-time":"2026-11-21T06:00:09.623Z","last-packet-age":"1"}],)"
        R"("interface":[{"keys":["eth1"],"sampling-rate":"512","sampling-rate-source":"own-setting",)"
        R"("max-header-size":"128","polling-interval":"20","direction":"ingress","flow-collector":["c1"],)"
        R"("counter-collector":["c1"],"kernel-interface":"k-eth1","ifindex":"7","admin-status":"up",)"
        R"("oper-status":"up","packet-source":"ebpf-tcx","packets-seen":"40960","packets-sampled":"80",)"
        R"("sampled-bytes":"8320","drops-buffer":"0","drops-no-collector":"0","last-sample-time":"2026-11-21T06:00:08.123Z",)"
        R"("last-sample-age":"3","counters-sent":"4","last-counters-time":"2026-11-21T05:59:10.123Z",)"
        R"("last-counters-age":"61"},)"
        R"({"keys":["eth2"],"sampling-rate":"4096","sampling-rate-source":"speed-class",)"
        R"("max-header-size":"64","polling-interval":"0","direction":"both","flow-collector":["c1"],)"
        R"("kernel-interface":"k-eth2","ifindex":"7","admin-status":"up",)"
        R"("oper-status":"up","packet-source":"ebpf-tcx","packets-seen":"40960","packets-sampled":"80",)"
        R"("sampled-bytes":"8320","drops-buffer":"0","drops-no-collector":"0","last-sample-time":"2026-11-21T06:00:08.123Z",)"
        R"("last-sample-age":"3","counters-sent":"4","last-counters-time":"2026-11-21T05:59:10.123Z",)"
        R"("last-counters-age":"61"}],)"
        R"("drops":[{"keys":["eth1"],"ifindex":"7","packets":"12","packets-not-told":"3","reason":[)"
        R"({"keys":["NO_SOCKET"],"packets":"10","rate":"2","last-time":"2026-11-21T06:00:08.123Z",)"
        R"("last-age":"3","code":"3","function":"udp_rcv"},)"
        R"({"keys":["OTHERHOST"],"packets":"2","rate":"0","last-time":"2026-11-21T06:00:10.123Z",)"
        R"("last-age":"1"}]},{"keys":["n/a"],"ifindex":"0","packets":"1","packets-not-told":"0"}]})",
        json);
}

TEST_F(StateText, OfAllThatDoesNotFlow)
{
    Shown shown;
    shown.manager.pid = 4711;
    shown.manager.session = Service::Session::kLoaded;
    shown.manager.since = kNow - std::chrono::hours{1};
    shown.manager.operations = 9;
    shown.manager.source = {"none", "CAP_NET_RAW is missing", false};
    shown.own.Update(
        {.general = OwnGeneral{.subAgent = 7, .direction = Direction::kEgress, .discardLimit = 0}});
    shown.manager.limitations = {"no marks", "no statistics"};
    shown.manager.discards = {.running = false, .reason = "the kernel is too old", .uncounted = 0};
    shown.Add("c1");
    auto& stream = shown.collectors.at("c1");
    stream = {};
    stream.lostDatagrams = 2;
    stream.lostSamples = 14;
    stream.errors = 3;
    stream.lastError = std::make_error_code(std::errc::connection_refused);
    stream.lastErrorText = "send: \"refused\"";
    stream.lastErrorTime = kNow + std::chrono::hours{1};  // the clock was set back
    shown.Update("lo\\", "c1", "c1", {4294967295U, Direction::kEgress, 512, 0});
    auto& status = shown.interfaces.at("lo\\");
    status = {};
    status.present = true;
    status.ifIndex = 9;
    status.kernelName = "lo";
    status.samplingError = "no";
    status.dropsBuffer = 18446744073709551615U;
    status.dropsNoCollector = 1;
    const std::string json = Text(shown.Look(), nullptr);
    EXPECT_EQ(
        R"({"sub-agent":"7","manager":{"connected":"true","pid":"4711","session":"loaded",)"
        R"("since":"2026-11-21T05:00:11.123Z","operations":"9","operations-refused":"0",)"
        R"("packet-source":"none","packet-source-reason":"CAP_NET_RAW is missing","added-direction":"egress",)"
        R"("samples-per-second":"0","datagrams-per-second":"0","discard-limit":"0","discard-interfaces":"none",)"
        R"("discard-interfaces-reason":"the kernel is too old","discards-uncounted":"0","limitation":["no marks","no statistics"]},)"
        R"("collector":[{"keys":["c1"],"address":"192.0.2.1","port":"6343","datagram-size":"1400","dscp":"0",)"
        R"("discards":"false","sending":"false",)"
        R"("packets-sent":"0","bytes-sent":"0","flow-samples-sent":"0","counter-samples-sent":"0",)"
        R"("discards-sent":"0","packets-lost":"2","samples-lost":"14","errors":"3","last-error":"send: \"refused\"",)"
        R"("last-error-time":"2026-11-21T07:00:11.123Z","last-error-age":"0","problem":["refused"]}],)"
        R"("interface":[{"keys":["lo\\"],"sampling-rate":"4294967295",)"
        R"("max-header-size":"512","polling-interval":"0","direction":"egress","flow-collector":["c1"],)"
        R"("counter-collector":["c1"],"kernel-interface":"lo","ifindex":"9","admin-status":"down",)"
        R"("oper-status":"down","packet-source":"none","sampling-error":"no","packets-seen":"0",)"
        R"("packets-sampled":"0","sampled-bytes":"0","drops-buffer":"18446744073709551615","drops-no-collector":"1",)"
        R"("counters-sent":"0","problem":["no-permission","polling-off"]}],)"
        R"("problem":[{"keys":["agent","agent","no-agent-address"],"severity":"broken","text":)"
        R"("there is no agent address, so a collector can't tell whose datagrams these are; )"
        R"(set oam sflow agent ipv4 ADDRESS, or give a management interface an address"},)"
        R"({"keys":["collector","c1","refused"],"severity":"broken","text":)"
        R"("no program listens at 192.0.2.1:6343; start the collector there, or correct its port"},)"
        R"({"keys":["interface","lo\\","no-permission"],"severity":"broken","text":)"
        R"("the manager may not sample packets: CAP_NET_RAW is missing; start sflow-mgr with more privileges"},)"
        R"({"keys":["interface","lo\\","polling-off"],"severity":"off","text":)"
        R"("its counters are not sent: the polling interval is 0; set oam sflow interface lo\\ )"
        R"(polling-interval 20"}]})",
        json);
}

TEST_F(StateText, HasTheLeavesThatAreWanted)
{
    Flowing shown;
    shown.Update("eth2");
    const View view = shown.Look();
    ipc::cdb::StateReply part;
    StateWriter writer(part, kStatePath);
    writer.Manager(view.Manager(), view.Own(), {false, {"pid", "limitation", "unheard-of"}});
    writer.Collector(view.Of(*view.Table().AllCollectors().find("c1")), view.Now(), {},
                     {false, {"last-packet-age"}});
    const auto& interfaces = view.Table().AllInterfaces();
    writer.Interface(view.Of(*interfaces.find("eth1")), view, nullptr, {}, {false, {"last-sample-time"}});
    writer.Interface(view.Of(*interfaces.find("eth2")), view, nullptr, {}, {false, {"name"}});
    EXPECT_EQ(R"({"manager":{"pid":"4711"},"collector":[{"keys":["c1"],"last-packet-age":"1"}],)"
              R"("interface":[{"keys":["eth1"],"last-sample-time":"2026-11-21T06:00:08.123Z"},)"
              R"({"keys":["eth2"]}]})",
              support::Shown(part).dump());
    EXPECT_EQ("", Fault(part));
}

TEST_F(StateText, HasDatesOfAnyTime)
{
    ipc::cdb::StateReply part;
    StateWriter writer(part, kStatePath);
    writer.Manager(ManagerStatus{}, OwnSettings(), {false, {"since"}});
    EXPECT_EQ(R"({"manager":{"since":"1970-01-01T00:00:00.000Z"}})", support::Shown(part).dump());
}

TEST_F(StateText, MovesItsTimesToTheWallClockAndKeepsAgesWhenThatIsSet)
{
    for (const auto& operation : {Add("c1"), Update("eth1", "c1")})
        EXPECT_EQ("", ReasonOf(m_table.Apply(operation)));
    const StreamStatus stream = SendingStream();
    StatusSources sources{.table = m_table,
                          .own = m_own,
                          .manager = [this] { return StatusOf(m_service); },
                          .interface = [](const std::string& name) { return FlowingStatus(name); },
                          .collector = [&stream](const std::string&) { return &stream; },
                          .now = [] { return kNow; }};
    for (const auto step : {std::chrono::hours(7), std::chrono::hours(-7), std::chrono::hours(0)}) {
        sources.wall = [step] { return kNow + step; };
        const View view(sources);
        EXPECT_EQ(kNow + step, view.Now());
        EXPECT_EQ(m_service.Since() + step, view.Manager().since);
        const View::Collector collector = view.Of(*m_table.AllCollectors().begin());
        EXPECT_EQ(*stream.lastDatagram + step, collector.stream.lastDatagram);
        EXPECT_FALSE(collector.stream.lastErrorTime.has_value());
        const View::Interface interface = view.Of(*m_table.AllInterfaces().begin());
        EXPECT_EQ(*FlowingStatus("eth1").lastSample + step, interface.status.lastSample);
        EXPECT_EQ(*FlowingStatus("eth1").lastCounters + step, interface.status.lastCounters);
    }
}

TEST_F(StateText, NamesTheJournalAndWhatIsMissingInIt)
{
    Journal journal("/dev/full");
    Service service(
        m_table, &journal, [this] { return m_now; }, [](const Touched&) {});
    service.Open();
    const std::string text = Text(Of(service), nullptr);
    EXPECT_NE(std::string::npos, text.find(R"("session":"loading")")) << text;
    EXPECT_NE(std::string::npos, text.find(R"("journal":"/dev/full","journal-errors":"1")")) << text;
}

}  // namespace
}  // namespace manager
