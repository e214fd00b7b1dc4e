// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cdb/model/error.h"
#include "cli/peer.h"
#include "cli/screens/sflow_summary.h"
#include "cli/yang.h"

namespace {

using cli_test::Data;
using cli_test::Ok;
using cli_test::Peer;
using cli_test::RpcError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// A shell on the real command table, whose database is the peer.
struct Fixture {
    explicit Fixture(cli_test::Answer answer) : peer(std::move(answer)) {}

    std::ostringstream out;
    std::ostringstream err;
    Peer peer;
    int connections = 0;
    cli::Shell shell{cli::Commands(),
                     {[this] {
                          ++connections;
                          return peer.Connect();
                      },
                      [] { return cli_test::Yang(); }},
                     out,
                     err};
};

const std::string kSetOptions =
    "<default-operation>merge</default-operation><test-option>set</test-option>"
    "<error-option>rollback-on-error</error-option>";

std::string Edit(const std::string& config)
{
    return "<edit-config><target><candidate/></target>" + kSetOptions + "<config>" + config +
           "</config></edit-config>";
}

std::string SflowXml(const std::string& content)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\"><oam "
           "xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow>" +
           content + "</sflow></oam></config>";
}

TEST(Shell, SendsOneRequestACommandInOneSession)
{
    Fixture test(Ok);
    EXPECT_TRUE(test.shell.RunAll(
        "set oam sflow collector c1 ip 192.0.2.1; delete oam sflow interface eth1; validate;"
        "commit comment \"first; try\"; commit; discard; request ha go-active;"
        "request ha go-standby; request sflow resync"));
    EXPECT_THAT(
        test.peer.Requests(),
        ElementsAre(
            Edit(SflowXml("<collector><name>c1</name><ip>192.0.2.1</ip></collector>")),
            Edit(SflowXml("<interface xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
                          "nc:operation=\"delete\"><name>eth1</name></interface>")),
            "<validate><source><candidate/></source></validate>",
            "<commit><comment xmlns=\"urn:switch:yang:switch-system\">first; try</comment></commit>",
            "<commit></commit>", "<discard-changes/>",
            "<ha-transition xmlns=\"urn:switch:yang:switch-system\"><role>active</role></ha-transition>",
            "<ha-transition xmlns=\"urn:switch:yang:switch-system\"><role>standby</role></ha-transition>",
            "<sflow-resync xmlns=\"urn:switch:yang:switch-system\"/>"));
    EXPECT_EQ(test.connections, 1);
    EXPECT_EQ(test.out.str(), "");
    EXPECT_EQ(test.err.str(),
              "the candidate is valid\nnothing to commit\nnothing to commit\nall edits taken back\n"
              "the processes are active\nthe processes stand by\n"
              "the sFlow manager is told the whole configuration again\n");
}

TEST(Shell, StopsAtTheFirstErrorOfTheDatabase)
{
    Fixture test([](const std::string& operation) -> std::optional<std::string> {
        if (operation.find("validate") == std::string::npos) return "<ok/>";
        return RpcError(
            "error", "collector c9 does not exist",
            "/c:config/s:oam/s:sflow/s:interface[s:name='eth1']/s:flow-sampling-collector[s:name='c9']");
    });
    EXPECT_FALSE(test.shell.RunAll("set oam sflow interface eth1; validate; commit"));
    // The third asks what the candidate keeps.
    EXPECT_THAT(test.peer.Requests(),
                ElementsAre(HasSubstr("<edit-config>"), HasSubstr("<validate>"), HasSubstr("<candidates")));
    EXPECT_EQ(test.err.str(),
              "error: validate: oam sflow interface eth1 flow-sampling-collector c9: collector c9 does not "
              "exist\n");
}

TEST(Shell, StopsAtTheFirstCommandThatItDoesNotUnderstand)
{
    Fixture test(Ok);
    EXPECT_FALSE(test.shell.RunAll("validate; set oam sflow port 5; commit"));
    EXPECT_THAT(test.peer.Requests(), ElementsAre("<validate><source><candidate/></source></validate>"));
    EXPECT_EQ(test.err.str(),
              "the candidate is valid\nerror: set oam sflow port 5: \"port\" is unknown after oam sflow; "
              "possible: agent, collector, "
              "interface\n");
}

TEST(Shell, RunsNothingOfAnArgumentWithAnOpenQuote)
{
    Fixture test(Ok);
    EXPECT_FALSE(test.shell.RunAll("commit; commit comment \"open"));
    EXPECT_EQ(test.connections, 0);
    EXPECT_THAT(test.err.str(), StartsWith("error: a double quote is not closed"));
}

