// SPDX-License-Identifier: Apache-2.0
// Filters behind a command, and paging.

#include "cli/shell/pipes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/data/error.h"
#include "cli/peer.h"
#include "cli/yang.h"

namespace {

using cli_test::Ok;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// What `help` prints behind the pipes.
struct PipesFixture {
    std::ostringstream out;
    std::ostringstream err;
    cli_test::Peer peer{Ok};
    cli::Environment environment{[this] { return peer.Connect(); }, [] { return cli_test::Yang(); }};

    bool Run(const std::string& command)
    {
        out.str("");
        err.str("");
        cli::Shell shell(cli::Commands(), environment, out, err);
        return shell.Run(command);
    }
};

TEST(Pipes, KeepTheLinesThatMatch)
{
    PipesFixture test;
    EXPECT_TRUE(test.Run("help | match \"^  up$\""));
    EXPECT_EQ(test.out.str(), "  up\n");
    EXPECT_TRUE(test.Run("help up | except \"^  up$\""));
    EXPECT_EQ(test.out.str(), "      Leads to what is around the place that edit has led to.\n");
    EXPECT_TRUE(test.Run("help | begin \"^  quit$\""));
    EXPECT_THAT(test.out.str(), StartsWith("  quit\n"));
    EXPECT_THAT(test.out.str(), HasSubstr("The same as exit."));
}

TEST(Pipes, MayBeSeveralInARow)
{
    PipesFixture test;
    EXPECT_TRUE(test.Run("help | match \"^  show\" | except sflow | count"));
    const auto without = std::stoul(test.out.str());
    EXPECT_TRUE(test.Run("help | match \"^  show\" | count"));
    EXPECT_GT(std::stoul(test.out.str()), without);
    EXPECT_GT(without, 3U);
    EXPECT_TRUE(test.Run("help up | no-more | count | count"));
    EXPECT_EQ(test.out.str(), "1\n");
}

TEST(Pipes, StandBehindTheForm)
{
    PipesFixture test;
    EXPECT_TRUE(test.Run("commit | json | match commit"));
    EXPECT_EQ(test.out.str(), "  \"commit\": null,\n");
    EXPECT_FALSE(test.Run("commit | match commit | json"));
    EXPECT_THAT(test.err.str(), HasSubstr("the form of the output stands once, before all filters"));
}

TEST(Pipes, SaveAWholeFileOrNone)
{
    const auto path = std::filesystem::temp_directory_path() / ("pipes_test." + std::to_string(::getpid()));
    const auto content = [&] {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    };
    PipesFixture test;
    EXPECT_TRUE(test.Run("help up | save " + path.string()));
    EXPECT_EQ(test.out.str(), "");
    EXPECT_EQ(test.err.str(), "2 lines saved in " + path.string() + "\n");
    EXPECT_THAT(content(), StartsWith("  up\n"));
    EXPECT_FALSE(test.Run("help nonsense | save " + path.string()));
    EXPECT_THAT(content(), StartsWith("  up\n"));
    std::filesystem::remove(path);
    EXPECT_FALSE(test.Run("help | save /nowhere/file"));
    EXPECT_THAT(test.err.str(), HasSubstr("can't write /nowhere/file: No such file or directory"));
}

TEST(Pipes, AreRefusedWithWhatIsPossible)
{
    const struct {
        const char* pipe;
        const char* error;
    } rows[] = {
        {"|", "a form of output or a filter is missing behind |"},
        {"| match", "REGEX is missing behind match"},
        {"| match a b", "\"b\" is one word too many behind match; put a text with blanks in double quotes"},
        {"| match \"(\"", "\"(\" is no regular expression: "},
        {"| lines",
         "\"lines\" is no form of output and no filter; possible: json, display, match REGEX, except "
         "REGEX, begin REGEX, count, save FILE, no-more"},
        {"| save a | count", "nothing comes out of save; put it last"},
        {"| count x", "\"x\" is one word too many behind count"},
    };
    for (const auto& row : rows) {
        PipesFixture test;
        EXPECT_FALSE(test.Run(std::string("help ") + row.pipe));
        EXPECT_THAT(test.err.str(), HasSubstr(row.error));
        EXPECT_EQ(test.out.str(), "");
    }
}

TEST(Pager, TakesWhatIsLongerThanTheScreenOfAPerson)
{
    PipesFixture test;
    std::string paged;
    test.environment.page = [&](const std::string& text) {
        paged = text;
        return true;
    };
    test.environment.height = [] { return std::size_t{10}; };
    const auto converse = [&](const std::string& line) {
        paged.clear();
        test.out.str("");
        cli::Shell shell(cli::Commands(), test.environment, test.out, test.err);
        std::istringstream input(line);
        cli_test::Converse(shell, input, test.out);
    };
    converse("help\n");
    EXPECT_THAT(paged, HasSubstr("  show sflow"));
    EXPECT_THAT(test.out.str(), Not(HasSubstr("show sflow")));
    converse("help up\n");
    EXPECT_EQ(paged, "");
    EXPECT_THAT(test.out.str(), HasSubstr("  up\n"));
    converse("help | no-more\n");
    EXPECT_EQ(paged, "");
    EXPECT_THAT(test.out.str(), HasSubstr("  show sflow"));
    // No person.
    EXPECT_TRUE(test.Run("help"));
    EXPECT_EQ(paged, "");
    // A pager that is missing.
    test.environment.page = [](const std::string&) { return false; };
    converse("help\n");
    EXPECT_THAT(test.out.str(), HasSubstr("  show sflow"));
}

}  // namespace
