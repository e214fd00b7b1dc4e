// SPDX-License-Identifier: Apache-2.0
// tools/switch with real processes: ready, ended, and what it says when one of them dies.

#include "tools/switch_fixture.h"

namespace {

using support::Await;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class Switch : public SwitchFixture {};

TEST_F(Switch, SaysReadyOnceTheDaemonHasLoadedAndEndsAllOnASignal)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        const std::string name = "signal" + std::to_string(signal);
        const auto up = Ready(name);
        const auto children = Children(*up);
        EXPECT_EQ(3U, children.size());
        EXPECT_THAT(Cli("show sflow | json").output, HasSubstr("loaded"));
        up->Signal(signal);
        EXPECT_EQ(0, up->Wait());
        for (const auto& [program, child] : children) EXPECT_FALSE(Lives(child)) << program;
        EXPECT_EQ("ready\n", Output(name));
        EXPECT_EQ("", Errors(name));
        for (const auto* socket : {"cdb.sock", "manager.sock", "netconf.sock"})
            EXPECT_FALSE(support::Accepts(RunDir() / socket)) << socket;
    }
}

TEST_F(Switch, EndsOnASignalThatComesJustBeforeItWaits)
{
    // The shell pauses before each wait for its children, so the signal comes before the wait begins.
    const auto pause = Dir() / "pause";
    support::WriteFile(pause, "trap '[[ $BASH_COMMAND != wait* ]] || { touch " + (Dir() / "pauses").string() +
                                  "; sleep 1; }' DEBUG\n");
    const auto up = Up("up", {}, {{"BASH_ENV", pause}});
    AwaitReady("up", *up);
    Await("the pause", [&] { return std::filesystem::exists(Dir() / "pauses"); });
    EXPECT_EQ(0, up->Terminate());
}

TEST_F(Switch, EndsTheDaemonFirstAndTheDatabaseLast)
{
    auto up = Ready("up");
    EXPECT_EQ(0, up->Terminate());
    // The process that ends first does not log the others' ends.
    EXPECT_THAT(support::ReadFile(RunDir() / "sflow-app.log"), Not(HasSubstr("ended")));
    EXPECT_THAT(support::ReadFile(RunDir() / "sflow-mgr.log"),
                Not(HasSubstr("connection to the database ended")));
    EXPECT_THAT(support::ReadFile(RunDir() / "sflow-mgr.log"),
                HasSubstr("session ended: closed by the peer"));
}

TEST_F(Switch, KeepsWhatWasCommitted)
{
    auto first = Ready("first");
    ASSERT_EQ(0, Cli("set oam sflow collector c1 ip 127.0.0.1; commit").status);
    EXPECT_EQ(0, first->Terminate());
    auto second = Ready("second");
    EXPECT_THAT(Cli("show sflow collectors").output, HasSubstr("127.0.0.1"));
    EXPECT_EQ(0, second->Terminate());
}

TEST_F(Switch, ReportsWhichProcessDiedAndHowAndEndsTheOthers)
{
    for (const std::string program : {"cdbd", "sflow-mgr", "sflow-app"}) {
        const auto up = Ready(program);
        const auto children = Children(*up);
        ASSERT_TRUE(children.contains(program));
        ASSERT_EQ(0, ::kill(children.at(program), SIGKILL));
        EXPECT_EQ(1, up->Wait());
        EXPECT_THAT(Errors(program), HasSubstr("tools/switch: " + program + " was killed by SIGKILL\n"));
        EXPECT_THAT(Errors(program), HasSubstr(" " + program + " 1"));  // of its log
        for (const auto& [name, child] : children) EXPECT_FALSE(Lives(child)) << name;
    }
}

TEST_F(Switch, ReportsAProcessThatEndsByItself)
{
    const auto up = Ready("up");
    ASSERT_EQ(0, ::kill(Children(*up).at("sflow-mgr"), SIGTERM));
    EXPECT_EQ(1, up->Wait());
    EXPECT_THAT(Errors("up"), HasSubstr("tools/switch: sflow-mgr ended with status 0\n"));
}

TEST_F(Switch, IsNotReadyBecauseAnotherOneIs)
{
    const auto first = Ready("first");
    const auto second = Up("second");
    EXPECT_EQ(1, second->Wait());
    EXPECT_EQ("", Output("second"));
    EXPECT_THAT(Errors("second"), HasSubstr("tools/switch: "));
    // Which of its processes finds its counterpart first is open.
    const auto children = Children(*first);
    EXPECT_THAT(Errors("second"), AnyOf(HasSubstr(std::to_string(children.at("cdbd"))),
                                        HasSubstr(std::to_string(children.at("sflow-mgr")))));
    EXPECT_EQ(0, Cli("set oam sflow collector c1 ip 127.0.0.1; commit").status);
    EXPECT_EQ(0, first->Terminate());
}

TEST_F(Switch, LeavesNothingBehindWhenItIsKilledAndCanBeStartedAgain)
{
    const auto first = Ready("first");
    const auto children = Children(*first);
    first->Kill();
    for (const auto& [program, child] : children)
        Await(program + " to end", [pid = child] { return !Lives(pid); });
    const auto second = Ready("second");
    EXPECT_EQ(0, second->Terminate());
}

TEST_F(Switch, TakesThePlaceOfSocketsThatNobodyListensOn)
{
    {
        const auto first = Ready("first");
        for (const auto& [program, child] : Children(*first)) ASSERT_EQ(0, ::kill(child, SIGKILL)) << program;
        EXPECT_EQ(1, first->Wait());
    }
    EXPECT_TRUE(std::filesystem::exists(RunDir() / "manager.sock"));
    const auto second = Ready("second");
    EXPECT_EQ(0, second->Terminate());
}

TEST_F(Switch, KeepsAJournalWhereAskedTo)
{
    const auto journal = Dir() / "calls";
    EXPECT_EQ(0, Ready("own", {"--journal", journal})->Terminate());
    EXPECT_THAT(support::ReadFile(journal), HasSubstr("SessionLoaded"));
    EXPECT_EQ(0, Ready("none")->Terminate());
    EXPECT_FALSE(std::filesystem::exists(RunDir() / "journal"));
    EXPECT_EQ(0, Ready("demo", {"--demo"})->Terminate());
    EXPECT_THAT(support::ReadFile(RunDir() / "journal"), HasSubstr("SessionLoaded"));
}

}  // namespace
