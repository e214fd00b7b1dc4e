// SPDX-License-Identifier: Apache-2.0
// The forms in which swcli shows, saves and takes a configuration, against the real switch.

#include <nlohmann/json.hpp>
#include <sstream>

#include "system/system_test.h"

namespace system_tests {

namespace {

class Forms : public SystemTest {
protected:
    Forms() { TheWorld().Start(scenario::Usual()); }

    std::string Output(const std::string& commands)
    {
        const auto result = TheWorld().Cli(commands);
        EXPECT_EQ(0, result.status) << commands << ": " << result.errors;
        return result.output;
    }
};

TEST_F(Forms, InheritedMarksTheDefaultsAndOnlyThem)
{
    const std::string text = Output(
        "set oam sflow collector extra ip 192.0.2.9; show configuration oam sflow collector extra | display "
        "inherited; discard");
    EXPECT_THAT(text, HasSubstr("    ip 192.0.2.9;\n"));
    EXPECT_THAT(text, HasSubstr("    port 6343;  # default\n"));
    EXPECT_THAT(text, HasSubstr("    enabled true;  # default\n"));
    EXPECT_THAT(Output("show configuration oam | display text"), Not(HasSubstr("# default")));
}

TEST_F(Forms, DefaultShowsWhatHoldsWithoutBeingConfigured)
{
    TheWorld().Cli("set oam sflow collector extra ip 192.0.2.9; commit");
    const std::string text = Output("show configuration default oam sflow collector extra");
    EXPECT_THAT(text, HasSubstr("    port 6343;"));
    EXPECT_THAT(text, Not(HasSubstr("ip ")));
    const auto json = nlohmann::json::parse(Output("show configuration default | json"));
    EXPECT_THAT(json.dump(), HasSubstr("\"port\":6343"));
    EXPECT_THAT(json.dump(), Not(HasSubstr("\"ip\"")));
}

TEST_F(Forms, EachThatIsPrintedIsTakenBack)
{
    const std::string before = Output("show configuration running");
    EXPECT_THAT(before, HasSubstr("oam {"));
    const std::string file = (TheWorld().Dir() / "taken.back").string();
    for (const std::string form : {"text", "json", "xml", "set", "inherited"}) {
        Output("show configuration | display " + form + " | save " + file);
        const auto result = TheWorld().Cli("set oam sflow collector other ip 192.0.2.77; load replace " +
                                           file + "; show configuration; compare; discard");
        EXPECT_EQ(0, result.status) << form << result.errors;
        if (form == "inherited")  // what was a default is configured now
            EXPECT_THAT(result.output, Not(HasSubstr("192.0.2.77")));
        else
            EXPECT_EQ(before, result.output) << form;
    }
}

TEST_F(Forms, SaveWritesTheCandidateAndNamesWhatItCannotWrite)
{
    const std::string file = (TheWorld().Dir() / "saved").string();
    const auto saved =
        TheWorld().Cli("set oam sflow collector extra ip 192.0.2.9; save " + file + "; discard");
    EXPECT_EQ(0, saved.status);
    EXPECT_THAT(saved.errors, HasSubstr(" saved in " + file + "\n"));
    EXPECT_THAT(Output("load merge " + file + "; compare; discard"), HasSubstr("192.0.2.9"));
    for (const std::string path : {"/dev/full", "/nowhere/file", "/tmp"}) {
        const auto refused = TheWorld().Cli("save " + path);
        EXPECT_EQ(1, refused.status) << path;
        EXPECT_THAT(refused.errors, HasSubstr("can't write " + path + ": "));
    }
}

TEST_F(Forms, NothingToLoadIsRefusedAndLeavesTheCandidate)
{
    const std::string file = (TheWorld().Dir() / "nothing").string();
    support::WriteFile(file, "# only a comment\n");
    for (const std::string how : {"merge", "replace", "set"}) {
        const auto refused = TheWorld().Cli("load " + how + " " + file);
        EXPECT_EQ(1, refused.status) << how;
        EXPECT_THAT(refused.errors, HasSubstr("nothing has no configuration in it")) << how;
    }
    EXPECT_EQ("", Output("compare"));
}

TEST_F(Forms, ADeleteOfNothingNamesItsLine)
{
    const std::string file = (TheWorld().Dir() / "lines").string();
    support::WriteFile(file,
                       "set oam sflow collector extra ip 192.0.2.9\n\ndelete oam sflow collector gone\n");
    const auto refused = TheWorld().Cli("load set " + file);
    EXPECT_EQ(1, refused.status);
    EXPECT_THAT(refused.errors, HasSubstr("lines: line 3: "));
    EXPECT_EQ("", Output("compare"));
}

TEST_F(Forms, ACommitIsCheckedWithoutBeingMade)
{
    const auto checked =
        TheWorld().Cli("set oam sflow collector extra ip 192.0.2.9; commit check; compare; discard");
    EXPECT_EQ(0, checked.status);
    EXPECT_THAT(checked.errors, HasSubstr("the candidate is valid\n"));
    EXPECT_THAT(checked.output, HasSubstr("192.0.2.9"));
}

TEST_F(Forms, ACommitAsJsonHasWhatItChanged)
{
    TheWorld().Cli("set oam sflow collector extra ip 192.0.2.9");
    const auto commit = nlohmann::json::parse(Output("commit | json"));
    const auto json =
        nlohmann::json::parse(Output("show history " + commit.value("id", std::string("2")) + " | json"));
    EXPECT_THAT(json.at("after").dump(), HasSubstr("\"extra\""));
    EXPECT_THAT(json.at("before").dump(), Not(HasSubstr("\"extra\"")));
}

}  // namespace

}  // namespace system_tests
