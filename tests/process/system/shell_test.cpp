// SPDX-License-Identifier: Apache-2.0
// swcli against the real switch: what an operator's files and commands do, and what bad ones say.

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "system/event_monitor.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

class Shell : public SystemTest {
protected:
    Shell() { TheWorld().Start(scenario::Usual()); }

    std::filesystem::path File(const std::string& text)
    {
        const auto path = TheWorld().Dir() / "operator.file";
        support::WriteFile(path, text);
        return path;
    }

    // The commands end with 1 and this text among the errors, nothing on standard output, and the
    // candidate is as before.
    std::string Fails(const std::string& commands, const std::string& text)
    {
        const auto before = Candidate();
        const auto result = TheWorld().Cli(commands);
        EXPECT_EQ(1, result.status) << commands;
        EXPECT_THAT(result.errors, HasSubstr(text)) << commands;
        EXPECT_EQ("", result.output) << commands;
        EXPECT_EQ(before, Candidate());
        return result.errors;
    }

    std::string Candidate() { return Connect().Call(netconf::GetConfig("candidate")).data; }
};

TEST_F(Shell, MalformedFilesAreRefusedWithLineAndColumn)
{
    const auto json = File("{\n  \"switch-config:config\": {\n    \"x\" 1\n  }\n}\n");
    EXPECT_THAT(Fails("load merge " + json.string(), "3"), HasSubstr(json.string()));
    const auto xml = File("<config xmlns=\"urn:switch:yang:switch-config\">\n  <oam>\n  </mao>\n</config>\n");
    EXPECT_THAT(Fails("load replace " + xml.string(), "3"), HasSubstr(xml.string()));
    File("");
    Fails("load merge " + xml.string(), xml.string());
    File(
        std::string("\x7f"
                    "ELF\0\0\0",
                    7));
    Fails("load merge " + xml.string(), xml.string());
}

TEST_F(Shell, MissingFileIsNamed)
{
    Fails("load merge /nowhere/at-all.json", "/nowhere/at-all.json");
    const auto result = TheWorld().Run({World::Program("swcli"), "-f", "/nowhere/commands"});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("/nowhere/commands"));
}

TEST_F(Shell, FileWithAnUnknownLeafIsRefusedWithItsName)
{
    const auto file = File(scenario::Switch(R"("interface":[{"name":"eth1","sampling-speed":1}])"));
    Fails("load merge " + file.string(), "sampling-speed");
}

TEST_F(Shell, FileWithAValueOutOfRangeIsRefusedWithTheValue)
{
    const auto file = File(scenario::Switch(R"("interface":[{"name":"eth1","sampling-rate":16777216}])"));
    Fails("load merge " + file.string(), "16777216");
}

TEST_F(Shell, BadCommandsAreRefusedByName)
{
    Fails("set oam sflow interface eth1 sampling-rate 0", "0");
    Fails("set oam sflow interface eth1 sampling-rate many", "many");
    Fails("set oam sflow interface eth1 sampling-speed 1", "sampling-speed");
    Fails("set oam sflow", "");
    Fails("delete oam sflow collector nobody", "nobody");
    Fails("frobnicate", "frobnicate");
    Fails("rollback many", "many");
    Fails("show everything", "everything");
}

TEST_F(Shell, DanglingReferenceIsRefusedAtTheCommit)
{
    const auto result = TheWorld().Cli("delete oam sflow collector c1; commit");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("eth1"));
    EXPECT_THAT(result.errors, HasSubstr("c1"));
    TheWorld().CliDone("discard");
    EXPECT_THAT(Running(), HasSubstr("198.51.100.1"));
    AwaitSettled();
}

TEST_F(Shell, StopsAtTheFirstError)
{
    const auto result = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 9; frobnicate; commit");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(Running(), HasSubstr("1024"));
}

TEST_F(Shell, ReadsCommandsFromAFileAndFromStandardInput)
{
    const auto file =
        File("# a comment\nset oam sflow interface eth1 sampling-rate 11\n\ncommit  # at once\n");
    EXPECT_EQ(0, TheWorld().Run({World::Program("swcli"), "-f", file}).status);
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>11</sampling-rate>"));
    const auto piped =
        TheWorld().Run({World::Program("swcli")}, "set oam sflow interface eth1 sampling-rate 12\ncommit\n");
    EXPECT_EQ(0, piped.status) << piped.errors;
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>12</sampling-rate>"));
}

TEST_F(Shell, CandidateStaysBetweenCalls)
{
    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 13");
    EXPECT_THAT(TheWorld().CliDone("compare"), HasSubstr("13"));
    EXPECT_THAT(TheWorld().CliDone("show configuration"), HasSubstr("13"));
    EXPECT_THAT(Running(), HasSubstr("1024"));
    TheWorld().CliDone("validate; commit");
    EXPECT_EQ("", TheWorld().CliDone("compare"));
    AwaitSettled();
}

