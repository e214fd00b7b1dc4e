// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "cli/data/error.h"

namespace {

using testing::HasSubstr;

std::string Understood(const std::string& text)
{
    try {
        const cli::Invocation got = cli::Understand(cli::Commands(), cli::SplitWords(text));
        std::string out(got.command->name);
        if (!got.arguments.choice.empty()) out += " choice=" + got.arguments.choice;
        for (const std::string& word : got.arguments.words) out += " word=" + word;
        if (!got.arguments.text.empty()) out += " text=" + got.arguments.text;
        for (const auto& [keyword, word] : got.arguments.named) out.append(" ").append(keyword) += "=" + word;
        if (got.format == cli::Format::kJson) out += " json";
        if (got.format == cli::Format::kXml) out += " xml";
        if (got.format == cli::Format::kSet) out += " set";
        return out;
    } catch (const cli::Error& error) {
        return std::string("error: ") + error.what();
    }
}

TEST(Understand, FitsWordsToTheTable)
{
    const struct {
        const char* text;
        const char* understood;
    } rows[] = {
        {"set oam sflow agent ipv4 10.0.0.1", "set word=oam word=sflow word=agent word=ipv4 word=10.0.0.1"},
        {"delete oam", "delete word=oam"},
        {"load merge a.json", "load merge text=a.json"},
        {"load replace \"a b.xml\"", "load replace text=a b.xml"},
        {"show configuration", "show configuration"},
        {"show configuration oam sflow", "show configuration word=oam word=sflow"},
        {"show configuration | display json", "show configuration json"},
        {"show configuration | json", "show configuration json"},
        {"show configuration oam | display xml", "show configuration word=oam xml"},
        {"show configuration | display set", "show configuration set"},
        {"compare", "compare"},
        {"commit", "commit"},
        {"commit comment \"why not\"", "commit comment=why not"},
        {"commit comment \"\"", "commit comment="},
        {"commit confirmed", "commit confirmed"},
        {"commit confirmed 60", "commit confirmed text=60"},
        {"commit confirmed 60 persist a comment b", "commit confirmed text=60 comment=b persist=a"},
        {"commit confirmed comment b", "commit confirmed comment=b"},
        {"commit confirmed persist 60", "commit confirmed persist=60"},
        {"show log", "show log"},
        {"show log 5", "show log text=5"},
        {"show log sflow-mgr", "show log choice=sflow-mgr"},
        {"show log 5 cdbd | json", "show log choice=cdbd text=5 json"},
        {"confirm", "confirm"},
        {"confirm my-id", "confirm text=my-id"},
        {"cancel my-id", "cancel text=my-id"},
        {"show sflow", "show sflow"},
        {"show sflow collectors | json", "show sflow choice=collectors json"},
        {"show sflow problems", "show sflow choice=problems"},
        {"show system processes", "show system processes"},
        {"show system faults|json", "show system faults json"},
        {"show version", "show version"},
        {"request ha go-standby", "request ha choice=go-standby"},
        {"request sflow resync", "request sflow resync"},
        {"help", "help"},
        {"help show system", "help word=show word=system"},
    };
    for (const auto& row : rows) EXPECT_EQ(Understood(row.text), row.understood);
}

TEST(Understand, RefusesWithWhatIsPossible)
{
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"nonsense", "error: unknown command \"nonsense\"; possible: set, edit, up, top, delete, load, "},
        {"show",
         "error: the command is not complete; possible: configuration, history, checkpoints, sflow, "
         "interfaces, system, "
         "version"},
        {"rollback", "error: N|CHECKPOINT is missing; usage: rollback N|CHECKPOINT"},
        {"rollback 1 2", "error: \"2\" is unknown here; usage: rollback N|CHECKPOINT"},
        {"rollback commit", "error: ID is missing; usage: rollback commit ID"},
        {"rollback commit x", "error: \"x\" is no number; usage: rollback commit ID"},
        {"show history -1", "error: \"-1\" is no number; usage: show history [ID] [| json]"},
        {"request checkpoint a b", "error: \"b\" is unknown here; usage: request checkpoint NAME [replace]"},
        {"show system", "error: the command is not complete; possible: processes, faults"},
        {"show system fans", "error: \"fans\" is unknown here; possible: processes, faults"},
        {"load", "error: the command is not complete; possible: merge, replace"},
        {"load merge", "error: a file's name is missing; usage: load merge FILE"},
        {"load merge a b", "error: \"b\" is unknown here; usage: load merge FILE"},
        {"set", "error: a path is missing; usage: set PATH... [VALUE]"},
        {"show sflow fans",
         "error: \"fans\" is none of collectors, interfaces, agent, drops, problems; usage: show sflow "
         "[collectors|interfaces|agent|drops|problems] [| json]"},
        {"request ha",
         "error: one of go-active, go-standby is missing; usage: request ha go-active|go-standby"},
        {"commit now", "error: \"now\" is unknown here; usage: commit [comment TEXT]"},
        {"commit confirmed soon",
         "error: \"soon\" is no number; usage: commit confirmed [SECONDS] [persist ID] [comment TEXT]"},
        {"commit confirmed 60 persist",
         "error: a text is missing behind \"persist\"; usage: commit confirmed"},
        {"commit confirmed comment a persist b", "error: put a text of several words in double quotes"},
        {"commit confirmed 60 120", "error: \"120\" is unknown here"},
        {"confirm a b", "error: \"b\" is unknown here; usage: confirm [ID]"},
        {"commit comment",
         "error: a text is missing behind \"comment\"; usage: commit [comment TEXT] [| json]"},
        {"commit comment two words",
         "error: put a text of several words in double quotes; usage: commit [comment TEXT] [| json]"},
        {"commit | display xml",
         "error: \"display xml\" is no form of this command's output; usage: commit [comment TEXT] [| json]"},
        {"validate | json", "error: \"json\" is no form of this command's output; usage: validate"},
        {"show sflow | display set", "error: \"display set\" is no form of this command's output"},
        {"show configuration |", "error: \"\" is no form of this command's output"},
        {"show configuration | json | json", "error: \"json | json\" is no form of this command's output"},
        {"| json", "error: a command is missing before |"},
    };
    for (const auto& row : rows) EXPECT_THAT(Understood(row.text), HasSubstr(row.message)) << row.text;
}