TEST(Shell, WarningsOfAReplyGoToTheErrorStreamAndAreNoFailure)
{
    Fixture test(
        [](const std::string&) { return RpcError("warning", "sflow-app did not answer in time") + "<ok/>"; });
    EXPECT_TRUE(test.shell.RunAll("commit"));
    EXPECT_EQ(test.err.str(), "nothing to commit\nwarning: sflow-app did not answer in time\n");
    EXPECT_EQ(test.out.str(), "");
}

TEST(Shell, ReadsOneCommandALineAndNamesTheLine)
{
    Fixture test(Ok);
    std::istringstream input(
        "# a comment\n\nvalidate # here too\n  commit comment \"# none; here\"\r\nnonsense\ncommit\n");
    EXPECT_FALSE(test.shell.RunLines(input, "f.cli"));
    EXPECT_THAT(
        test.peer.Requests(),
        ElementsAre(
            "<validate><source><candidate/></source></validate>",
            "<commit><comment xmlns=\"urn:switch:yang:switch-system\"># none; here</comment></commit>"));
    EXPECT_THAT(test.err.str(),
                HasSubstr("error: f.cli:5: nonsense: unknown command \"nonsense\"; possible: set, "));
}

TEST(Shell, ALineWithoutItsEndIsACommandToo)
{
    Fixture test(Ok);
    std::istringstream input("validate");
    EXPECT_TRUE(test.shell.RunLines(input, "f.cli"));
    EXPECT_EQ(test.peer.Requests().size(), 1U);
}

TEST(Shell, ExitEndsTheInput)
{
    Fixture test(Ok);
    std::istringstream input("validate\nexit\nnonsense\n");
    EXPECT_TRUE(test.shell.RunLines(input, "f.cli"));
    EXPECT_TRUE(test.shell.Left());
    EXPECT_EQ(test.err.str(), "the candidate is valid\n");
}

TEST(Shell, AConversationGoesOnBehindAnError)
{
    Fixture test(Ok);
    std::istringstream input("nonsense\nvalidate\n");
    cli_test::Converse(test.shell, input, test.out);
    EXPECT_EQ(test.out.str(), "swcli> swcli> swcli> \n");
    EXPECT_EQ(test.peer.Requests().size(), 1U);
    EXPECT_THAT(test.err.str(), StartsWith("error: unknown command \"nonsense\""));
}

TEST(Shell, ConnectsAgainWhenTheDatabaseHasGone)
{
    Fixture test([n = 0](const std::string&) mutable { return n++ == 0 ? std::nullopt : Ok(""); });
    EXPECT_FALSE(test.shell.Run("commit"));
    EXPECT_EQ(test.err.str(), "error: commit: peer: the server has closed the session\n");
    EXPECT_TRUE(test.shell.Run("commit"));
    EXPECT_EQ(test.connections, 2);
}

TEST(Shell, SaysWhyItCannotConnectOrLoad)
{
    std::ostringstream out;
    std::ostringstream err;
    cli::Shell shell(
        cli::Commands(),
        {[]() -> std::unique_ptr<netconf::Client> {
             return std::make_unique<netconf::Client>(netconf::Client::Connect("/nowhere/netconf.sock"));
         },
         []() -> const ly_ctx* { throw cdb::FatalError("no modules"); }},
        out, err);
    EXPECT_FALSE(shell.Run("commit"));
    EXPECT_FALSE(shell.Run("monitor events"));
    EXPECT_THAT(err.str(),
                HasSubstr("error: commit: can't connect to /nowhere/netconf.sock: No such file or directory; "
                          "is cdbd running? "));
    EXPECT_THAT(err.str(), HasSubstr("error: monitor events: no modules\n"));
    EXPECT_TRUE(shell.Run("help commit"));
    EXPECT_THAT(out.str(), StartsWith("  commit [comment TEXT] [| json]\n"));
}

TEST(ShowConfiguration, AsksForTheCandidateAndPrintsEachForm)
{
    const std::string data =
        SflowXml("<interface><name>eth1</name><sampling-rate>512</sampling-rate></interface>");
    Fixture test([&](const std::string&) { return Data(data); });
    const auto shown = [&](const std::string& command) {
        test.out.str("");
        EXPECT_TRUE(test.shell.Run(command)) << test.err.str();
        return test.out.str();
    };
    EXPECT_EQ(shown("show configuration"),
              "oam {\n    sflow {\n        interface eth1 {\n            sampling-rate 512;\n        }\n    "
              "}\n}\n");
    EXPECT_EQ(shown("show configuration oam sflow interface eth1"),
              "interface eth1 {\n    sampling-rate 512;\n}\n");
    EXPECT_EQ(shown("show configuration | display set"), "set oam sflow interface eth1 sampling-rate 512\n");
    const auto expected = nlohmann::json::parse(
        R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{"interface":[{"name":"eth1","sampling-rate":512}]}}}})");
    EXPECT_EQ(nlohmann::json::parse(shown("show configuration | display json")), expected);
    EXPECT_EQ(nlohmann::json::parse(shown("show configuration|json")), expected);
    EXPECT_EQ(
        cli::ToCompactXml(cli::ParseReply(cli_test::Yang(), shown("show configuration | display xml")).get()),
        data);
    EXPECT_EQ(test.peer.Requests()[0], "<get-config><source><candidate/></source></get-config>");
    EXPECT_EQ(test.peer.Requests()[1], "<get-config><source><candidate/></source><filter type=\"subtree\">" +
                                           SflowXml("<interface><name>eth1</name></interface>") +
                                           "</filter></get-config>");
}