TEST_F(Shell, WhatItShowsItLoads)
{
    for (const std::string format : {"json", "xml"}) {
        const auto shown = TheWorld().CliDone("show configuration | display " + format);
        const auto file = File(shown);
        TheWorld().CliDone("delete oam sflow interface eth1; commit");
        TheWorld().CliDone("load replace " + file.string() + "; commit");
        EXPECT_EQ(shown, TheWorld().CliDone("show configuration | display " + format));
        AwaitSettled();
    }
    const auto commands = TheWorld().CliDone("show configuration | display set");
    const auto shown = Running();
    TheWorld().CliDone("delete oam sflow interface eth1; delete oam sflow interface eth2; commit");
    const auto result = TheWorld().Run({World::Program("swcli")}, commands + "commit\n");
    EXPECT_EQ(0, result.status) << result.errors << commands;
    EXPECT_EQ(shown, Running());
    AwaitSettled();
}

TEST_F(Shell, ShowsJsonAsOneDocument)
{
    for (const std::string what : {"configuration", "sflow", "sflow collectors", "sflow interfaces",
                                   "sflow agent", "system processes", "system faults", "version"}) {
        const auto text = TheWorld().CliDone("show " + what + " | json");
        EXPECT_TRUE(nlohmann::json::accept(text)) << what << ": " << text;
        EXPECT_FALSE(TheWorld().CliDone("show " + what).empty() && what != "system faults") << what;
    }
}

TEST_F(Shell, WithoutADatabaseSaysWhichSocketItTried)
{
    TheWorld().Cdbd().Kill();
    const auto result = TheWorld().Cli("show configuration");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr(TheWorld().NetconfSocket().string()));
}

TEST_F(Shell, EventsAreShownUntilInterrupted)
{
    EventMonitor monitor(TheWorld(), "monitor events since 1h");
    monitor.Await("process-connected  process sflow-app");
    TheWorld().CliDone("set oam sflow collector c9 ip 192.0.2.9; commit comment \"for a test\"");
    const std::string text = monitor.Await("\"for a test\": create oam sflow collector c9\n");
    EXPECT_THAT(text, HasSubstr("  netconf-config-change  commit "));
    EXPECT_THAT(text, HasSubstr("  netconf-session-start  "));
    const std::string manager = std::to_string(TheWorld().Manager().Pid());
    TheWorld().Manager().Kill();
    monitor.Await("process-lost  process sflow-mgr, pid " + manager);
    monitor.Process().Signal(SIGINT);
    EXPECT_EQ(0, monitor.Process().Wait());
}

TEST_F(Shell, AMonitorIsInterruptedAlsoWhereTheDatabaseHangs)
{
    EventMonitor monitor(TheWorld(), "monitor sflow");
    monitor.Await("Z ");
    TheWorld().Cdbd().Freeze();
    // Long enough for the next line to be asked for.
    std::this_thread::sleep_for(std::chrono::milliseconds(1'500));
    monitor.Process().Signal(SIGINT);
    EXPECT_EQ(0, monitor.Process().Wait());
    TheWorld().Cdbd().Thaw();
}

TEST_F(Shell, EventsAreJsonObjectsOneALine)
{
    EventMonitor monitor(TheWorld(), "monitor events since 1h | json");
    TheWorld().CliDone("set oam sflow collector c9 ip 192.0.2.9; commit");
    monitor.Await("collector[name='c9']");
    monitor.Process().Signal(SIGINT);
    EXPECT_EQ(0, monitor.Process().Wait());
    std::istringstream lines(monitor.Text());
    std::size_t changes = 0;
    for (std::string line; std::getline(lines, line);) {
        const auto event = nlohmann::json::parse(line);
        EXPECT_TRUE(event.contains("eventTime")) << line;
        changes += event.count("ietf-netconf-notifications:netconf-config-change");
    }
    EXPECT_GE(changes, 1U);
}

TEST_F(Shell, EventsEndWithTheDatabase)
{
    EventMonitor monitor(TheWorld(), "monitor events since 1h");
    monitor.Await("process-connected  process sflow-app");
    TheWorld().Cdbd().Kill();
    EXPECT_EQ(1, monitor.Process().Wait());
}

TEST_F(Shell, EventsBeginAtATimeThatIsOne)
{
    Fails("monitor events since yesterday", "10m");
    Fails("monitor events since 9999-12-31T23:59:59Z", "startTime");
    Fails("monitor events since 99999999999999999999d", "no time");
    Fails("monitor events today", "usage");
}

}  // namespace

}  // namespace system_tests
