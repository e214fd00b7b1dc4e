// SPDX-License-Identifier: Apache-2.0
// What the shell says that it has done, and what it says when it leaves edits behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/commands/committed.h"
#include "cli/peer.h"
#include "cli/screens/commit_report.h"
#include "cli/screens/counted.h"
#include "cli/shell/shell.h"
#include "cli/yang.h"

namespace {

using cli_test::Data;
using cli_test::Ok;
using cli_test::RpcError;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kSet = "set oam sflow interface eth1 sampling-rate 512";
const std::string kLock = "<lock><target><candidate/></target></lock>";
const std::string kUnlock = "<unlock><target><candidate/></target></unlock>";

std::string State(const std::string& content)
{
    return "<state xmlns=\"urn:switch:yang:switch-state\">" + content + "</state>";
}

std::string Editor(unsigned session, unsigned edits)
{
    return Data(
        State("<system><candidates xmlns=\"urn:switch:yang:switch-private-candidate\"><editor>"
              "<session-id>" +
              std::to_string(session) + "</session-id><user>ann</user><edits>" + std::to_string(edits) +
              "</edits></editor></candidates></system>"));
}

/// A reply with notes on its envelope.
netconf::Reply Noted(const std::string& notes)
{
    return netconf::ParseReply(
               "<rpc-reply xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
               "xmlns:h=\"urn:switch:yang:switch-history\" " +
               notes + "><ok/></rpc-reply>")
        .value();
}

struct ReportFixture {
    explicit ReportFixture(cli_test::Answer answer) : peer(std::move(answer)) {}
    std::ostringstream out;
    std::ostringstream err;
    cli_test::Peer peer;
    cli::Shell shell{
        cli::Commands(), {[this] { return peer.Connect(); }, [] { return cli_test::Yang(); }}, out, err};
};

/// What a handler does after a commit of two changes.
struct WarningFixture {
    explicit WarningFixture(cli_test::Answer answer) : peer(std::move(answer)) {}
    std::ostringstream out;
    std::ostringstream err;
    cli_test::Peer peer;

