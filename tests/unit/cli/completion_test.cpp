// SPDX-License-Identifier: Apache-2.0
// What completion and help offer behind what is typed.

#include "cli/shell/completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "cli/data/error.h"
#include "cli/data/ranges.h"
#include "cli/yang.h"

namespace {

using cli_test::Yang;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

/// Collectors c1 and c2, interfaces 1/1/1 and 1/1/2, and nothing else.
std::vector<cli::Choice> Keys(const cli::Place& list)
{
    const std::string name = cli::WordsOf(list);
    if (name == "oam sflow collector") return {{"c1", ""}, {"c2", ""}};
    if (name == "oam sflow interface") return {{"1/1/1", ""}, {"1/1/2", ""}, {"two words", ""}};
    return {};
}

/// Of each kind one.
std::vector<cli::Choice> Names(cli::Nameable what)
{
    switch (what) {
    case cli::Nameable::kInterface:
        return {{"1/1/1", ""}};
    case cli::Nameable::kCollector:
        return {{"c1", ""}, {"c2", ""}};
    case cli::Nameable::kCheckpoint:
        return {{"before-upgrade", "commit 7"}};
    case cli::Nameable::kCommit:
        return {{"12", "09:00 by anna"}, {"7", "08:00 by ben"}};
    case cli::Nameable::kSession:
        return {{"31", "ben, since 07:59"}};
    case cli::Nameable::kNothing:
        break;
    }
    return {};
}

cli::Completion At(const std::string& line, bool configures = true, std::vector<std::string> place = {})
{
    cli::ShellState state;
    state.talks = true;
    state.configures = configures;
    state.place = std::move(place);
    return cli::Complete({cli::Commands(), Yang(), state, &Keys, &Names}, line);
}

std::vector<std::string> Words(const cli::Completion& completion)
{
    std::vector<std::string> words;
    for (const cli::Choice& choice : completion.choices) words.push_back(choice.word);
    return words;
}

std::string HelpOf(const cli::Completion& completion, const std::string& word)
{
    const auto found = std::ranges::find(completion.choices, word, &cli::Choice::word);
    return found == completion.choices.end() ? "none" : found->help;
}

TEST(Completion, OffersTheCommandsOfTheMode)
{
    EXPECT_THAT(Words(At("", false)), AllOf(IsSupersetOf({"show", "configure", "exit", "compare"}),
                                            Not(Contains("set")), Not(Contains("commit"))));
    EXPECT_THAT(Words(At("")), IsSupersetOf({"show", "set", "commit", "run"}));
    EXPECT_EQ(HelpOf(At(""), "discard"), "Takes back everything that was edited since the last commit.");
    EXPECT_THAT(HelpOf(At(""), "load"), "merge, replace, set");
}

TEST(Completion, TellsWhereToTypeWhatTheModeDoesNotHave)
{
    for (const std::string line : {"set ", "set", "set oam ", "load merge "})
        EXPECT_THAT(At(line, false).hint, HasSubstr("type configure")) << line;
    EXPECT_THAT(At("help exit now ", false).hint, Not(HasSubstr("configure")));
    EXPECT_THAT(At("nonsense ", false).hint, Not(HasSubstr("configure")));
    EXPECT_THAT(At("set nonsense ").hint, Not(HasSubstr("configure")));
}

TEST(Completion, InsertsWhatIsCertain)
{
    EXPECT_EQ(At("sho").Insertion(), "w ");
    EXPECT_EQ(At("conf").Insertion(), "i");  // configure, confirm
    EXPECT_EQ(At("show ").Insertion(), "");
    EXPECT_EQ(At("sh sf").Insertion(), "low ");
    EXPECT_EQ(At("nonsense").Insertion(), "");
    EXPECT_EQ(At("set oam sflow coll").Insertion(), "ector ");
    EXPECT_EQ(At("set oam sflow collector ").Insertion(), "c");
}

TEST(Completion, OffersChoicesBesideCommands)
{
    EXPECT_THAT(Words(At("show sflow ")), IsSupersetOf({"interface", "interfaces", "problems", "agent"}));
    EXPECT_THAT(Words(At("request ha ")), ElementsAre("go-active", "go-standby"));
    EXPECT_THAT(Words(At("commit ")), IsSupersetOf({"confirmed", "comment"}));
    EXPECT_THAT(Words(At("commit comment ")), ElementsAre("<TEXT>"));
    EXPECT_THAT(Words(At("rollback ")), IsSupersetOf({"commit", "<N|CHECKPOINT>"}));
}

TEST(Completion, DescribesTheWordsOfArguments)
{
    EXPECT_THAT(HelpOf(At("show sflow "), "drops"), HasSubstr("dropped"));
    EXPECT_THAT(HelpOf(At("request ha "), "go-standby"), HasSubstr("waits"));
    EXPECT_THAT(HelpOf(At("commit "), "comment"), HasSubstr("history"));
    EXPECT_THAT(HelpOf(At("commit confirmed 60 "), "persist"), HasSubstr("id"));
    for (const cli::Command& command : cli::Commands()) {
        const std::string name(command.name);
        for (const cli::Argument& argument : command.arguments) {
            if (argument.kind == cli::ArgumentKind::kFlag || argument.kind == cli::ArgumentKind::kText) {
                EXPECT_TRUE(argument.help.ends_with('.')) << name;
            }
            if (argument.kind != cli::ArgumentKind::kChoice) continue;
            for (const std::string& word : cli::ChoicesOf(argument))
                EXPECT_THAT(HelpOf(At(name + " "), word), testing::EndsWith(".")) << name;
        }
    }
}

TEST(Completion, OffersTheProcessesAlsoBehindTheNumberOfLines)
{
    EXPECT_THAT(Words(At("show log ")), IsSupersetOf({"<N>", "cdbd", "sflow-app", "sflow-mgr"}));
    EXPECT_THAT(Words(At("show log 5 ")), UnorderedElementsAre("cdbd", "sflow-app", "sflow-mgr"));
    EXPECT_THAT(Words(At("show log cdbd ")), IsEmpty());
    EXPECT_EQ(At("show log 5 sflow-m").Insertion(), "gr ");
}

TEST(Completion, DescribesThePathsOfTheModel)
{
    EXPECT_THAT(Words(At("set oam sflow ")), ElementsAre("agent", "collector", "interface"));
    EXPECT_THAT(HelpOf(At("set oam sflow "), "collector"), Not(testing::IsEmpty()));
    const auto port = At("set oam sflow collector c1 port ");
    ASSERT_THAT(Words(port), ElementsAre("<1..65535>"));
    EXPECT_THAT(HelpOf(port, "<1..65535>"), HasSubstr("Default: 6343."));
    EXPECT_EQ(port.Insertion(), "");
    const auto rate = At("set oam sflow interface 1/1/1 sampling-rate ");
    ASSERT_THAT(Words(rate), ElementsAre("<1..16777215 packets>"));
    EXPECT_THAT(HelpOf(rate, "<1..16777215 packets>"), HasSubstr("Default: the default-sampling-rate."));
    const std::string told = rate.Text(60, 40);
    EXPECT_THAT(told, testing::StartsWith("  <1..16777215 packets>  One of so many packets"));
    EXPECT_THAT(told, HasSubstr("default-sampling-rate.\n"));
    EXPECT_THAT(Words(At("set oam sflow collector c1 enabled ")), ElementsAre("true", "false"));
    EXPECT_THAT(Words(At("set oam sflow-manager direction ")), Contains("ingress"));
    EXPECT_THAT(Words(At("delete oam sflow agent ipv4 ")), Not(Contains("<IPv4 address>")));
}

TEST(Completion, OffersKeysThatThereAre)
{
    EXPECT_THAT(Words(At("set oam sflow interface ")), IsSupersetOf({"1/1/1", "1/1/2", "two words"}));
    EXPECT_THAT(Words(At("set oam sflow interface 1/1/1 flow-sampling-collector ")),
                IsSupersetOf({"c1", "c2"}));
    EXPECT_THAT(Words(At("show sflow collector ")), IsSupersetOf({"c1", "c2"}));
    EXPECT_EQ(At("set oam sflow interface t").Insertion(), "");  // its begin would need a quote
    EXPECT_THAT(At("set oam sflow interface ").Text(79, 40), HasSubstr("\"two words\""));
}

TEST(Completion, OffersWhatAnArgumentMayName)
{
    EXPECT_THAT(Words(At("rollback ")), ElementsAre("commit", "before-upgrade", "<N|CHECKPOINT>"));
    EXPECT_EQ(At("compare rollback b").Insertion(), "efore-upgrade ");
    EXPECT_EQ(HelpOf(At("request delete-checkpoint "), "before-upgrade"), "commit 7");
    EXPECT_THAT(Words(At("request checkpoint ")), ElementsAre("<NAME>"));
    EXPECT_THAT(Words(At("request checkpoint x ")), ElementsAre("replace"));
    EXPECT_THAT(Words(At("rollback commit ")), ElementsAre("12", "7", "<ID>"));
    EXPECT_THAT(Words(At("show history ")), ElementsAre("last", "12", "7", "<ID>"));
    EXPECT_EQ(HelpOf(At("request session "), "31"), "ben, since 07:59");
    EXPECT_EQ(At("request session ").Insertion(), "31 ");
    EXPECT_THAT(Words(At("request session 31 ")), ElementsAre("end"));
    EXPECT_THAT(Words(At("request sflow test collector ")), ElementsAre("c1", "c2", "<NAME>"));
    EXPECT_THAT(Words(At("monitor sflow collector ")), ElementsAre("c1", "c2", "<NAME>"));
    EXPECT_EQ(At("monitor sflow interface 1").Insertion(), "/1/1 ");
}

TEST(Completion, GoesOnBesideALeafAndBehindARange)
{
    EXPECT_THAT(Words(At("set oam sflow interface 1/1/1 sampling-rate 5 ")), Contains("polling-interval"));
    EXPECT_THAT(Words(At("set oam sflow interface 1/1/[1-2] ")), Contains("polling-interval"));
    EXPECT_THAT(Words(At("set oam sflow interface 1/1/[2-1] ")), IsEmpty());
}

TEST(Completion, OffersTheDatastoresBeforeAPath)
{
    EXPECT_THAT(Words(At("show configuration ")), IsSupersetOf({"candidate", "running", "default", "oam"}));
    EXPECT_THAT(Words(At("show configuration running ")), AllOf(Contains("oam"), Not(Contains("candidate"))));
    EXPECT_THAT(Words(At("show configuration default oam ")), Contains("sflow"));
}

TEST(Completion, BeginsAtThePlaceOfEdit)
{
    EXPECT_THAT(Words(At("set ", true, {"oam", "sflow"})), ElementsAre("agent", "collector", "interface"));
    EXPECT_THAT(Words(At("edit ", true, {"oam", "sflow", "interface", "1/1/1"})),
                Not(Contains("sampling-rate")));
}

TEST(Completion, OffersTheFormsOfTheOutput)
{
    EXPECT_THAT(Words(At("show configuration | ")),
                ElementsAre("json", "display", "match", "except", "begin", "count", "save", "no-more"));
    EXPECT_THAT(Words(At("show configuration | json | m")), ElementsAre("match"));
    EXPECT_THAT(Words(At("show configuration | match x | d")), IsEmpty());
    EXPECT_THAT(Words(At("show configuration | display ")),
                ElementsAre("json", "xml", "text", "set", "inherited"));
    EXPECT_THAT(Words(At("commit | ")), AllOf(Contains("json"), Not(Contains("display"))));
    EXPECT_THAT(Words(At("discard | ")), Not(Contains("json")));
}

TEST(Completion, OffersNothingWhereNothingIsExpected)
{
    for (const char* line : {"discard ", "set oam nothing ", "commit comment \"open ", "show \"quoted\"",
                             "set oam sflow collector \"a%b\" ", "| ", "run nonsense "})
        EXPECT_THAT(Words(At(line)), IsEmpty()) << line;
}

TEST(Completion, HelpFitsTheLineAndTheScreen)
{
    const std::string text = At("").Text(60, 5);
    EXPECT_EQ(std::ranges::count(text, '\n'), 6);
    EXPECT_THAT(text, testing::EndsWith("  and more\n"));
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        EXPECT_LE(end - at, 60U);
        at = end + 1;
    }
}

