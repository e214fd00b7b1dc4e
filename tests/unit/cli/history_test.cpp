// SPDX-License-Identifier: Apache-2.0
// The commands about the history: what they ask the database, and what they print.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/peer.h"
#include "cli/shell/shell.h"
#include "cli/yang.h"

namespace {

using cli_test::Data;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kNs = "xmlns=\"urn:switch:yang:switch-history\"";

std::string History(const std::string& content)
{
    return "<state xmlns=\"urn:switch:yang:switch-state\"><system><history " + std::string(kNs) + ">" +
           content + "</history></system></state>";
}

std::string Commit(int id, const std::string& more = {})
{
    return "<commit><id>" + std::to_string(id) + "</id><time>2026-11-23T05:00:00.5Z</time><user>ann</user>" +
           more + "</commit>";
}

std::string Rate(int rate)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\"><oam xmlns=\"urn:switch:yang:switch-oam-sflow\">"
           "<sflow><interface><name>eth1</name><sampling-rate>" +
           std::to_string(rate) + "</sampling-rate></interface></sflow></oam></config>";
}

std::string Comparison(int before, int after)
{
    return "<before " + std::string(kNs) + ">" + Rate(before) + "</before><after " + kNs + ">" + Rate(after) +
           "</after>";
}

struct HistoryFixture {
    explicit HistoryFixture(cli_test::Answer answer) : peer(std::move(answer)) {}
    std::ostringstream out;
    std::ostringstream err;
    cli_test::Peer peer;
    cli::Shell shell{
        cli::Commands(), {[this] { return peer.Connect(); }, [] { return cli_test::Yang(); }}, out, err};
};

std::string OperationXml(const std::string& name, const std::string& content)
{
    return "<" + name + " " + kNs + ">" + content + "</" + name + ">";
}

TEST(HistoryCommands, SayWhichMomentIsMeant)
{
    HistoryFixture test(&cli_test::Ok);
    EXPECT_TRUE(
        test.shell.RunAll("rollback 3; rollback commit 3; rollback good; compare rollback 3;"
                          "compare rollback commit 3; compare rollback good; request checkpoint good;"
                          "request checkpoint good replace; request delete-checkpoint good; rollback <x>"));
    EXPECT_THAT(
        test.peer.Requests(),
        ElementsAre(OperationXml("rollback", "<back>3</back>"),
                    OperationXml("rollback", "<commit>3</commit>"),
                    OperationXml("rollback", "<checkpoint>good</checkpoint>"),
                    OperationXml("compare", "<back>3</back>"), OperationXml("compare", "<commit>3</commit>"),
                    OperationXml("compare", "<checkpoint>good</checkpoint>"),
                    OperationXml("checkpoint", "<name>good</name>"),
                    OperationXml("checkpoint", "<name>good</name><replace/>"),
                    OperationXml("delete-checkpoint", "<name>good</name>"),
                    OperationXml("rollback", "<checkpoint>&lt;x&gt;</checkpoint>")));
}

TEST(HistoryCommands, ListTheNewestFirst)
{
    const std::string commits = Commit(1, "<comment>one\ntwo</comment>") + Commit(10) +
                                Commit(2, "<checkpoint>a</checkpoint><checkpoint>b</checkpoint>");
    HistoryFixture test([&](const std::string&) { return Data(History(commits)); });
    EXPECT_TRUE(test.shell.Run("show history"));
    EXPECT_EQ(test.out.str(),
              "Commit  When                  User  Source  Changes  Checkpoints  Comment\n"
              "10      2026-11-23T05:00:00Z  ann   -       -        -            -\n"
              "2       2026-11-23T05:00:00Z  ann   -       -        a b          -\n"
              "1       2026-11-23T05:00:00Z  ann   -       -        -            one\\ntwo\n");
    test.out.str("");
    EXPECT_TRUE(test.shell.Run("show history last 2"));
    EXPECT_THAT(test.out.str(), Not(HasSubstr("one")));
    test.out.str("");
    EXPECT_TRUE(test.shell.Run("show history last 1 | json"));
    const auto json = nlohmann::json::parse(test.out.str());
    const auto list = json["switch-state:state"]["system"]["switch-history:history"]["commit"];
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["id"], "10");
}

TEST(HistoryCommands, FitTheLineWhereACommentIsLong)
{
    const std::string comment = "Each port of the second rack gets the rate that its speed asks for, again";
    HistoryFixture test([&](const std::string&) {
        return Data(History(Commit(1, "<comment>" + comment + "</comment><changes>1200</changes>")));
    });
    EXPECT_TRUE(test.shell.Run("show history"));
    EXPECT_EQ(test.out.str(),
              "Commit  When                  User  Source  Changes  Comment\n"
              "1       2026-11-23T05:00:00Z  ann   -       1200     Each port of the second...\n");
    test.out.str("");
    EXPECT_TRUE(test.shell.Run("show history 1"));
    EXPECT_THAT(test.out.str(), HasSubstr(comment));
}

TEST(HistoryCommands, ShowACommitWithItsChange)
{
    HistoryFixture test([](const std::string& operation) {
        return operation.find("commit-changes") != std::string::npos ? Comparison(1, 2)
                                                                     : Data(History(Commit(7)));
    });
    EXPECT_TRUE(test.shell.Run("show history 7"));
    EXPECT_THAT(test.out.str(), HasSubstr("Commit       7\n"));
    EXPECT_THAT(test.out.str(), HasSubstr("\n\n- oam sflow interface eth1 sampling-rate 1\n"
                                          "+ oam sflow interface eth1 sampling-rate 2\n"));
}

}  // namespace
