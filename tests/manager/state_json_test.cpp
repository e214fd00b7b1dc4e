// The state as it is shown: the text itself, and that the model accepts it.

#include "manager/state_json.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <chrono>

#include "ipc/manager.pb.h"
#include "manager/journal.h"
#include "manager/recorder.h"
#include "manager/service.h"

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
    const std::string json = StateJson(m_service, 4711);
    EXPECT_EQ(R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":false,"pid":4711,)"
              R"("session":"none","since":"2026-11-21T06:00:11.123Z","operations":"0",)"
              R"("operations-refused":"0"}}}}})",
              json);
    EXPECT_EQ("", Fault(json));
}

TEST_F(StateText, OfAllThatIsHeld)
{
    ipc::manager::ClientMessage message;
    m_service.Open();
    message.mutable_set_agent_address()->set_address(Address("192.0.2.9"));
    m_service.Take(message);
    message.mutable_loaded();
    m_service.Take(message);
    for (const auto& operation :
         {Add("c2"), Add("c1", "192.0.2.7", 1, 200), Update("eth2"), Update("eth10", "c1", "c2"),
          AddFlow("eth10", "c2"),
          Operation{UpdateInterface{"gigabit-ethernet-1/1/1", "", "", {1, Direction::kBoth, 64, 0}}},
          Operation{UpdateInterface{"lo\\", "", "", {4294967295U, Direction::kEgress, 512, 3600}}}})
        EXPECT_EQ("", m_state.Apply(operation));
    const std::string json = StateJson(m_service, 1);
    EXPECT_EQ(
        R"({"switch-state:state":{"oam":{"sflow":{"manager":{"connected":true,"pid":1,"session":"loaded",)"
        R"("since":"2026-11-21T06:00:11.123Z","operations":"1","operations-refused":"0"},)"
        R"("agent-address":"192.0.2.9",)"
        R"("collector":[{"name":"c1","address":"192.0.2.7","port":1,"datagram-size":200},)"
        R"({"name":"c2","address":"192.0.2.1","port":6343,"datagram-size":1400}],)"
        R"("interface":[)"
        R"({"name":"eth10","sampling-rate":4096,"max-header-size":128,"polling-interval":20,)"
        R"("direction":"ingress","flow-collector":["c1","c2"],"counter-collector":["c2"]},)"
        R"({"name":"eth2","sampling-rate":4096,"max-header-size":128,"polling-interval":20,)"
        R"("direction":"ingress"},)"
        R"({"name":"gigabit-ethernet-1/1/1","sampling-rate":1,"max-header-size":64,)"
        R"("polling-interval":0,"direction":"both"},)"
        R"({"name":"lo\\","sampling-rate":4294967295,"max-header-size":512,"polling-interval":3600,)"
        R"("direction":"egress"}]}}}})",
        json);
    EXPECT_EQ("", Fault(json));
}

TEST_F(StateText, NamesTheJournalAndWhatIsMissingInIt)
{
    Journal journal("/dev/full");
    Service service(m_state, &journal, [this] { return m_now; });
    service.Open();
    const std::string json = StateJson(service, 1);
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