// ---- ranges ----

TEST(Ranges, AreTheNamesInTheirOrder)
{
    EXPECT_THAT(cli::NamesOf("eth1"), ElementsAre("eth1"));
    EXPECT_THAT(cli::NamesOf("1/1/[1-3,10]"), ElementsAre("1/1/1", "1/1/2", "1/1/3", "1/1/10"));
    EXPECT_THAT(cli::NamesOf("[1-2]/[8-9]x"), ElementsAre("1/8x", "1/9x", "2/8x", "2/9x"));
    EXPECT_THAT(cli::NamesOf("p[08-10]"), ElementsAre("p08", "p09", "p10"));
    EXPECT_THAT(cli::NamesOf("p[1,1-2,2]"), ElementsAre("p1", "p2"));
    EXPECT_EQ(cli::NamesOf("[1-4096]").size(), 4096U);
}

TEST(Ranges, RefuseWhatIsNone)
{
    const struct {
        const char* word;
        const char* error;
    } rows[] = {
        {"p[2-1]", "2-1 runs backwards"},
        {"p[]", "a number is missing in the brackets"},
        {"p[1,]", "a number is missing in the brackets"},
        {"p[1-]", "a number is missing in the brackets"},
        {"p[a]", "\"a\" is no number"},
        {"p[-1]", "a number is missing in the brackets"},
        {"p[1", "a bracket has no counterpart"},
        {"p1]", "a bracket has no counterpart"},
        {"p[[1]]", "a bracket has no counterpart"},
        {"p[1-4097]", "means more than 4096 names"},
        {"[1-100][1-100]", "means more than 4096 names"},
        {"p[99999999999]", "\"99999999999\" is no number"},
    };
    for (const auto& row : rows) {
        try {
            cli::NamesOf(row.word);
            ADD_FAILURE() << row.word;
        } catch (const cli::Error& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.error)) << row.word;
        }
    }
}

}  // namespace