TEST(ShowConfiguration, OfNothingIsEmptyTextAndAnEmptyDocument)
{
    Fixture test([](const std::string&) { return Data(""); });
    EXPECT_TRUE(test.shell.Run("show configuration"));
    EXPECT_EQ(test.out.str(), "");
    EXPECT_TRUE(test.shell.Run("show configuration | json"));
    EXPECT_EQ(nlohmann::json::parse(test.out.str()), nlohmann::json::object());
}

TEST(ShowState, AsksForItsPartOnly)
{
    Fixture test([](const std::string&) { return Data(""); });
    const auto filtered = [](const std::string& content) {
        return "<get><filter type=\"subtree\"><state xmlns=\"urn:switch:yang:switch-state\">" + content +
               "</state></filter></get>";
    };
    EXPECT_TRUE(
        test.shell.RunAll("show sflow; show sflow agent; show sflow collectors; show sflow interfaces | json;"
                          "show sflow problems; show system processes; show system faults; show version"));
    EXPECT_THAT(test.peer.Requests(),
                ElementsAre(filtered(std::string(cli::kSummaryOfSflow)),
                            filtered(std::string(cli::kSummaryOfProcesses)),
                            filtered("<oam><sflow><manager/><agent-address/><sub-agent/></sflow></oam>"),
                            filtered("<oam><sflow><collector/></sflow></oam>"),
                            filtered("<oam><sflow><interface/></sflow></oam>"),
                            filtered("<oam><sflow><manager><session/></manager><problem/></sflow></oam>"),
                            filtered("<system><role/><role-since/><role-by/><process/></system>"),
                            filtered("<system><fault/></system>"),
                            filtered("<system><version/><process><name/><version/></process></system>")));
}

TEST(ShowState, IsOneDocumentAsJson)
{
    const std::string xml =
        "<state "
        "xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><agent-address>10.0.0.5</agent-address></sflow></"
        "oam></state>";
    Fixture test([&](const std::string&) { return Data(xml); });
    EXPECT_TRUE(test.shell.Run("show sflow | json"));
    EXPECT_EQ(
        nlohmann::json::parse(test.out.str()),
        nlohmann::json::parse(R"({"switch-state:state":{"oam":{"sflow":{"agent-address":"10.0.0.5"}}}})"));
}

TEST(ShowState, ThatIsUnknownHereIsRefused)
{
    Fixture test([](const std::string&) {
        return Data("<state xmlns=\"urn:switch:yang:switch-state\"><weather/></state>");
    });
    EXPECT_FALSE(test.shell.Run("show sflow"));
    EXPECT_THAT(test.err.str(), HasSubstr("the reply does not fit the YANG modules here"));
    EXPECT_EQ(test.out.str(), "");
}

TEST(ShowState, ThatIsMissingAltogetherIsAnErrorWithTheReason)
{
    const std::string warning = RpcError("warning", "sflow-mgr is not connected; start sflow-mgr",
                                         "/switch-state:state/switch-state:oam/switch-state:sflow");
    Fixture test([&](const std::string&) { return warning + Data(""); });
    for (const char* command : {"show sflow", "show sflow interfaces", "show sflow problems | json"}) {
        test.err.str("");
        EXPECT_FALSE(test.shell.Run(command));
        EXPECT_EQ(test.err.str(),
                  std::string("error: ") + command + ": sflow-mgr is not connected; start sflow-mgr\n");
        EXPECT_EQ(test.out.str(), "");
    }
}

TEST(ShowState, ThatIsMissingInPartIsShownWithAWarning)
{
    Fixture test([&](const std::string&) {
        return RpcError("warning", "no configuration",
                        "/switch-state:state/switch-state:oam/switch-state:sflow") +
               Data(
                   "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><agent-address>10.0.0.5"
                   "</agent-address></sflow></oam></state>");
    });
    EXPECT_TRUE(test.shell.Run("show sflow agent"));
    EXPECT_THAT(test.out.str(), HasSubstr("10.0.0.5"));
    EXPECT_THAT(test.err.str(), HasSubstr("warning: "));
    EXPECT_THAT(test.err.str(), HasSubstr("no configuration\n"));
}

