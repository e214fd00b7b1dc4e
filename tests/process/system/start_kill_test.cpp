// SPDX-License-Identifier: Apache-2.0
// cdbd killed at each of the calls by which a new store is made, at the first start and while a configuration
// is loaded into it: the next start finds a whole store, or none and makes one.

#include <csignal>

#include "support/write_faults.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

using support::WriteOutcome;

constexpr unsigned kMaxCallsOfStart = 200;

class KillAtTheStart : public testing::TestWithParam<WriteOutcome> {
protected:
    // A switch that has never been started, whose next cdbd ends at that call.
    void Begin(unsigned call)
    {
        WorldOptions options;
        options.cdbdEnvironment = m_faults.Environment();
        m_world = std::make_unique<World>(options);
        m_faults.Watch(m_world->StateDir());
        m_faults.Arm({.outcome = GetParam(), .call = call, .error = 0, .lasting = false});
    }

    // Whether it was ended. A daemon that gets to listen was not.
    bool Ended(const std::vector<std::string>& arguments)
    {
        const auto process = m_world->Spawn("cdbd", arguments, "cdbd", m_faults.Environment());
        Await("cdbd to end or to listen",
              [&] { return !process->Running() || Accepts(m_world->NetconfSocket()); });
        m_faults.Disarm();
        if (process->Running()) {
            EXPECT_EQ(0, process->Terminate());
            return false;
        }
        const auto status = process->Wait();
        EXPECT_TRUE(status == 0 || status == 128 + SIGKILL) << status << m_world->Log("cdbd");
        return status != 0;
    }

    void ExpectStarts(const std::string& content)
    {
        m_world->StartCdbd();
        auto client = netconf::Client::Connect(m_world->NetconfSocket());
        EXPECT_THAT(client.Call(netconf::GetConfig("running")).data, HasSubstr(content));
        const auto edit = netconf::EditConfig(scenario::SflowXml("<agent><ipv4>203.0.113.9</ipv4></agent>"));
        EXPECT_TRUE(client.Call(edit).ok);
        EXPECT_TRUE(client.Call(netconf::Commit()).ok);
        m_world->Cdbd().Kill();
        m_world->StartCdbd();
        auto again = netconf::Client::Connect(m_world->NetconfSocket());
        EXPECT_THAT(again.Call(netconf::GetConfig("running")).data, HasSubstr("203.0.113.9"));
    }

    World& TheWorld() { return *m_world; }

private:
    support::WriteFaults m_faults;
    std::unique_ptr<World> m_world;
};

TEST_P(KillAtTheStart, OfAnEmptySwitchLeavesOneThatStarts)
{
    unsigned call = 1;
    for (;; ++call) {
        ASSERT_LT(call, kMaxCallsOfStart);
        SCOPED_TRACE("ended at call " + std::to_string(call));
        Begin(call);
        if (!Ended({})) break;
        ExpectStarts("");
    }
    EXPECT_GT(call, 3U);
}

TEST_P(KillAtTheStart, WhileAFileIsLoadedLeavesAllOfItOrNothing)
{
    unsigned call = 1;
    for (;; ++call) {
        ASSERT_LT(call, kMaxCallsOfStart);
        SCOPED_TRACE("ended at call " + std::to_string(call));
        Begin(call);
        const auto file = TheWorld().Dir() / "file.json";
        support::WriteFile(file, scenario::Usual());
        if (!Ended({"--init", file})) break;
        // If all of it is there already, loading it once more is refused.
        const auto again = TheWorld().Run({World::Program("cdbd"), "--init", file});
        if (again.status != 0) {
            EXPECT_THAT(again.errors + TheWorld().Log("run"), HasSubstr(TheWorld().StateDir().string()));
        }
        ExpectStarts("<name>eth1</name>");
    }
    EXPECT_GT(call, 6U);
}

INSTANTIATE_TEST_SUITE_P(Each, KillAtTheStart,
                         testing::Values(WriteOutcome::kEndAfter, WriteOutcome::kEndInTheMiddle),
                         [](const auto& outcome) {
                             return outcome.param == WriteOutcome::kEndAfter ? "AfterACall"
                                                                             : "InTheMiddleOfACall";
                         });

}  // namespace

}  // namespace system_tests
