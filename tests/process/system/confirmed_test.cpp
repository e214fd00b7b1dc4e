// SPDX-License-Identifier: Apache-2.0
// Confirmed commits on a whole switch: daemon and manager follow the roll-back, it comes after any end of the
// database, and an operator's shell confirms and cancels.

#include <sys/stat.h>

#include <chrono>
#include <memory>

#include "system/other_users.h"

namespace system_tests {
namespace {

using testing::StartsWith;

class Confirmed : public SystemTest {
protected:
    Confirmed()
    {
        TheWorld().Start(scenario::Usual());
        SetRate(101);
        AwaitRate(101);
        m_before = Running();
    }

    void SetRate(unsigned rate) { Commit(Rate("eth1", rate)); }

    static std::string Update(unsigned rate)
    {
        return "UpdateInterface eth1 - - " + std::to_string(rate) + " 2 128 20";
    }

    /// The manager gets this rate.
    void AwaitRate(unsigned rate) { TheWorld().ManagerJournal().Until(Update(rate)); }

    /// Edits and commits confirmed.
    static void Begin(netconf::Client& client, unsigned rate, const netconf::Confirmed& options)
    {
        Do(client, netconf::EditConfig(Rate("eth1", rate)));
        Do(client, netconf::CommitConfirmed(options));
    }

