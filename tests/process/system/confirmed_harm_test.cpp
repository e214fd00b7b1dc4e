// SPDX-License-Identifier: Apache-2.0
// cdbd is killed at each write of a confirmed commit and of its roll-back, and the disk is full as it is due:
// running is what it was before, in the end.

#include <cerrno>

#include "system/harmed_store.h"

namespace system_tests {
namespace {

using support::WriteFault;
using support::WriteOutcome;

constexpr unsigned kMaxCalls = 100;

class ConfirmedHarmed : public HarmedStore {
protected:
    ConfirmedHarmed()
    {
        TheWorld().Start(scenario::Usual());
        Commit(Rate("eth1", 101));
        m_before = Running();
    }

    /// Calls under the fault; whether there was an answer.
    bool CallHarmed(netconf::Client& client, const std::string& operation, const WriteFault& fault)
    {
        Faults().Arm(fault);
        bool answered = true;
        try {
            static_cast<void>(client.Call(operation));
        } catch (const netconf::ConnectionError&) {
            answered = false;
        }
        Faults().Disarm();
        return answered;
    }

    /// Only the last round has an answer; it ends by a kill, too.
    void AwaitEnd(bool answered)
    {
        if (answered)
            TheWorld().Cdbd().Kill();
        else
            TheWorld().Cdbd().Wait();
    }

    std::string Pending()
    {
        return Connect()
            .Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system><history "
                               "xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation/></history>"
                               "</system></state>"))
            .data;
    }

    std::string m_before;
};

class ConfirmedKilled : public ConfirmedHarmed, public testing::WithParamInterface<WriteOutcome> {};
INSTANTIATE_TEST_SUITE_P(AtEachWrite, ConfirmedKilled,
                         testing::Values(WriteOutcome::kEndAfter, WriteOutcome::kEndInTheMiddle),
                         [](const auto& row) {
                             return row.param == WriteOutcome::kEndAfter ? "AfterIt" : "InTheMiddleOfIt";
                         });

/// The commit and the record that it waits are there both or not at all; the session has ended, so at the
/// start there is neither.
TEST_P(ConfirmedKilled, CommitsLeaveNothing)
{
    bool answered = false;
    for (unsigned call = 1; call < kMaxCalls && !answered; ++call) {
        {
            auto client = Connect();
            Do(client, netconf::EditConfig(Rate("eth1", 202)));
            answered = CallHarmed(client, netconf::CommitConfirmed({.timeout = "3600"}),
                                  {.outcome = GetParam(), .call = call});
            AwaitEnd(answered);
        }
        Restart();
        ASSERT_EQ(Running(), m_before) << "killed at call " << call;
        ASSERT_EQ(Pending(), "") << "killed at call " << call;
    }
    EXPECT_TRUE(answered);
    ExpectNothingComesBack();
}

/// A roll-back is there whole, or the commit waits on.
TEST_P(ConfirmedKilled, RollBacksAreWholeOrStillToCome)
{
    bool answered = false;
    for (unsigned call = 1; call < kMaxCalls && !answered; ++call) {
        auto client = Connect();
        Do(client, netconf::EditConfig(Rate("eth1", 202)));
        Do(client, netconf::CommitConfirmed({.timeout = "3600", .persist = "token"}));
        answered = CallHarmed(client, netconf::CancelCommit("token"), {.outcome = GetParam(), .call = call});
        AwaitEnd(answered);
        Restart();
        if (!Pending().empty()) {
            ASSERT_NE(Running(), m_before) << "killed at call " << call;
            auto later = Connect();
            Do(later, netconf::CancelCommit("token"));
        }
        ASSERT_EQ(Running(), m_before) << "killed at call " << call;
        ASSERT_EQ(Pending(), "") << "killed at call " << call;
    }
    EXPECT_TRUE(answered);
    ExpectNothingComesBack();
}

TEST_F(ConfirmedHarmed, RollBacksThatTheDiskRefusesAreTriedAgain)
{
    auto client = Connect();
    const WriteFault full{.outcome = WriteOutcome::kFail, .call = 1, .error = ENOSPC, .lasting = true};
    Do(client, netconf::EditConfig(Rate("eth1", 202)));
    Do(client, netconf::CommitConfirmed({.timeout = "3600"}));
    Faults().Arm(full);
    Refused(client, netconf::CancelCommit(), "resource-denied");
    Faults().Disarm();
    EXPECT_THAT(Pending(), testing::AllOf(Not(""), Not(HasSubstr("<problem>"))));
    Do(client, netconf::CancelCommit());
    // On a busy machine the time may be over before the disk is full: then once more.
    for (std::string pending; pending.empty();) {
        Faults().Disarm();
        Do(client, netconf::EditConfig(Rate("eth1", 202)));
        Do(client, netconf::CommitConfirmed({.timeout = "1"}));
        Faults().Arm(full);
        Await("the refusal", [&] {
            pending = Pending();
            return pending.empty() || pending.find("<problem>") != std::string::npos;
        });
    }
    EXPECT_THAT(TheWorld().CliDone("show history"), HasSubstr("it could not be rolled back:"));
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>202</sampling-rate>"));
    Faults().Disarm();
    Await("the next attempt", [&] { return Pending().empty(); });
    EXPECT_EQ(Running(), m_before);
    AwaitSettled();
    ExpectNothingComesBack();
}

}  // namespace
}  // namespace system_tests
