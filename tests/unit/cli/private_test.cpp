// SPDX-License-Identifier: Apache-2.0
// The shell with a private candidate: what it asks the database, its prompt, and how it leaves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/peer.h"
#include "cli/shell/shell.h"
#include "cli/yang.h"

namespace {

using cli_test::Ok;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string kPrivate = " xmlns=\"urn:switch:yang:switch-private-candidate\"";
const std::string kOpen = "<open-private-candidate" + kPrivate + "/>";
const std::string kClose = "<close-private-candidate" + kPrivate + "/>";
constexpr const char* kDiscard = "<discard-changes/>";

struct PrivateFixture {
    explicit PrivateFixture(cli_test::Answer answer) : peer(std::move(answer)) {}
    std::ostringstream out;
    std::ostringstream err;
    cli_test::Peer peer;
    cli::Shell shell{
        cli::Commands(), {[this] { return peer.Connect(); }, [] { return cli_test::Yang(); }}, out, err};
};

/// The database drops edits when a private candidate is closed.
std::optional<std::string> DropsEdits(const std::string& operation)
{
    if (operation != kClose) return "<ok/>";
    return cli_test::RpcError("warning", "2 edits are dropped");
}

TEST(PrivateShell, OpensUpdatesAndCloses)
{
    PrivateFixture test(Ok);
    EXPECT_TRUE(
        test.shell.RunAll("configure private; discard; update; update running; configure shared; discard"));
    EXPECT_THAT(
        test.peer.Requests(),
        ElementsAre(kOpen, kDiscard, "<update-candidate" + kPrivate + "></update-candidate>",
                    "<update-candidate" + kPrivate + "><on-conflict>running</on-conflict></update-candidate>",
                    kClose, kDiscard));
}

TEST(PrivateShell, ExitLeavesThePrivateCandidateFirst)
{
    PrivateFixture test(DropsEdits);
    EXPECT_TRUE(test.shell.RunAll("configure private; exit; discard; exit; discard"));
    EXPECT_THAT(test.peer.Requests(), ElementsAre(kOpen, kClose, kDiscard));
    EXPECT_EQ(test.err.str(), "warning: 2 edits are dropped\nall edits taken back\n");
    EXPECT_TRUE(test.shell.Left());
}

TEST(PrivateShell, TheEndOfTheInputSaysWhatIsDropped)
{
    for (const bool fails : {false, true}) {
        PrivateFixture test(DropsEdits);
        EXPECT_EQ(test.shell.RunAll(fails ? "configure private; nonsense; discard" : "configure private"),
                  !fails);
        EXPECT_THAT(test.peer.Requests(), ElementsAre(kOpen, kClose));
        EXPECT_THAT(test.err.str(), HasSubstr("2 edits are dropped"));
    }
    PrivateFixture lines(DropsEdits);
    std::istringstream input("configure private\ndiscard\n");
    EXPECT_TRUE(lines.shell.RunLines(input, "f.cli"));
    EXPECT_THAT(lines.peer.Requests(), ElementsAre(kOpen, kDiscard, kClose));
    EXPECT_THAT(lines.err.str(), HasSubstr("2 edits are dropped"));
}

TEST(PrivateShell, ThePromptTellsWhichCandidateIsUsed)
{
    PrivateFixture test(DropsEdits);
    std::istringstream input("configure private\nexit\nconfigure private\n");
    cli_test::Converse(test.shell, input, test.out);
    EXPECT_EQ(test.out.str(), "swcli> swcli (private)> swcli> swcli (private)> \n");
    EXPECT_THAT(test.peer.Requests(), ElementsAre(kOpen, kClose, kOpen, kClose));
}

TEST(PrivateShell, ARefusedOpeningLeavesTheSharedOne)
{
    PrivateFixture test([](const std::string& operation) -> std::optional<std::string> {
        return operation == kOpen ? cli_test::RpcError("error", "unlock it first") : "<ok/>";
    });
    std::istringstream input("configure private\nexit\n");
    cli_test::Converse(test.shell, input, test.out);
    EXPECT_THAT(test.peer.Requests(), ElementsAre(kOpen));
    EXPECT_TRUE(test.shell.Left());
    EXPECT_EQ(test.out.str(), "swcli> swcli> ");
}

TEST(PrivateShell, ALostSessionIsSaidToHaveTakenThePrivateCandidateAlong)
{
    PrivateFixture test([](const std::string& operation) -> std::optional<std::string> {
        if (operation == kDiscard) return std::nullopt;
        return "<ok/>";
    });
    std::istringstream input("configure private\ndiscard\nvalidate\n");
    cli_test::Converse(test.shell, input, test.out);
    EXPECT_THAT(test.err.str(), HasSubstr("the private candidate has ended with the session"));
    EXPECT_EQ(test.out.str(), "swcli> swcli (private)> swcli> swcli> \n");
    EXPECT_THAT(test.peer.Requests(),
                testing::Contains("<validate><source><candidate/></source></validate>"));
}

TEST(PrivateShell, ShowsWhoEdits)
{
    const std::string state =
        "<state xmlns=\"urn:switch:yang:switch-state\"><system><candidates" + kPrivate +
        "><editor><session-id>4</session-id><user>ann</user><edits>3</edits>"
        "<last-edit>2026-11-23T05:00:00.5Z</last-edit></editor><private><session-id>12</session-id>"
        "<user>bob</user><opened>2026-11-23T04:00:00Z</opened><base-commit>77</base-commit><edits>0</edits>"
        "</private></candidates></system></state>";
    PrivateFixture test([&](const std::string&) { return cli_test::Data(state); });
    EXPECT_TRUE(test.shell.RunAll("show system candidates"));
    EXPECT_EQ(test.out.str(),
              "Edits of the shared candidate, which a commit of it takes all:\n"
              "  Session  User  Edits  Last edit\n"
              "  4        ann   3      2026-11-23T05:00:00Z\n"
              "\n"
              "Private candidates:\n"
              "  Session  User  Opened                Began with commit  Edits  Last edit\n"
              "  12       bob   2026-11-23T04:00:00Z  77                 0      -\n");
    PrivateFixture none([](const std::string&) { return cli_test::Data(""); });
    EXPECT_TRUE(none.shell.RunAll("show system candidates"));
    EXPECT_EQ(none.out.str(), "The shared candidate has no edits.\n");
    EXPECT_THAT(none.out.str(), Not(HasSubstr("Private")));
}

}  // namespace