    void Commit()
    {
        const auto session = peer.Connect();
        const cli::Arguments arguments;
        cli::ShellState state;
        const std::function<std::unique_ptr<netconf::Client>()> connect;
        cli::Call call{arguments, cli::Format::kText, session.get(), cli_test::Yang(), out, err,
                       state,     cli::Shell::kWidth, connect};
        cli::Committed(call, Noted("h:commit=\"7\" h:changes=\"2\""));
    }
};

/// The shell's session is number 1 with the peer.
std::optional<std::string> KeepsTwoEdits(const std::string& operation)
{
    if (operation.find("<validate>") != std::string::npos) return RpcError("error", "no");
    return operation.find("<candidates") != std::string::npos ? Editor(1, 2) : Ok(operation);
}

TEST(Counted, GroupsThousands)
{
    EXPECT_EQ(cli::Counted(0, "change"), "0 changes");
    EXPECT_EQ(cli::Counted(1, "change"), "1 change");
    EXPECT_EQ(cli::Counted(999, "edit"), "999 edits");
    EXPECT_EQ(cli::Counted(1500, "edit"), "1,500 edits");
    EXPECT_EQ(cli::Counted(1234567, "edit"), "1,234,567 edits");
}

TEST(CommitReport, SaysWhatWasCommittedAndWhoAcknowledged)
{
    EXPECT_EQ(cli::CommitReport(Noted("")), "");
    EXPECT_EQ(cli::CommitReport(Noted("h:commit=\"3\"")), "commit 3");
    EXPECT_EQ(cli::CommitReport(Noted("h:commit=\"38\" h:changes=\"1\" h:acknowledged=\"sflow-app=812\"")),
              "commit 38: 1 change, acknowledged by sflow-app in 0.8 ms");
    EXPECT_EQ(cli::CommitReport(Noted(
                  "h:commit=\"39\" h:changes=\"1500\" h:acknowledged=\"sflow-app=120400 log=2500000\"")),
              "commit 39: 1,500 changes, acknowledged by sflow-app in 120 ms, log in 2.5 s");
    // What another server may send.
    EXPECT_EQ(cli::CommitReport(Noted("h:commit=\"4\" h:changes=\"x\" h:acknowledged=\"= a=b  c 9 d=7\"")),
              "commit 4, acknowledged by d in 0.0 ms");
}

TEST(CommitReport, IsAnObjectForPrograms)
{
    auto reply = Noted("h:commit=\"38\" h:changes=\"2\" h:acknowledged=\"sflow-app=812\"");
    reply.errors.push_back({});
    reply.errors.back().severity = "warning";
    reply.errors.back().message = "no \"subscriber\"";
    const auto json = nlohmann::json::parse(cli::CommitReportJson(reply));
    EXPECT_EQ(json["commit"], 38);
    EXPECT_EQ(json["changes"], 2);
    EXPECT_EQ(json["acknowledged"][0]["process"], "sflow-app");
    EXPECT_DOUBLE_EQ(json["acknowledged"][0]["milliseconds"], 0.812);
    EXPECT_EQ(json["warnings"][0], "no \"subscriber\"");
    EXPECT_TRUE(nlohmann::json::parse(cli::CommitReportJson(Noted("")))["commit"].is_null());
}

TEST(CommitReport, NamesWhoseEditsWereTakenToo)
{
    EXPECT_EQ(cli::OthersText(Noted("")), "");
    EXPECT_EQ(cli::OthersText(Noted("h:also-edited-by=\"ann=1 bob=1 ann=2\"")),
              "it has taken 3 edits of ann, 1 edit of bob in other sessions, too");
}

/// The database after a commit of two interfaces; `state` answers what the shell asks of sFlow then.
cli_test::Answer Commits(const std::string& state)
{
    return [state](const std::string& operation) -> std::optional<std::string> {
        if (operation.find("commit-changes") != std::string::npos)
            return "<before xmlns=\"urn:switch:yang:switch-history\"/>"
                   "<after xmlns=\"urn:switch:yang:switch-history\">"
                   "<config xmlns=\"urn:switch:yang:switch-config\"><oam "
                   "xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow><interface><name>eth1</name></"
                   "interface>"
                   "<interface><name>eth2</name></interface></sflow></oam></config></after>";
        return operation.find("<oam>") != std::string::npos ? state : Ok(operation);
    };
}

std::string Problem(const std::string& name, const std::string& reason)
{
    return "<problem><subject>interface</subject><name>" + name + "</name><reason>" + reason +
           "</reason></problem>";
}

TEST(CommitWarnings, NameTheInterfacesThatTheKernelHasNot)
{
    WarningFixture test(Commits(Data(State("<oam><sflow>" + Problem("eth1", "interface-missing") +
                                           Problem("eth2", "no-traffic") + "</sflow></oam>"))));
    test.Commit();
    EXPECT_EQ(test.err.str(), "commit 7: 2 changes\nwarning: not in the kernel, so not sampled yet: eth1\n");
    EXPECT_EQ(test.out.str(), "");
}

TEST(CommitWarnings, TellThatTheManagerIsAway)
{
    WarningFixture test(
        Commits(RpcError("warning", "sflow-mgr is not connected; start sflow-mgr") + "<data/>"));
    test.Commit();
    EXPECT_THAT(test.err.str(), HasSubstr("warning: sflow-mgr is not connected; start sflow-mgr\n"));
}

TEST(CommitWarnings, DoNotFailACommitWhoseChangeCantBeRead)
{
    WarningFixture test([](const std::string& operation) {
        return operation.find("commit-changes") != std::string::npos ? RpcError("error", "it is forgotten")
                                                                     : Ok(operation);
    });
    test.Commit();
    EXPECT_EQ(test.err.str(), "commit 7: 2 changes\nwarning: it is forgotten\n");
}

TEST(LeftEdits, AFailedBatchSaysWhatItLeaves)
{
    ReportFixture test(KeepsTwoEdits);
    EXPECT_FALSE(test.shell.RunAll(std::string(kSet) + "; " + kSet + "; validate; commit"));
    EXPECT_THAT(test.err.str(), EndsWith("the candidate keeps 2 edits; discard takes them back\n"));
}

TEST(LeftEdits, ABatchThatCommitsNothingSaysSo)
{
    ReportFixture test(KeepsTwoEdits);
    std::istringstream lines(kSet);
    EXPECT_TRUE(test.shell.RunLines(lines, "f.cli"));
    EXPECT_EQ(test.err.str(), "the candidate keeps 2 edits; commit makes them effective\n");
}

TEST(LeftEdits, ABatchThatCommitsOrDiscardsLeavesNone)
{
    for (const char* end : {"commit", "discard"}) {
        ReportFixture test(KeepsTwoEdits);
        EXPECT_TRUE(test.shell.RunAll(std::string(kSet) + "; " + end));
        EXPECT_THAT(test.err.str(), Not(HasSubstr("keeps"))) << end;
    }
    // Of another session.
    ReportFixture other([](const std::string& operation) {
        return operation.find("<candidates") != std::string::npos ? Editor(7, 2) : Ok(operation);
    });
    EXPECT_TRUE(other.shell.RunAll(kSet));
    EXPECT_EQ(other.err.str(), "");
}

TEST(LeftEdits, ExitAsksAPerson)
{
    for (const char* answer : {"y", "yes"}) {
        ReportFixture leaves(KeepsTwoEdits);
        std::istringstream lines("configure\n" + std::string(kSet) + "\nexit\nexit\n" + answer + "\n");
        cli_test::Converse(leaves.shell, lines, leaves.out);
        EXPECT_THAT(leaves.out.str(),
                    HasSubstr("The candidate keeps 2 edits that are not committed. Leave? [y/N] "));
        EXPECT_TRUE(leaves.shell.Left());
    }
    ReportFixture stays(KeepsTwoEdits);
    std::istringstream lines("configure\n" + std::string(kSet) +
                             "\nexit\nexit\nn\nconfigure\ncommit\nexit\nexit\n");
    cli_test::Converse(stays.shell, lines, stays.out);
    EXPECT_TRUE(stays.shell.Left());
    EXPECT_THAT(stays.peer.Requests().back(), HasSubstr("<commit>"));
    // The end of the input can't be asked.
    ReportFixture ends(KeepsTwoEdits);
    std::istringstream end("configure\n" + std::string(kSet));
    cli_test::Converse(ends.shell, end, ends.out);
    EXPECT_THAT(ends.err.str(), HasSubstr("keeps 2 edits; commit makes them effective"));
}

TEST(LeftEdits, ALoadSaysHowMuchItHas)
{
    const auto path = std::filesystem::temp_directory_path() / ("report_test." + std::to_string(::getpid()));
    std::ofstream(path) << R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{"interface":[
        {"name":"eth1","sampling-rate":100},{"name":"eth2"}]}}}})";
    ReportFixture test(Ok);
    EXPECT_TRUE(test.shell.Run("load merge " + path.string()));
    EXPECT_EQ(test.err.str(), "3 values loaded into the candidate\n");
    std::filesystem::remove(path);
}

