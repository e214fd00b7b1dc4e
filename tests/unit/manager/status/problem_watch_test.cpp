// SPDX-License-Identifier: Apache-2.0
// When problems are looked at, and what is told of them.

#include "manager/status/problem_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "support/manual_timers.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Progress = ProblemWalk::Progress;

Problem Absent(const std::string& name)
{
    return {Subject::kInterface, name, Reason::kInterfaceMissing, "there is no " + name};
}

/// A part that a walk has, and what it says then.
struct Part {
    std::vector<Problem> problems;
    Progress progress = Progress::kMore;
    milliseconds work{0};
};

class Walk final : public ProblemWalk {
public:
    explicit Walk(std::deque<Part>& parts) : m_parts(parts) {}
    Progress Next(std::vector<Problem>& problems) override
    {
        const Part part = m_parts.front();
        m_parts.pop_front();
        problems = part.problems;
        const auto end = std::chrono::steady_clock::now() + part.work;
        while (std::chrono::steady_clock::now() < end) {
        }
        return part.progress;
    }

private:
    std::deque<Part>& m_parts;
};

class Watch : public testing::Test {
protected:
    /// The next look finds these, in one part.
    void Finds(const std::vector<Problem>& problems) { m_parts.push_back({problems, Progress::kDone, {}}); }
    /// Until the next look is over, or what is told of it.
    std::vector<std::string> Look()
    {
        m_told.clear();
        m_timers.Advance(ProblemWatch::kPeriod);
        return m_told;
    }

    support::ManualTimers m_timers;
    std::deque<Part> m_parts;
    int m_looks = 0;
    std::vector<std::string> m_told;
    ProblemWatch m_watch{m_timers,
                         [this] {
                             ++m_looks;
                             return std::make_unique<Walk>(m_parts);
                         },
                         [this](const std::vector<ProblemChange>& changes) {
                             ASSERT_FALSE(changes.empty());
                             for (const auto& [begins, problem] : changes)
                                 m_told.push_back(std::string(begins ? "+ " : "- ") + problem.name + " " +
                                                  Name(problem.reason) + " " + problem.text);
                         }};
};

TEST_F(Watch, TellsWhatBeginsAndEndsOnce)
{
    m_watch.Start();
    m_timers.Advance(ProblemWatch::kPeriod - milliseconds{1});
    EXPECT_EQ(0, m_looks);
    Finds({Absent("a"), Absent("b")});
    m_timers.Advance(milliseconds{1});
    EXPECT_THAT(m_told,
                ElementsAre("+ a interface-missing there is no a", "+ b interface-missing there is no b"));
    Finds({Absent("a"), Absent("b")});
    EXPECT_THAT(Look(), IsEmpty());
    Finds({Absent("b"), Absent("c")});
    EXPECT_THAT(Look(), ElementsAre("+ c interface-missing there is no c", "- a interface-missing "));
    Finds({});
    EXPECT_THAT(Look(), ElementsAre("- b interface-missing ", "- c interface-missing "));
    Finds({Absent("a")});
    EXPECT_THAT(Look(), ElementsAre("+ a interface-missing there is no a"));
}

TEST_F(Watch, TellsAtTheEndOfALookInParts)
{
    m_watch.Start();
    m_parts = {{{Absent("a")}}, {{}}, {{Absent("b")}, Progress::kDone}};
    m_timers.Advance(ProblemWatch::kPeriod + ProblemWatch::kPause);
    EXPECT_THAT(m_told, IsEmpty());
    EXPECT_EQ(1U, m_parts.size());
    m_timers.Advance(ProblemWatch::kPause);
    EXPECT_EQ(2U, m_told.size());
    EXPECT_EQ(1, m_looks);
}

TEST_F(Watch, ALookThatCouldNotSeeEverythingSaysNothing)
{
    m_watch.Start();
    Finds({Absent("a")});
    Look();
    m_parts = {{{Absent("b")}}, {{}, Progress::kUnknown}};
    EXPECT_THAT(Look(), IsEmpty());
    m_timers.Advance(ProblemWatch::kPause);
    EXPECT_THAT(m_told, IsEmpty());
    Finds({Absent("b")});
    EXPECT_THAT(Look(), ElementsAre("+ b interface-missing there is no b", "- a interface-missing "));
}

TEST_F(Watch, ALookThatEndedTheWatchIsNotTold)
{
    m_watch.Start();
    m_parts = {{{Absent("a")}}, {{}, Progress::kDone}};
    m_timers.Advance(ProblemWatch::kPeriod);
    m_watch.Stop();
    m_timers.Advance(ProblemWatch::kPeriod * 2);
    EXPECT_THAT(m_told, IsEmpty());
    EXPECT_EQ(1U, m_parts.size());
    EXPECT_EQ(0U, m_timers.Waiting());

    // And the next one tells everything anew.
    m_watch.Start();
    m_parts.clear();
    Finds({Absent("b")});
    EXPECT_THAT(Look(), ElementsAre("+ b interface-missing there is no b"));
    m_watch.Start();
    Finds({Absent("b")});
    EXPECT_THAT(Look(), ElementsAre("+ b interface-missing there is no b"));
}

TEST_F(Watch, RestsForLongAfterMuchWork)
{
    m_watch.Start();
    m_parts = {{{}, Progress::kDone, milliseconds{20}}};
    Look();
    EXPECT_GE(m_timers.delays.back(), milliseconds{20} * ProblemWatch::kRest);
    m_timers.Advance(m_timers.delays.back() - milliseconds{1});
    EXPECT_EQ(1, m_looks);
    Finds({});
    m_timers.Advance(milliseconds{1});
    EXPECT_EQ(2, m_looks);
    EXPECT_LT(m_timers.delays.back(), milliseconds{20} * ProblemWatch::kRest) << "the work is forgotten";
}

}  // namespace
}  // namespace manager
