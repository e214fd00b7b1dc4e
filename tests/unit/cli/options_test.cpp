// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "cli/commands/command.h"
#include "cli/data/error.h"

namespace {

using testing::HasSubstr;

base::Variables Environment(std::map<std::string, std::string> values)
{
    return [values = std::move(values)](const char* name) -> std::optional<std::string> {
        const auto found = values.find(name);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    };
}

TEST(Options, TakeTheSocketFromTheArgumentTheEnvironmentOrTheDefault)
{
    EXPECT_EQ(cli::ReadOptions({}, Environment({})).socket, "/run/sflow-switch/netconf.sock");
    EXPECT_EQ(cli::ReadOptions({}, Environment({{"SFLOW_RUN_DIR", "/r"}})).socket, "/r/netconf.sock");
    EXPECT_EQ(cli::ReadOptions({"--socket", "/s"}, Environment({{"SFLOW_RUN_DIR", "/r"}})).socket, "/s");
}

TEST(Options, TakeCommandsOrAFile)
{
    const base::Variables none = Environment({});
    EXPECT_EQ(cli::ReadOptions({"-c", "set a; commit"}, none).commands, "set a; commit");
    EXPECT_EQ(cli::ReadOptions({"-f", "x"}, none).file, "x");
    EXPECT_EQ(cli::ReadOptions({"-c", ""}, none).commands, "");
    EXPECT_FALSE(cli::ReadOptions({}, none).commands);
    EXPECT_TRUE(cli::ReadOptions({"--version"}, none).version);
    EXPECT_TRUE(cli::ReadOptions({"--help"}, none).help);
    EXPECT_TRUE(cli::ReadOptions({"-h"}, none).help);
    EXPECT_TRUE(cli::ReadOptions({"help"}, none).help);
}

TEST(Options, RefuseWhatTheyDoNotKnow)
{
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        const char* message;
    } rows[] = {
        {"unknown option", {"--colour"}, "--colour"},
        {"abbreviation", {"--vers"}, "--vers"},
        {"both", {"-c", "x", "-f", "y"}, "-c and -f exclude each other"},
        {"no value", {"-c"}, "option --command needs a value; swcli --help lists the options"},
        {"no value behind =", {"--socket="}, "option --socket needs a value; swcli --help lists the options"},
        {"a value where none is", {"--version=1"}, "no such option: --version=1; swcli --help"},
        {"twice", {"-c", "x", "-c", "y"}, "option --command is given twice; swcli --help lists the options"},
        {"a command without -c", {"show", "sflow"}, "\"show\" is no option; give commands with -c"},
    };
    for (const auto& row : rows) {
        try {
            cli::ReadOptions(row.arguments, Environment({}));
            ADD_FAILURE() << row.name << " is taken";
        } catch (const cli::Error& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.message)) << row.name;
        }
    }
}

TEST(HelpText, NamesEveryCommand)
{
    std::string text = cli::HelpText();
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });  // usages may be broken
    for (const cli::Command& command : cli::Commands()) {
        std::string usage = cli::Usage(command);
        std::erase(usage, ' ');
        EXPECT_THAT(text, HasSubstr(usage));
    }
}

}  // namespace
