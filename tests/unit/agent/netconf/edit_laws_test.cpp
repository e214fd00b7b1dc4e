// SPDX-License-Identifier: Apache-2.0
// What is acknowledged is done, and what is refused has changed nothing: random edits over NETCONF, both
// datastores read after each, beside what a simple model says of the edit. With EDIT_LAWS_SEED and
// EDIT_LAWS_STEPS in the environment the long walk takes so many steps.

#include <gtest/gtest.h>

#include <charconv>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "agent/agent_world.h"
#include "agent/netconf/edit_model.h"
#include "agent/netconf/random_edit.h"

namespace agent_tests {
namespace {

using Answer = Expected::Answer;

/// Writes the same rate into every new interface, until the agent ends the connection.
class CallpointServer {
public:
    explicit CallpointServer(const World& world) : m_process(world, "test")
    {
        m_process.RegisterCallpoint();
        m_process.Ready();
        m_thread = std::thread([this] { Serve(); });
    }
    ~CallpointServer() { m_thread.join(); }

private:
    void Serve()
    {
        std::uint32_t rate = 0;
        std::from_chars(kCallpointRate.data(), kCallpointRate.data() + kCallpointRate.size(), rate);
        for (;;) {
            ipc::cdb::ServerMessage message;
            try {
                if (!m_process.Frames().Receive(message)) return;
            } catch (const support::TimedOut&) {
                continue;
            }
            if (message.has_callpoint_request()) m_process.Answer(message.callpoint_request(), rate);
        }
    }

    Process m_process;
    std::thread m_thread;
};

class EditLaws : public testing::Test {
protected:
    ~EditLaws() override
    {
        m_client.reset();
        m_world.reset();  // ends the callpoint's connection
    }

    void Go(std::uint32_t seed, int steps)
    {
        Random random(seed);
        Connect();
        for (int i = 0; i < steps && !HasFailure(); ++i) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
            Step(random);
        }
        if (!HasFailure()) Restart();
        // The walk reaches both sides of each question.
        if (HasFailure()) return;
        EXPECT_GT(m_done, steps / 10);
        EXPECT_GT(m_refused, steps / 10);
        EXPECT_GT(m_commits, steps / 40);
        std::cout << m_done << " done, " << m_refused << " refused, " << m_changes << " changes, "
                  << m_commits << " commits\n";
    }

private:
    void Connect()
    {
        m_callpoint = std::make_unique<CallpointServer>(*m_world);
        m_client = std::make_unique<netconf::Client>(m_world->Connect());
    }

    void Step(Random& random)
    {
        const int kind = random.Below(100);
        if (kind < 78) return Edit(random);
        if (kind < 82) return EditTampered(random);
        if (kind < 90) return Commit();
        if (kind < 93) return Validate();
        if (kind < 99) return Discard();
        Restart();
    }

    netconf::Reply Send(const std::string& operation)
    {
        netconf::Reply reply = m_client->Call(operation);
        int errors = 0;
        for (const auto& error : reply.errors) errors += error.IsWarning() ? 0 : 1;
        const bool saysOk = reply.xml.find("<ok/>") != std::string::npos;
        // Warnings stand beside an <ok/>, or in its place.
        EXPECT_EQ(reply.ok, errors == 0) << reply.xml;
        EXPECT_TRUE(errors == 0 ? saysOk || !reply.errors.empty() : !saysOk) << reply.xml;
        return reply;
    }

    /// Looks at both datastores.
    void ExpectContents(const std::string& candidate, const std::string& running, const std::string& why)
    {
        EXPECT_EQ(Config(*m_client, "candidate"), candidate) << why;
        EXPECT_EQ(Config(*m_client, "running"), running) << why;
    }

    /// The candidate may have changed, running can't have.
    void Adopt(const std::string& why)
    {
        m_candidate = Config(*m_client, "candidate");
        m_state = StateOf(m_candidate);
        ExpectContents(m_candidate, m_running, why);
    }

