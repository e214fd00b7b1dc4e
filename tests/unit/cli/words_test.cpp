// SPDX-License-Identifier: Apache-2.0
#include "cli/data/words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/data/error.h"

namespace {

using Texts = std::vector<std::string>;

struct CommandsRow {
    const char* name;
    const char* text;
    Texts commands;
};

TEST(SplitCommands, EndAtSemicolonsAndLinesOutsideQuotes)
{
    const CommandsRow rows[] = {
        {"nothing", "", {}},
        {"only separators", " ; ;\n; ", {}},
        {"one", "commit", {"commit"}},
        {"two", "set a b; commit", {"set a b", "commit"}},
        {"separator at the end", "commit;", {"commit"}},
        {"lines", "set a b\ncommit\n", {"set a b", "commit"}},
        {"quoted semicolon", R"(commit comment "a; b"; compare)", {R"(commit comment "a; b")", "compare"}},
        {"quoted quote", R"(commit comment "a\"; b"; compare)", {R"(commit comment "a\"; b")", "compare"}},
        {"hash is no comment here", "set a #b; commit", {"set a #b", "commit"}},
    };
    for (const auto& row : rows) EXPECT_EQ(cli::SplitCommands(row.text), row.commands) << row.name;
}

TEST(SplitCommands, RefusesAnOpenQuote)
{
    EXPECT_THROW(cli::SplitCommands("commit; commit comment \"a; b"), cli::Error);
    EXPECT_THROW(cli::SplitCommands("commit comment \"a\\\""), cli::Error);
}

TEST(WithoutComment, EndsAtAHashThatBeginsAWord)
{
    const struct {
        const char* name;
        const char* line;
        const char* rest;
    } rows[] = {
        {"nothing", "", ""},
        {"all comment", "# set a b", ""},
        {"indented", "  # set a b", "  "},
        {"behind a command", "set a b # why", "set a b "},
        {"inside a word", "set a#b c", "set a#b c"},
        {"in quotes", "set a \" # b\" c # d", "set a \" # b\" c "},
    };
    for (const auto& row : rows) EXPECT_EQ(cli::WithoutComment(row.line), row.rest) << row.name;
}

TEST(SplitWords, SeparatesAtBlanksAndPipes)
{
    const struct {
        const char* name;
        const char* command;
        std::vector<cli::Word> words;
    } rows[] = {
        {"nothing", " \t ", {}},
        {"words", "set  oam\tsflow ", {{"set"}, {"oam"}, {"sflow"}}},
        {"carriage return", "commit\r", {{"commit"}}},
        {"quotes", R"(commit comment "two words")", {{"commit"}, {"comment"}, {"two words", true}}},
        {"empty quotes", R"(commit comment "")", {{"commit"}, {"comment"}, {"", true}}},
        {"escapes", R"("a \"b\" \\ \n")", {{R"(a "b" \ \n)", true}}},
        {"quotes inside a word", R"(a"b c"d)", {{"ab cd", true}}},
        {"pipe", "show sflow|json", {{"show"}, {"sflow"}, {"|"}, {"json"}}},
        {"backslash outside quotes", R"(a\b)", {{R"(a\b)"}}},
        {"UTF-8", "commit comment fünf", {{"commit"}, {"comment"}, {"fünf"}}},
    };
    for (const auto& row : rows) EXPECT_EQ(cli::SplitWords(row.command), row.words) << row.name;
}

TEST(SplitWords, TellsAPipeFromAQuotedOne)
{
    const auto words = cli::SplitWords("| \"|\"");
    ASSERT_EQ(words.size(), 2U);
    EXPECT_TRUE(words[0].IsPipe());
    EXPECT_FALSE(words[1].IsPipe());
}

TEST(SplitWords, RefusesWhatNoValueCanHave)
{
    const struct {
        const char* name;
        const char* command;
    } rows[] = {
        {"open quote", "set \"a"},     {"control character", "set a\x01"}, {"escape", "set \x1b[1m"},
        {"broken UTF-8", "set a\xff"}, {"cut UTF-8", "set a\xc3"},
    };
    for (const auto& row : rows) EXPECT_THROW(cli::SplitWords(row.command), cli::Error) << row.name;
}

TEST(Quoted, IsReadBackAsTheSameWord)
{
    const Texts words = {
        "eth1", "", "a b", "a;b", "a|b", "#a", "a#b", "\"", "\\", "a\\\"b c\\", "gigabit-ethernet-1/1/1"};
    for (const auto& word : words) {
        const auto read = cli::SplitWords("x " + cli::Quoted(word) + " y");
        ASSERT_EQ(read.size(), 3U) << word;
        EXPECT_EQ(read[1].text, word);
        EXPECT_EQ(cli::SplitCommands(cli::Quoted(word)).size(), 1U) << word;
    }
    EXPECT_EQ(cli::Quoted("gigabit-ethernet-1/1/1"), "gigabit-ethernet-1/1/1");
}

}  // namespace
