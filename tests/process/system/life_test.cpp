// SPDX-License-Identifier: Apache-2.0
// The processes as an operating system and an operator see them: their end, their log, their faults,
// the node's role.

#include <csignal>
#include <nlohmann/json.hpp>
#include <regex>

#include "ipc/cdb.pb.h"
#include "support/frames.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

class Life : public SystemTest {};

// The fault table, as an array; the names of the nodes around it are the state module's matter.
nlohmann::json FaultsOf(World& world)
{
    auto document = nlohmann::json::parse(world.CliDone("show system faults | json"));
    while (document.is_object() && document.size() == 1 && document.begin()->is_structured()) {
        auto inner = *document.begin();
        document = inner;
    }
    return document.is_array() ? document : nlohmann::json::array();
}

TEST_F(Life, EndsNormallyOnSigtermAndSigint)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        World world;
        world.Start(scenario::Usual());
        for (auto* process : {&world.Daemon(), &world.Manager(), &world.Cdbd()}) {
            process->Signal(signal);
            EXPECT_EQ(0, process->Wait()) << "signal " << signal;
        }
        EXPECT_THAT(world.Log("sflow-app"), HasSubstr("SFlow App stop running!"));
        EXPECT_FALSE(Accepts(world.NetconfSocket()));
    }
}

TEST_F(Life, DaemonEndsNormallyWhileItHasNobodyToTalkTo)
{
    TheWorld().StartDaemon();
    TheWorld().AwaitLog("sflow-app", "SFlow Application main loop");
    EXPECT_EQ(0, TheWorld().Daemon().Terminate());
}

TEST_F(Life, LogLinesHaveTheDocumentedForm)
{
    TheWorld().Start(scenario::Usual());
    Commit(Rate("eth1", 90));
    TheWorld().CliDone("show sflow; show system processes");
    const std::regex line(
        R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z [a-z-]+ 1[0-3] [\w./-]+:[^: ]+:\d+ [^\x00-\x1f]*)");
    for (const std::string process : {"cdbd", "sflow-mgr", "sflow-app"}) {
        std::istringstream log(support::ReadFile(TheWorld().Dir() / (process + ".log")));
        int lines = 0;
        for (std::string text; std::getline(log, text); ++lines) {
            EXPECT_TRUE(std::regex_match(text, line)) << text;
            EXPECT_THAT(text, HasSubstr("Z " + process + " "));
        }
        EXPECT_GT(lines, 0) << process;
    }
    EXPECT_TRUE(
        std::regex_search(TheWorld().Log("sflow-app"),
                          std::regex(R"(Z sflow-app 12 src/daemon/sflow_app:Run:\d+ SFlow App Run\n)")));
}

TEST_F(Life, LogStaysAtTheDefaultLevelWithoutALevelGiven)
{
    World quiet({.cdbdArguments = {}, .logLevel = 12, .stateDir = {}});
    quiet.Start(scenario::Usual());
    EXPECT_EQ(0, quiet.Daemon().Terminate());
    std::istringstream log(support::ReadFile(quiet.Dir() / "sflow-app.log"));
    for (std::string text; std::getline(log, text);)
        EXPECT_TRUE(std::regex_search(text, std::regex("sflow-app 1[23] "))) << text;
}

TEST_F(Life, RoleChangesReachTheProcessesAndChangeNothingElse)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().CliDone("request ha go-standby");
    TheWorld().CliDone("request ha go-active; request ha go-active");
    Commit(Rate("eth1", 91));
    EXPECT_THAT(TheWorld().ManagerJournal().Until("UpdateInterface eth1 - - 91 2 128 20"),
                ElementsAre("UpdateInterface eth1 - - 91 2 128 20"));
    const auto result = TheWorld().Cli("request ha go-away");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("go-away"));
}

TEST_F(Life, ConnectedProcessesAreShown)
{
    TheWorld().Start(scenario::Usual());
    const auto text = TheWorld().CliDone("show system processes | json");
    for (auto* process : {&TheWorld().Daemon(), &TheWorld().Manager()})
        EXPECT_THAT(text, HasSubstr(std::to_string(process->Pid())));
}

TEST_F(Life, VersionsOfAllProgramsAreShown)
{
    TheWorld().Start(scenario::Usual());
    const auto said = TheWorld().Run({World::Program("cdbd"), "--version"});
    ASSERT_THAT(said.output, testing::StartsWith("cdbd "));
    const std::string version = said.output.substr(said.output.find(' ') + 1);
    const auto shown = TheWorld().CliDone("show version");
    for (const char* program : {"swcli ", "cdbd ", "sflow-app ", "sflow-mgr "})
        EXPECT_THAT(shown, testing::ContainsRegex(program + std::string(" *") + version));
}

TEST_F(Life, UnhandledChangesAreLoggedWithTheirTag)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().CliDone("set oam sflow interface eth1 default-sampling-rate 1000; commit");
    TheWorld().AwaitLog("sflow-app", "Ignoring: ");
}

// A process that is about to end reports its fault over a connection of its own, without a hello.
void ReportFault(const World& world, const std::string& text)
{
    ipc::cdb::ClientMessage message;
    auto& fault = *message.mutable_fault_report();
    fault.set_process("sflow-app");
    fault.set_pid(4711);
    fault.set_kind(1);
    fault.set_function("GetCollector");
    fault.set_file("src/daemon/sflow_config_handler");
    fault.set_line(99);
    fault.set_text(text);
    support::FrameClient(world.CdbSocket()).Send(message);
}

TEST_F(Life, FaultsAreKeptOverARestart)
{
    TheWorld().Start(scenario::Usual());
    EXPECT_EQ("[]", FaultsOf(TheWorld()).dump());
    ReportFault(TheWorld(), "first <&> text");
    ReportFault(TheWorld(), "");
    Await("two faults", [this] { return FaultsOf(TheWorld()).size() == 2; });
    const auto before = FaultsOf(TheWorld());
    EXPECT_THAT(before.dump(), HasSubstr("first <&> text"));
    EXPECT_THAT(before.dump(), HasSubstr("GetCollector"));
    // The process id is what the kernel says, not what the report says.
    EXPECT_THAT(before.dump(), testing::Not(HasSubstr("4711")));
    EXPECT_THAT(before.dump(), HasSubstr(std::to_string(::getpid())));
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    EXPECT_EQ(before, FaultsOf(TheWorld()));
    EXPECT_THAT(TheWorld().CliDone("show system faults"), HasSubstr("first <&> text"));
}

TEST_F(Life, FaultsFromAPeerThatRepeatsItselfAreBounded)
{
    TheWorld().Start(scenario::Usual());
    ipc::cdb::ClientMessage message;
    message.mutable_fault_report()->set_text(std::string(100'000, 'x'));
    for (int i = 0; i < 50; ++i) support::FrameClient(TheWorld().CdbSocket()).Send(message);
    Await("some faults to be kept", [this] { return FaultsOf(TheWorld()).size() >= 10; });
    EXPECT_LT(FaultsOf(TheWorld()).size(), 50U);
    EXPECT_LT(FaultsOf(TheWorld()).dump().size(), 500'000U);
    Commit(Rate("eth1", 92));
    AwaitSettled();
}

}  // namespace

}  // namespace system_tests
