// SPDX-License-Identifier: Apache-2.0
// cdbd killed at each of the calls by which a commit gets to the disk, while sflow-app is connected and so
// has LMDB's lock file open: the commit is there whole or not at all, at once and for good.

#include "system/harmed_store.h"

namespace system_tests {

namespace {

using support::WriteOutcome;

constexpr unsigned kMaxCallsOfCommit = 200;

class KillInCommit : public HarmedStore, public testing::WithParamInterface<Size> {
protected:
    static std::string Changed(unsigned rate)
    {
        return GetParam().interfaces == 0 ? Rate("eth1", rate) : Interfaces(GetParam().interfaces, rate);
    }

    // One commit in which the process ends at that call. False if the commit had fewer calls.
    bool CommitEndedAt(unsigned call, WriteOutcome outcome)
    {
        m_last = RateNow();
        const auto before = Running();
        const unsigned rate = 100000 + ++m_commits;
        const auto answer = CommitHarmed(Changed(rate), {.outcome = outcome, .call = call});
        const auto after = Expected(before, rate);
        if (answer != Answer::kNone) {
            EXPECT_EQ(Answer::kOk, answer);
            EXPECT_EQ(after, Running());
            return false;
        }
        EXPECT_EQ(128 + SIGKILL, TheWorld().Cdbd().Wait());
        TheWorld().StartCdbd();
        const auto now = Running();
        EXPECT_TRUE(now == before || now == after) << now;
        (now == before ? m_without : m_with)++;
        AwaitSettled();
        ExpectNothingComesBack();
        return true;
    }

    // `before` with the rate in the place of the last one.
    [[nodiscard]] std::string Expected(const std::string& before, unsigned rate) const
    {
        std::string after = before;
        const std::string from = "<sampling-rate>" + m_last + "</sampling-rate>";
        const std::string to = "<sampling-rate>" + std::to_string(rate) + "</sampling-rate>";
        for (auto at = after.find(from); at != std::string::npos; at = after.find(from, at + to.size()))
            after.replace(at, from.size(), to);
        return after;
    }

    void EndAtEachCall(WriteOutcome outcome)
    {
        TheWorld().Start(scenario::Usual());
        if (GetParam().interfaces > 0) {
            Commit(Changed(100000));
            AwaitSettled();
        }
        // How many calls a commit takes depends on which pages were free for it.
        unsigned answered = 0;
        for (unsigned call = 1; answered < 3 && !HasFailure(); ++call) {
            ASSERT_LT(call, kMaxCallsOfCommit);
            SCOPED_TRACE("killed at call " + std::to_string(call));
            if (!CommitEndedAt(call, outcome)) ++answered;
        }
        AwaitSettled();
        // Pages, and the wait for the disk.
        EXPECT_GT(m_without, 1U);
    }

    unsigned m_with = 0;
    unsigned m_without = 0;

private:
    // The rate that all that is changed here has.
    std::string RateNow()
    {
        const auto running = Running();
        const auto name = GetParam().interfaces == 0 ? "<name>eth1</name>" : "<name>port0</name>";
        const std::string tag = "<sampling-rate>";
        const auto at = running.find(tag, running.find(name)) + tag.size();
        return running.substr(at, running.find('<', at) - at);
    }

    unsigned m_commits = 0;
    std::string m_last;
};

TEST_P(KillInCommit, AfterEachCallLeavesItWholeOrNotAtAll)
{
    EndAtEachCall(WriteOutcome::kEndAfter);
    // The page that makes it count.
    EXPECT_GT(m_with, 0U);
}

TEST_P(KillInCommit, InTheMiddleOfEachCallLeavesItWholeOrNotAtAll)
{
    EndAtEachCall(WriteOutcome::kEndInTheMiddle);
}

INSTANTIATE_TEST_SUITE_P(Of, KillInCommit, testing::Values(Size{"OneLeaf", 0}, Size{"ManyRows", 400}),
                         [](const auto& size) { return size.param.name; });

}  // namespace

}  // namespace system_tests
