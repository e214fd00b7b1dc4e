// SPDX-License-Identifier: Apache-2.0
// Changes of the node's role.

#include <qxos/callback.h>

#include "platform/embedded/runtime.h"
#include "world.h"

namespace {

class RecordingCallback final : public qxos::Callback {
public:
    RecordingCallback(Events& events, std::string name, bool result)
        : Callback(boost::any()), m_events(events), m_name(std::move(name)), m_result(result)
    {
    }
    bool Invoke() override
    {
        m_events.push_back(m_name);
        return m_result;
    }

private:
    Events& m_events;
    const std::string m_name;
    const bool m_result;
};

class HaTest : public World {
protected:
    /// Replaces the world's context by one with these callbacks.
    void UseCallbacks(qxos::Callback* active, qxos::Callback* standby)
    {
        m_manager.reset();
        m_cdb.reset();
        const qxmw_process_signature_t signature{"sflow-app"};
        m_context = std::make_unique<qxos::Context>(
            &signature, qxos::Context::HaStateChangeCallbacks{active, standby, {nullptr, nullptr, nullptr}});
        qxos::the_context = m_context.get();
        m_runtime = &qxos::ContextAccess::RuntimeOf(*m_context);
        auto timers = std::make_unique<support::ManualTimers>();
        m_timers = timers.get();
        m_runtime->timers = std::move(timers);
        m_cdb = std::make_unique<CdbPeer>(m_runtime->loop, m_runtime->cdbSocket);
        Connect();
    }

    bool Transition(ipc::cdb::HaTransition::Role role)
    {
        ipc::cdb::ServerMessage message;
        message.mutable_ha_transition()->set_request(5);
        message.mutable_ha_transition()->set_role(role);
        m_cdb->Send(message);
        Settle();
        const auto answers = m_cdb->Take();
        EXPECT_EQ(answers.size(), 1U);
        EXPECT_EQ(answers.at(0).ha_reply().request(), 5U);
        return answers.at(0).ha_reply().handled();
    }
};

TEST_F(HaTest, CallsTheRolesCallbackAndAnswersItsResult)
{
    RecordingCallback active(m_events, "active", true);
    RecordingCallback standby(m_events, "standby", false);
    UseCallbacks(&active, &standby);
    EXPECT_TRUE(Transition(ipc::cdb::HaTransition::ACTIVE));
    EXPECT_FALSE(Transition(ipc::cdb::HaTransition::STANDBY));
    EXPECT_EQ(m_events, (Events{"active", "standby"}));
    m_service.reset();
    DisposeFramework();
}

TEST_F(HaTest, AnswersThatNobodyTookNote)
{
    Connect();
    EXPECT_FALSE(Transition(ipc::cdb::HaTransition::ACTIVE));
    EXPECT_FALSE(Transition(ipc::cdb::HaTransition::STANDBY));
    EXPECT_EQ(m_events, Events{});
}

}  // namespace