TEST(Compare, PrintsWhatACommitWouldChange)
{
    Fixture test([](const std::string& operation) {
        const bool running = operation.find("<running/>") != std::string::npos;
        return Data(SflowXml(running ? "<agent><ipv4>10.0.0.1</ipv4></agent>"
                                     : "<agent><ipv4>10.0.0.2</ipv4></agent>"));
    });
    EXPECT_TRUE(test.shell.Run("compare"));
    EXPECT_EQ(test.out.str(), "- oam sflow agent ipv4 10.0.0.1\n+ oam sflow agent ipv4 10.0.0.2\n");
}

/// A file of a name of its own, removed at the end.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content)
    {
        char name[] = "/tmp/cli-load-XXXXXX";
        const int descriptor = ::mkstemp(name);
        if (descriptor >= 0) ::close(descriptor);
        path = name;
        std::ofstream(path) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string path;
};

TEST(Load, SendsTheFileInOneEdit)
{
    const TemporaryFile file(
        R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{"agent":{"ipv4":"10.0.0.1"}}}}})");
    Fixture test(Ok);
    EXPECT_TRUE(test.shell.RunAll("load merge " + file.path + "; load replace " + file.path))
        << test.err.str();
    const std::string content =
        "<oam "
        "xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow><agent><ipv4>10.0.0.1</ipv4></agent></sflow></"
        "oam></config>";
    EXPECT_THAT(
        test.peer.Requests(),
        ElementsAre(Edit("<config xmlns=\"urn:switch:yang:switch-config\">" + content),
                    Edit("<config xmlns=\"urn:switch:yang:switch-config\" "
                         "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"replace\">" +
                         content),
                    HasSubstr("<candidates")));
}

TEST(Load, OfAMalformedFileSendsNothing)
{
    const TemporaryFile file("{\n  \"switch-config:config\": {,}\n}\n");
    Fixture test(Ok);
    EXPECT_FALSE(test.shell.Run("load replace " + file.path));
    EXPECT_THAT(test.err.str(),
                StartsWith("error: load replace " + file.path + ": " + file.path + ": line 2, column 28: "));
    EXPECT_THAT(test.peer.Requests(), IsEmpty());
}

TEST(Shell, StateOfSomeEntriesIsAskedForByName)
{
    const std::string xml =
        "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><interface><name>eth1</name>"
        "<ifindex>7</ifindex></interface></sflow></oam></state>";
    Fixture test([&](const std::string&) { return Data(xml); });
    EXPECT_TRUE(test.shell.Run("show sflow interface eth1 detail"));
    EXPECT_THAT(test.peer.Requests().back(),
                HasSubstr("<oam><sflow><interface><name>eth1</name></interface>"
                          "<problem><subject>interface</subject><name>eth1</name></problem></sflow></oam>"));
    EXPECT_THAT(test.out.str(), StartsWith("eth1\n  Kernel "));
    EXPECT_FALSE(test.shell.Run("show sflow interface e2"));
    EXPECT_THAT(test.err.str(),
                HasSubstr("error: show sflow interface e2: there is no interface e2 in the state; show sflow "
                          "interface lists those that there are\n"));
}

TEST(Shell, ProblemsAnswerWithTheStatus)
{
    std::string content = "<manager><session>loaded</session></manager>";
    std::string errors;
    Fixture test([&](const std::string& operation) {
        if (operation.find("<process/>") != std::string::npos)
            return Data("<state xmlns=\"urn:switch:yang:switch-state\"><system/></state>");
        return errors + Data(content.empty() ? ""
                                             : "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow>" +
                                                   content + "</sflow></oam></state>");
    });
    EXPECT_TRUE(test.shell.Run("show sflow problems"));
    EXPECT_EQ(0, test.shell.Status());
    content +=
        "<problem><subject>agent</subject><name>agent</name><reason>no-agent-address</reason>"
        "<severity>broken</severity></problem>";
    EXPECT_TRUE(test.shell.Run("show sflow problems | json"));
    EXPECT_EQ(1, test.shell.Status());
    content.clear();
    errors = RpcError("warning", "sflow-mgr is not connected; start sflow-mgr", "/x");
    EXPECT_TRUE(test.shell.Run("show sflow problems"));
    EXPECT_EQ(2, test.shell.Status());
    EXPECT_THAT(test.out.str(), HasSubstr("sflow-mgr is not connected; start sflow-mgr\n\nWhether"));
    EXPECT_FALSE(test.shell.Run("show sflow problems | json"));
    EXPECT_EQ(2, test.shell.Status());
}

}  // namespace