TEST(Exclusive, LocksFirstAndTakesBackWhatIsNotCommitted)
{
    ReportFixture test(Ok);
    test.shell.LockCandidate();
    EXPECT_FALSE(test.shell.RunAll(std::string(kSet) + "; nonsense"));
    EXPECT_THAT(test.peer.Requests(),
                ElementsAre(kLock, HasSubstr("<edit-config>"), "<discard-changes/>", kUnlock));
}

TEST(Exclusive, ALockThatIsRefusedEditsNothing)
{
    ReportFixture test([](const std::string& operation) {
        return operation == kLock ? RpcError("error", "session 4 of ann has locked it") : Ok(operation);
    });
    test.shell.LockCandidate();
    EXPECT_FALSE(test.shell.RunAll(kSet));
    EXPECT_THAT(test.peer.Requests(), ElementsAre(kLock));
    EXPECT_THAT(test.err.str(), HasSubstr("session 4 of ann has locked it"));
}

TEST(Exclusive, IsAModeOfAConversationToo)
{
    ReportFixture test(Ok);
    std::istringstream lines("configure exclusive\nexit\nconfigure exclusive\nconfigure private\n");
    cli_test::Converse(test.shell, lines, test.out);
    EXPECT_EQ(test.out.str(), "swcli> swcli (exclusive)> swcli> swcli (exclusive)> swcli (private)> \n");
    EXPECT_THAT(test.peer.Requests(),
                ElementsAre(kLock, "<discard-changes/>", kUnlock, kLock, "<discard-changes/>", kUnlock,
                            HasSubstr("open-private"), HasSubstr("close-private")));
}

TEST(LostSession, SaysWhetherTheCandidateStillHasTheEdits)
{
    for (const bool kept : {false, true}) {
        ReportFixture test([kept](const std::string& operation) -> std::optional<std::string> {
            if (operation.find("<validate>") != std::string::npos) return std::nullopt;  // the database goes
            if (operation.find("<candidates") == std::string::npos) return "<ok/>";
            return kept ? Editor(1, 2) : Data("");
        });
        std::istringstream lines("configure\n" + std::string(kSet) + "\nvalidate\ndiscard\ndiscard\n");
        cli_test::Converse(test.shell, lines, test.out);
        EXPECT_THAT(
            test.err.str(),
            HasSubstr(kept ? "warning: connected again; the candidate is still edited: show system "
                             "candidates lists who does\n"
                           : "warning: connected again; the candidate has no edits any more, 1 edit of "
                             "this shell went with the session before\n"));
        EXPECT_EQ(test.err.str().find("connected again"), test.err.str().rfind("connected again"));
    }
}

}  // namespace