TEST(Commands, HaveDistinctNamesAndHelp)
{
    std::set<std::string_view> names;
    for (const cli::Command& command : cli::Commands()) {
        EXPECT_TRUE(names.insert(command.name).second) << command.name;
        EXPECT_TRUE(command.help.ends_with('.')) << command.name;
        EXPECT_NE(command.run, nullptr) << command.name;
    }
}

constexpr std::size_t kWide = 200;

TEST(Help, ListsTheCommandsThatBeginWithTheWords)
{
    EXPECT_EQ(
        cli::Help(cli::Commands(), {"show", "system"}, kWide),
        "  show system processes [| json]\n"
        "      Shows the processes that are connected to the database, and those that miss commits.\n"
        "  show system faults [| json]\n"
        "      Shows the faults that processes reported.\n"
        "  show system sessions [| json]\n"
        "      Shows who has a session, from where and since when, with its locks and the edits that it "
        "has not committed.\n"
        "  show system candidates [| json]\n"
        "      Shows who has edited the shared candidate, and who has a private one.\n");
    for (const cli::Command& command : cli::Commands())
        EXPECT_THAT(cli::Help(cli::Commands(), {}, kWide), HasSubstr("  " + cli::Usage(command) + "\n"));
    EXPECT_THROW(cli::Help(cli::Commands(), {"roll"}, kWide), cli::Error);
    EXPECT_EQ(cli::Help(cli::Commands(), {"show", "system", "processes"}, 40),
              "  show system processes [| json]\n"
              "      Shows the processes that are\n"
              "      connected to the database, and\n"
              "      those that miss commits.\n");
}

}  // namespace
