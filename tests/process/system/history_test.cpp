// SPDX-License-Identifier: Apache-2.0
// The history as an operator sees it in swcli: what it lists, going back, checkpoints, over restarts, for
// users with limited rights, and with a history that has lost what is asked for.

#include <nlohmann/json.hpp>

#include "system/other_users.h"

namespace system_tests {
namespace {

using testing::MatchesRegex;
using testing::StartsWith;

class History : public SystemTest {
protected:
    explicit History(WorldOptions options = {}) : SystemTest(std::move(options))
    {
        TheWorld().Start(scenario::Usual());
    }

    void SetRate(int rate, const std::string& more = "")
    {
        TheWorld().CliDone("set oam sflow interface eth1 sampling-rate " + std::to_string(rate) + "; commit" +
                           more);
    }

    std::string Fails(const std::string& command)
    {
        const auto result = TheWorld().Cli(command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(result.output, "") << command;
        return result.errors;
    }

    nlohmann::json Json() { return nlohmann::json::parse(TheWorld().CliDone("show history | json")); }

    std::uint64_t Newest()
    {
        const std::string text =
            Json()["switch-state:state"]["system"]["switch-history:history"].at("commit").back().at("id");
        return std::stoull(text);
    }
};

TEST_F(History, IsListedAndShownWithChanges)
{
    SetRate(101, " comment \"the first one\"");
    const auto first = Newest();
    SetRate(102);
    const std::string id = std::to_string(first);
    const auto list = TheWorld().CliDone("show history");
    EXPECT_THAT(list, StartsWith("Commit"));
    EXPECT_THAT(list, HasSubstr("the first one"));
    const auto last = TheWorld().CliDone("show history last 1");
    EXPECT_THAT(last, HasSubstr("\n" + std::to_string(first + 1) + " "));
    EXPECT_THAT(last, Not(HasSubstr("the first one")));
    EXPECT_EQ(TheWorld().CliDone("show history last 99999999999999999999999"), list);
    const auto one = TheWorld().CliDone("show history " + id);
    EXPECT_THAT(one, HasSubstr("the first one"));
    EXPECT_THAT(one, HasSubstr("+ oam sflow interface eth1 sampling-rate 101\n"));
    EXPECT_THAT(TheWorld().CliDone("show history " + id + " | json"),
                HasSubstr("\"comment\": \"the first one\""));
    EXPECT_THAT(Fails("show history 4711"), HasSubstr("no commit 4711"));
    EXPECT_THAT(Fails("show history 0"), HasSubstr("0"));
    EXPECT_THAT(Fails("show history many"), HasSubstr("\"many\" is no number"));
    EXPECT_THAT(Fails("show history -1"), HasSubstr("\"-1\" is no number"));
    EXPECT_THAT(Fails("show history last"), HasSubstr("N is missing"));
    EXPECT_THAT(TheWorld().Log("cdbd"), HasSubstr("commit " + id + " by "));
    EXPECT_THAT(TheWorld().Log("cdbd"), HasSubstr(": 1 change, \"the first one\""));
}

TEST_F(History, GoesBackByNumberAndByName)
{
    SetRate(201);
    TheWorld().CliDone("request checkpoint good");
    SetRate(202);
    SetRate(203);
    EXPECT_EQ(TheWorld().CliDone("compare rollback 1"),
              "- oam sflow interface eth1 sampling-rate 202\n+ oam sflow interface eth1 sampling-rate 203\n");
    EXPECT_EQ(TheWorld().CliDone("compare rollback 0"), "");
    TheWorld().CliDone("set oam sflow interface eth1 polling-interval 7; rollback 1");
    EXPECT_EQ(TheWorld().CliDone("compare"),
              "- oam sflow interface eth1 sampling-rate 203\n+ oam sflow interface eth1 sampling-rate 202\n");
    TheWorld().CliDone("rollback good");
    EXPECT_THAT(TheWorld().CliDone("compare"), HasSubstr("+ oam sflow interface eth1 sampling-rate 201"));
    const std::string newest = std::to_string(Newest());
    EXPECT_THAT(TheWorld().CliDone("compare rollback commit " + newest), HasSubstr("- oam"));
    TheWorld().CliDone("rollback commit " + newest);
    EXPECT_EQ(TheWorld().CliDone("compare"), "");
    TheWorld().CliDone("rollback 2; commit comment \"as it was\"");
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>201</sampling-rate>"));
    AwaitSettled();
    TheWorld().CliDone("rollback 1; commit");
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>203</sampling-rate>"));
}

TEST_F(History, IsThereAfterARestart)
{
    SetRate(301);
    TheWorld().CliDone("request checkpoint good");
    SetRate(302);
    const auto before = TheWorld().CliDone("show history");
    const auto checkpoints = TheWorld().CliDone("show checkpoints");
    EXPECT_THAT(checkpoints, HasSubstr("good"));
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    EXPECT_EQ(TheWorld().CliDone("show history"), before);
    EXPECT_EQ(TheWorld().CliDone("show checkpoints"), checkpoints);
    TheWorld().CliDone("rollback good");
    EXPECT_THAT(TheWorld().CliDone("compare"), HasSubstr("+ oam sflow interface eth1 sampling-rate 301"));
}

TEST_F(History, OddWordsAreRefusedAndChangeNothing)
{
    SetRate(401);
    TheWorld().CliDone("set oam sflow interface eth1 polling-interval 7");
    const auto before = TheWorld().CliDone("compare");
    for (const char* word : {"4294967295", "4294967296", "99999999999999999999999999", "-1", "never-set",
                             "\"\"", "\"a b\"", "<x/>", "commit", "commit -1", "commit never", "1 2"}) {
        EXPECT_THAT(Fails(std::string("rollback ") + word), StartsWith("error: rollback")) << word;
        EXPECT_THAT(Fails(std::string("compare rollback ") + word), StartsWith("error: compare")) << word;
    }
    for (const char* word : {"7", "commit", "-x", "\"a b\"", "a/b", "<x/>", "good bad"})
        EXPECT_THAT(Fails(std::string("request checkpoint ") + word), StartsWith("error: request")) << word;
    EXPECT_EQ(TheWorld().CliDone("compare"), before);
    EXPECT_EQ(TheWorld().CliDone("show checkpoints"), "There is no checkpoint.\n");
    TheWorld().CliDone("request checkpoint a; request checkpoint a replace");
    EXPECT_THAT(Fails("request checkpoint a"), HasSubstr("there is a checkpoint a"));
    TheWorld().CliDone("request delete-checkpoint a");
    EXPECT_THAT(Fails("request delete-checkpoint a"), HasSubstr("no checkpoint a"));
}

class ShortHistory : public History {
protected:
    static WorldOptions Short()
    {
        WorldOptions options;
        options.cdbdArguments = {"--history-limit", "2"};
        return options;
    }
    ShortHistory() : History(Short()) {}
};

TEST_F(ShortHistory, SaysWhatItHasLost)
{
    SetRate(501);
    TheWorld().CliDone("request checkpoint old");
    for (int rate = 502; rate <= 504; ++rate) SetRate(rate);
    EXPECT_THAT(TheWorld().CliDone("show checkpoints"), HasSubstr(" no\n"));
    for (const char* command : {"rollback 3", "rollback old", "compare rollback old"}) {
        const auto errors = Fails(command);
        EXPECT_THAT(errors, HasSubstr("is not kept")) << command;
        EXPECT_THAT(errors, HasSubstr("go back no further than to commit")) << command;
    }
    TheWorld().CliDone("rollback 2");
    EXPECT_THAT(TheWorld().CliDone("compare"), HasSubstr("+ oam sflow interface eth1 sampling-rate 502"));
}

class HistoryOfOthers : public OtherUsersTest {};

TEST_F(HistoryOfOthers, IsReadByAllAndGoneBackInByOperators)
{
    TheWorld().StartCdbd();
    EXPECT_EQ(::chmod(TheWorld().NetconfSocket().c_str(), 0666), 0);
    for (const char* port : {"1", "2"})
        EXPECT_EQ(CliAs(kOperator,
                        "set oam sflow collector c1 ip 192.0.2.1;"
                        "set oam sflow collector c1 port " +
                            std::string(port) + "; commit")
                      .status,
                  0);
    for (const char* command : {"show history", "show history 2", "show checkpoints", "compare rollback 1"})
        EXPECT_EQ(CliAs(kThird, command).status, 0) << command;
    EXPECT_THAT(CliAs(kThird, "show history 2").output, HasSubstr("uid-61104"));
    for (const char* command : {"rollback 1", "request checkpoint mine", "request delete-checkpoint good"}) {
        const auto result = CliAs(kThird, command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_THAT(result.errors, HasSubstr("uid-61105 may not execute")) << command;
    }
    EXPECT_EQ(CliAs(kOperator, "request checkpoint good; rollback 1; commit").status, 0);
    EXPECT_THAT(CliAs(kThird, "show configuration").output, HasSubstr("port 1"));
}

}  // namespace
}  // namespace system_tests
