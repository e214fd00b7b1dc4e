// SPDX-License-Identifier: Apache-2.0
// The harness itself: what it reads out of a journal, and that its two ways to a manager's state can
// tell right from wrong.

#include "system/system_test.h"

namespace system_tests {

namespace {

using support::Journal;
using support::Play;
using support::StateOf;

TEST(Support, JournalGivesWholeLinesOnceAndInOrder)
{
    const support::TempDir dir;
    const auto file = dir.Path() / "journal";
    Journal journal(file);
    EXPECT_THAT(journal.Next(), ElementsAre());
    support::WriteFile(file,
                       "{\"op\":\"SessionOpened\"}\n{\"op\":\"UpdateInterface\",\"args\":[\"e\",\"\",\"c\",1,"
                       "2,3,4]}\n{\"op\":");
    EXPECT_THAT(journal.Next(), ElementsAre("SessionOpened", "UpdateInterface e - c 1 2 3 4"));
    EXPECT_THAT(journal.Next(), ElementsAre());
    EXPECT_THAT(journal.All(), ElementsAre("SessionOpened", "UpdateInterface e - c 1 2 3 4"));
}

TEST(Support, JournalRefusesWhatIsNone)
{
    const support::TempDir dir;
    support::WriteFile(dir.Path() / "journal", "[1,2]\n");
    EXPECT_THROW(Journal(dir.Path() / "journal").Next(), std::runtime_error);
}

TEST(Support, LoadsOfTheScenariosGiveTheStateOfTheirConfigurations)
{
    for (const auto& load : scenario::Loads()) {
        Calls calls = load.calls;
        calls.insert(calls.begin(), "SessionOpened");
        calls.emplace_back("SessionLoaded");
        EXPECT_EQ(StateOf(load.configuration), Play(calls)) << load.name;
    }
}

TEST(Support, SweepRemovesWhatASessionHasNotNamed)
{
    const Calls first = {"SessionOpened",
                         "SetAgentAddress 192.0.2.1",
                         "AddCollector c1 192.0.2.1 1 1",
                         "UpdateInterface e1 c1 - 1 2 3 4",
                         "AddCounterCollector e1 c1",
                         "UpdateInterface e2 c1 - 1 2 3 4",
                         "SessionLoaded"};
    Calls calls = first;
    calls.insert(calls.end(), {"SessionClosed", "SessionOpened", "SetAgentAddress 192.0.2.1",
                               "AddCollector c1 192.0.2.1 1 1", "UpdateInterface e1 c1 - 1 2 3 4"});
    EXPECT_EQ(Play(first), Play(calls));
    calls.emplace_back("SessionLoaded");
    const auto swept = Play(calls);
    EXPECT_EQ(1U, swept.interfaces.size());
    EXPECT_TRUE(swept.interfaces.at("e1").counter.empty());
}

TEST(Support, OneCallTooFewIsADifference)
{
    for (const auto& load : scenario::Loads())
        for (std::size_t missing = 0; missing < load.calls.size(); ++missing) {
            Calls calls = load.calls;
            calls.erase(calls.begin() + static_cast<std::ptrdiff_t>(missing));
            EXPECT_NE(StateOf(load.configuration), Play(calls))
                << load.name << " without " << load.calls[missing];
        }
}

TEST(Support, ProcessesAreStoppedAndTheirEndIsReported)
{
    const support::TempDir dir;
    Process sleeper({.argv = {"sleep", "1000"}, .environment = {}, .output = {}, .errors = {}, .input = {}});
    EXPECT_TRUE(sleeper.Running());
    sleeper.Freeze();
    sleeper.Thaw();
    EXPECT_EQ(128 + 15, sleeper.Terminate());
    const auto result =
        support::Run(dir.Path(), {"sh", "-c", "cat; echo $X >&2; exit 3"}, {{"X", "y"}}, "in");
    EXPECT_EQ(3, result.status);
    EXPECT_EQ("in", result.output);
    EXPECT_EQ("y\n", result.errors);
    EXPECT_THROW(support::Run(dir.Path(), {"/no/such/program"}), std::system_error);
}

}  // namespace

}  // namespace system_tests
