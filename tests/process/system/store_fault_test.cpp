// SPDX-License-Identifier: Apache-2.0
// Each of the calls by which a commit gets to the disk fails in turn: cdbd goes on and answers, what it has
// accepted stays, and what it has refused never comes back.

#include <cerrno>

#include "system/harmed_store.h"

namespace system_tests {

namespace {

using support::WriteFault;
using support::WriteOutcome;

constexpr unsigned kMaxFaults = 100;

struct Failure {
    std::string name;
    WriteOutcome outcome;
    int error;
    bool lasting;
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

class StoreFault : public HarmedStore, public testing::WithParamInterface<Failure> {
protected:
    [[nodiscard]] static WriteFault At(unsigned call)
    {
        return {.outcome = GetParam().outcome,
                .call = call,
                .error = GetParam().error,
                .lasting = GetParam().lasting};
    }

    // If the page that makes a commit count could not be written, LMDB shows nothing more until the store
    // is opened anew, and the database ends in good order, for the service manager to start it again.
    bool StillReads()
    {
        try {
            return !Running().empty();
        } catch (const netconf::ConnectionError&) {
            return false;
        }
    }

    void ExpectOrderlyEnd()
    {
        EXPECT_EQ(1, TheWorld().Cdbd().Wait());
        EXPECT_THAT(TheWorld().Log("cdbd"), HasSubstr("store in " + TheWorld().StateDir().string()));
    }

    // One commit with the failure at that call. Whether it was accepted.
    bool CommitWithFailureAt(unsigned call)
    {
        const auto before = Running();
        const std::string rate = std::to_string(200000 + ++m_commits);
        const auto answer = CommitHarmed(Rate("eth1", 200000 + m_commits), At(call));
        EXPECT_NE(Answer::kNone, answer);
        if (answer == Answer::kError && !StillReads()) {
            ExpectOrderlyEnd();
            TheWorld().StartCdbd();
            EXPECT_EQ(before, Running());
            ExpectNothingComesBack();
            return false;
        }
        auto after = Running();
        if (answer == Answer::kError) {
            EXPECT_EQ(before, after);
            auto client = Connect();
            Do(client, netconf::DiscardChanges());
        } else {
            EXPECT_THAT(after, HasSubstr(">" + rate + "<"));
        }
        after = AfterOneMore(after);
        Restart();
        EXPECT_EQ(after, Running());
        ExpectNothingComesBack();
        return answer == Answer::kOk;
    }

    // What is running after a commit with a disk that works again. If the page that makes a commit count
    // could not be written, LMDB takes and shows nothing more until the store is opened anew: then the
    // database says so, or it ends in good order, for the service manager to start it again.
    std::string AfterOneMore(const std::string& before)
    {
        const unsigned rate = 300000 + m_commits;
        try {
            auto client = Connect();
            Do(client, netconf::EditConfig(Rate("eth3", rate)));
            const auto reply = client.Call(netconf::Commit());
            const auto after = Running();
            if (reply.ok) {
                EXPECT_THAT(after, HasSubstr(">" + std::to_string(rate) + "<"));
            } else {
                EXPECT_EQ(before, after);
                EXPECT_THAT(reply.xml, HasSubstr(TheWorld().StateDir().string()));
            }
            return after;
        } catch (const netconf::ConnectionError&) {
            ExpectOrderlyEnd();
            return before;
        }
    }

    unsigned m_commits = 0;
};

TEST_P(StoreFault, AtEachCallLosesNothingAndBringsNothingBack)
{
    TheWorld().Start(scenario::Usual());
    unsigned accepted = 0;
    unsigned call = 1;
    for (; accepted < 2 && !HasFailure(); ++call) {
        ASSERT_LT(call, kMaxFaults);
        SCOPED_TRACE("failure at call " + std::to_string(call));
        if (CommitWithFailureAt(call)) ++accepted;
    }
    EXPECT_GT(call, 3U) << "the failures met no commit";
}

INSTANTIATE_TEST_SUITE_P(
    Of, StoreFault,
    testing::Values(Failure{"FullDisk", WriteOutcome::kFail, ENOSPC, false},
                    Failure{"DiskThatStaysFull", WriteOutcome::kFail, ENOSPC, true},
                    Failure{"DiskError", WriteOutcome::kFail, EIO, false},
                    Failure{"DiskThatStaysBroken", WriteOutcome::kFail, EIO, true},
                    Failure{"DiskErrorAfterTheCacheTookIt", WriteOutcome::kFailAfterwards, EIO, false},
                    Failure{"DiskErrorsAfterTheCacheTookIt", WriteOutcome::kFailAfterwards, EIO, true},
                    Failure{"ReadOnlyFileSystem", WriteOutcome::kFail, EROFS, true},
                    Failure{"ShortWrite", WriteOutcome::kShort, 0, false},
                    Failure{"ShortWrites", WriteOutcome::kShort, 0, true}),
    [](const auto& failure) { return failure.param.name; });

}  // namespace

}  // namespace system_tests
