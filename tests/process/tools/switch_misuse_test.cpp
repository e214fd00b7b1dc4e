// SPDX-License-Identifier: Apache-2.0
// tools/switch where something is missing: it says what, and leaves nothing running.

#include "tools/switch_fixture.h"

namespace {

using testing::HasSubstr;

class SwitchMisuse : public SwitchFixture {
protected:
    [[nodiscard]] support::RunResult RunSwitch(const Words& words,
                                               const std::map<std::string, std::string>& more = {}) const
    {
        Words argv{Tool("switch")};
        argv.insert(argv.end(), words.begin(), words.end());
        auto environment = Environment();
        for (const auto& [name, value] : more) environment[name] = value;
        return support::Run(Dir(), argv, environment);
    }

    /// A directory with the programs, but another one in the place of sflow-app.
    [[nodiscard]] std::filesystem::path WithDaemon(const std::string& script) const
    {
        const auto programs = Dir() / "programs";
        std::filesystem::create_directory(programs);
        for (const auto* name : {"cdbd", "sflow-mgr", "swcli"})
            std::filesystem::create_symlink(Programs() / name, programs / name);
        support::WriteFile(programs / "sflow-app", script);
        std::filesystem::permissions(programs / "sflow-app", std::filesystem::perms::owner_all);
        return programs;
    }
};

TEST_F(SwitchMisuse, IsAnsweredWithTheUsage)
{
    struct Row {
        Words words;
        std::string fault;
    };
    for (const Row& row : {Row{{}, "say what to do"}, Row{{"down"}, "no such command: down"},
                           Row{{"up", "--bogus"}, "no such option: --bogus"},
                           Row{{"up", "--journal"}, "option --journal needs a value"},
                           Row{{"up", "--timeout", "soon"}, "\"soon\" is no number of seconds"}}) {
        const auto result = RunSwitch(row.words);
        EXPECT_EQ(1, result.status) << row.fault;
        EXPECT_THAT(result.errors, HasSubstr(row.fault));
        EXPECT_THAT(result.errors, HasSubstr("usage: tools/switch up"));
        EXPECT_EQ("", result.output);
    }
}

TEST_F(SwitchMisuse, HelpIsNoMisuse)
{
    const auto result = RunSwitch({"--help"});
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.output, HasSubstr("usage: tools/switch up"));
    EXPECT_EQ("", result.errors);
}

TEST_F(SwitchMisuse, ProgramsThatAreNotBuiltAreNamed)
{
    const auto result = RunSwitch({"up", "--bin", Dir()});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("cdbd sflow-mgr sflow-app swcli"));
    EXPECT_THAT(result.errors, HasSubstr("make build"));
}

TEST_F(SwitchMisuse, DirectoriesThatCannotBeWrittenAreNamed)
{
    for (const std::string variable : {"SFLOW_RUN_DIR", "SFLOW_STATE_DIR"}) {
        const auto result = RunSwitch({"up", "--bin", Programs()}, {{variable, "/proc/nobody/here"}});
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.errors, HasSubstr("/proc/nobody/here; set " + variable));
    }
}

TEST_F(SwitchMisuse, ADaemonThatDoesNotConnectIsNamedWhenTheTimeIsOver)
{
    const auto result =
        RunSwitch({"up", "--bin", WithDaemon("#!/bin/sh\nexec sleep 1000\n"), "--timeout", "3"}, {});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_THAT(result.errors, HasSubstr("not ready after 3 s: sflow-app is not connected to the database"));
    EXPECT_THAT(result.errors, HasSubstr(RunDir()));
    EXPECT_FALSE(support::Accepts(RunDir() / "netconf.sock"));
}

TEST_F(SwitchMisuse, ADaemonThatDoesNotStartIsReportedAtOnce)
{
    const auto result = RunSwitch({"up", "--bin", WithDaemon("#!/bin/sh\necho no memory >&2\nexit 3\n")});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_THAT(result.errors, HasSubstr("sflow-app ended with status 3"));
    EXPECT_THAT(result.errors, HasSubstr("no memory"));
    EXPECT_FALSE(support::Accepts(RunDir() / "netconf.sock"));
}

}  // namespace