    void Edit(Random& random)
    {
        const auto edit = MakeRandomEdit(random);
        const EditParameters parameters = MakeRandomParameters(random);
        const std::string text = Written(random, edit);
        const Expected expected = Expect(m_state, edit, parameters);
        const std::string operation = netconf::EditConfig(
            text, {parameters.defaultOperation, parameters.testOption, parameters.errorOption});
        const netconf::Reply reply = Send(operation);
        const std::string told = operation + "\n" + reply.xml + "\nbefore: " + m_candidate;
        if (!reply.ok) {
            ++m_refused;
            EXPECT_NE(expected.answer, Answer::kOk) << told;
            if (parameters.errorOption == "continue-on-error") return Adopt(told);
            return ExpectContents(m_candidate, m_running, told);
        }
        ++m_done;
        ASSERT_NE(expected.answer, Answer::kRefused) << told;
        const std::string now = Config(*m_client, "candidate");
        ASSERT_EQ(Difference(expected.after, StateOf(now)), "") << told;
        // Where nothing has changed by what it says, not a byte has.
        if (expected.after == m_state)
            EXPECT_EQ(now, m_candidate) << told;
        else
            ++m_changes;
        m_state = expected.after;
        m_candidate = now;
        ExpectContents(m_candidate, m_running, told);
    }

    /// A byte of the message is another one, or some of it is missing: the model can't foresee the answer.
    void EditTampered(Random& random)
    {
        std::string text = Written(random, MakeRandomEdit(random));
        for (int i = 1 + random.Below(3); i > 0 && !text.empty(); --i) {
            const auto at = static_cast<std::size_t>(random.Below(static_cast<int>(text.size())));
            if (random.OneIn(2))
                text.erase(at, static_cast<std::size_t>(1 + random.Below(20)));
            else
                text[at] = "<>/'\"& a0:\x01\xC3"[random.Below(12)];
        }
        const std::string operation = netconf::EditConfig(text, {"", random.OneIn(2) ? "" : "set", ""});
        const netconf::Reply reply = Send(operation);
        if (reply.ok) {
            m_candidate = Config(*m_client, "candidate");
            m_state = StateOf(m_candidate);
        }
        ExpectContents(m_candidate, m_running, operation + "\n" + reply.xml);
    }

    void Commit()
    {
        const netconf::Reply reply = Send(netconf::Commit());
        EXPECT_EQ(reply.ok, IsValid(m_state)) << reply.xml << "\n" << m_candidate;
        if (reply.ok) {
            ++m_commits;
            m_running = m_candidate;
            m_runningState = m_state;
        }
        ExpectContents(m_candidate, m_running, reply.xml);
        if (!reply.ok) Discard();  // else few edits would pass their test
    }

    void Validate()
    {
        const netconf::Reply reply = Send(netconf::Validate());
        EXPECT_EQ(reply.ok, IsValid(m_state)) << reply.xml << "\n" << m_candidate;
        ExpectContents(m_candidate, m_running, reply.xml);
    }

    void Discard()
    {
        EXPECT_TRUE(Send(netconf::DiscardChanges()).ok);
        m_candidate = m_running;
        m_state = m_runningState;
        ExpectContents(m_running, m_running, "discard");
    }

    void Restart()
    {
        m_client.reset();
        m_world->Restart();
        Connect();
        m_candidate = m_running;
        m_state = m_runningState;
        ExpectContents(m_running, m_running, "restart");
    }

    std::unique_ptr<CallpointServer> m_callpoint;  // goes last: it ends with the agent
    std::unique_ptr<World> m_world = std::make_unique<World>();
    std::unique_ptr<netconf::Client> m_client;
    ModelState m_state;         // of the candidate
    ModelState m_runningState;  // of running
    std::string m_candidate;
    std::string m_running;
    int m_done = 0;
    int m_changes = 0;
    int m_refused = 0;
    int m_commits = 0;
};

int FromEnvironment(const char* name, int otherwise)
{
    const char* const text = std::getenv(name);
    int number = otherwise;
    if (text != nullptr) std::from_chars(text, text + std::string_view(text).size(), number);
    return number;
}

class EditLawsOfASeed : public EditLaws, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(EditLawsOfASeed, Hold) { Go(GetParam(), 600); }

INSTANTIATE_TEST_SUITE_P(Seeds, EditLawsOfASeed, testing::Values(1U, 2U, 3U, 4U));

TEST_F(EditLaws, HoldAsLongAsAsked)
{
    const int steps = FromEnvironment("EDIT_LAWS_STEPS", 0);
    if (steps <= 0) GTEST_SKIP() << "goes EDIT_LAWS_STEPS steps, from EDIT_LAWS_SEED";
    const auto seed = FromEnvironment("EDIT_LAWS_SEED", static_cast<int>(std::random_device()() >> 1U));
    std::cout << "EDIT_LAWS_SEED=" << seed << "\n";
    Go(static_cast<std::uint32_t>(seed), steps);
}

}  // namespace
}  // namespace agent_tests