    std::string Fails(const std::string& command)
    {
        const auto result = TheWorld().Cli(command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(result.output, "") << command;
        return result.errors;
    }

    /// Everything is as before the confirmed commit, and stays so over one more commit and one more start.
    void ExpectAsBefore()
    {
        EXPECT_EQ(Running(), m_before);
        AwaitSettled();
        SetRate(777);
        const auto after = Running();
        TheWorld().Cdbd().Kill();
        TheWorld().StartCdbd();
        EXPECT_EQ(Running(), after);
        AwaitSettled();
        TheWorld().CliDone("rollback 1; commit");
        EXPECT_EQ(Running(), m_before);
        AwaitSettled();
    }

    std::string m_before;
};

TEST_F(Confirmed, IsRolledBackWhenTheTimeIsOverAndTheManagerFollows)
{
    auto client = Connect();
    const auto begun = std::chrono::steady_clock::now();
    Begin(client, 202, {.timeout = "2"});
    AwaitRate(202);
    AwaitRate(101);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
    Await("the log", [&] {
        return TheWorld().Log("cdbd").find(": not confirmed in 2 s: rolled back by commit ") !=
               std::string::npos;
    });
    EXPECT_THAT(TheWorld().CliDone("show history last 1"), HasSubstr("rollback"));
    ExpectAsBefore();
}

TEST_F(Confirmed, IsRolledBackWhenItsConnectionIsLost)
{
    {
        auto client = Connect();
        Begin(client, 202, {.timeout = "3600"});
        AwaitRate(202);
    }
    AwaitRate(101);
    ExpectAsBefore();
}

TEST_F(Confirmed, OfASessionIsRolledBackAfterAKill)
{
    auto client = Connect();
    Begin(client, 202, {.timeout = "3600"});
    AwaitRate(202);
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    EXPECT_EQ(Running(), m_before);
    ExpectAsBefore();
}

TEST_F(Confirmed, ThatIsPersistentOutlivesAKillAndIsConfirmed)
{
    auto client = Connect();
    Begin(client, 202, {.timeout = "3600", .persist = "a token"});
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>202</sampling-rate>"));
    AwaitSettled();
    EXPECT_THAT(TheWorld().CliDone("show history"),
                testing::MatchesRegex("Commit [0-9]+ by .*waits for its "
                                      "confirmation: rolled back to commit "
                                      "[0-9]+ in 3[0-9]+ s\\.\n(.|\n)*"));
    EXPECT_THAT(Fails("confirm"), HasSubstr("this is not the persist-id"));
    TheWorld().CliDone("confirm \"a token\"");
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>202</sampling-rate>"));
    AwaitSettled();
}

TEST_F(Confirmed, ThatIsPersistentIsRolledBackAfterAKillBeforeItsTime)
{
    auto client = Connect();
    Begin(client, 202, {.timeout = "5", .persist = "a token"});
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    AwaitRate(101);
    ExpectAsBefore();
}

TEST_F(Confirmed, ThatIsPersistentIsRolledBackAtTheStartAfterItsTime)
{
    auto client = Connect();
    Begin(client, 202, {.timeout = "1", .persist = "a token"});
    TheWorld().Cdbd().Kill();
    // By the clock, since that is what counts where cdbd is not there.
    const auto over = std::chrono::system_clock::now() + std::chrono::seconds(1);
    Await("the deadline", [&] { return std::chrono::system_clock::now() > over; });
    TheWorld().StartCdbd();
    EXPECT_EQ(Running(), m_before);
    EXPECT_THAT(TheWorld().CliDone("show history last 1"), HasSubstr("commit 3: not confirm"));
    ExpectAsBefore();
}

TEST_F(Confirmed, ReachesADaemonThatHasLoadedItMeanwhile)
{
    auto client = Connect();
    Begin(client, 202, {.timeout = "3600"});
    AwaitRate(202);
    TheWorld().Daemon().Kill();
    TheWorld().StartDaemon();
    TheWorld().AwaitLoad();
    AwaitSettled();
    Do(client, netconf::CancelCommit());
    AwaitRate(101);
    ExpectAsBefore();
}

// ---- the shell ----

TEST_F(Confirmed, FromAScriptWaitsForALaterOne)
{
    TheWorld().CliDone(
        "set oam sflow interface eth1 sampling-rate 202; commit confirmed 3600 comment \"a try\"");
    AwaitRate(202);
    EXPECT_THAT(TheWorld().CliDone("show history"), HasSubstr("a try"));
    EXPECT_THAT(TheWorld().CliDone("show history | json"), HasSubstr("\"persistent\": true"));
    EXPECT_THAT(Fails("set oam sflow interface eth1 polling-interval 7; commit"),
                HasSubstr("waits for its confirmation; give its persist-id"));
    // It is not committed with the confirmation.
    TheWorld().CliDone("confirm");
    EXPECT_THAT(TheWorld().CliDone("compare"), HasSubstr("+ oam sflow interface eth1 polling-interval 7"));
    EXPECT_THAT(TheWorld().CliDone("show history"), StartsWith("Commit  "));
    EXPECT_THAT(Fails("confirm"), HasSubstr("no commit waits for its confirmation"));
    EXPECT_THAT(Fails("cancel"), HasSubstr("no commit waits for its confirmation"));
    TheWorld().CliDone("commit");
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>202</sampling-rate>"));
}

TEST_F(Confirmed, FromAScriptIsExtendedAndCancelled)
{
    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 202; commit confirmed 3600");
    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 203; commit confirmed");
    EXPECT_THAT(TheWorld().CliDone("show history"), testing::ContainsRegex(" in (5[0-9][0-9]|600) s"));
    AwaitRate(203);
    TheWorld().CliDone("cancel");
    AwaitRate(101);
    ExpectAsBefore();
    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 204; commit confirmed 3600 persist mine");
    EXPECT_THAT(Fails("cancel"), HasSubstr("this is not the persist-id"));
    TheWorld().CliDone("commit confirmed 2 persist mine");
    AwaitRate(204);
    AwaitRate(101);
    EXPECT_EQ(Running(), m_before);
    for (const char* wrong : {"0", "4294967296", "-1", "soon", "1.5"})
        EXPECT_THAT(Fails("commit confirmed " + std::string(wrong)), HasSubstr("commit confirmed")) << wrong;
}

class ConfirmedByOthers : public OtherUsersTest {};

TEST_F(ConfirmedByOthers, NeedsTheRightToAndTheId)
{
    TheWorld().StartCdbd();
    EXPECT_EQ(::chmod(TheWorld().NetconfSocket().c_str(), 0666), 0);
    EXPECT_EQ(CliAs(kOperator, "set oam sflow collector c1 ip 192.0.2.1; commit confirmed 3600").status, 0);
    for (const char* command : {"confirm", "cancel", "commit confirmed", "cancel swcli-uid-61104"}) {
        const auto result = CliAs(kThird, command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_THAT(result.errors, HasSubstr("uid-61105 may not execute")) << command;
    }
    EXPECT_THAT(CliAs(kThird, "show history").output, HasSubstr("waits for its confirmation"));
    EXPECT_THAT(CliAs(kThird, "show history | json").output, Not(HasSubstr("swcli-")));
    EXPECT_EQ(CliAs(kOperator, "confirm").status, 0);
}

}  // namespace
}  // namespace system_tests
