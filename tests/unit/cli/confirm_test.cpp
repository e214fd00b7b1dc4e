// SPDX-License-Identifier: Apache-2.0
// The shell's commands on confirmed commits: what they send, and what they say.

#include "cli/commands/confirm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>

#include "base/user.h"
#include "cli/peer.h"
#include "cli/shell/shell.h"
#include "cli/yang.h"

namespace {

using cli_test::Data;
using cli_test::Ok;
using cli_test::Peer;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kGetPending =
    "<get><filter type=\"subtree\"><state xmlns=\"urn:switch:yang:switch-state\"><system><history "
    "xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation/></history></system></state></filter></"
    "get>";

std::string OwnId() { return "swcli-" + base::UserName(::geteuid()); }

std::string Confirmed(const std::string& parameters)
{
    return "<commit><confirmed/>" + parameters + "</commit>";
}

std::string Confirm(const std::string& parameters)
{
    return "<confirm-commit xmlns=\"urn:switch:yang:switch-history\">" + parameters + "</confirm-commit>";
}

/// A shell whose database says of what waits what it is told.
struct Confirming {
    /// What <data> has; empty: nothing waits.
    std::string pending;

    static std::string Pending(const std::string& leaves)
    {
        return "<state xmlns=\"urn:switch:yang:switch-state\"><system><history "
               "xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation>" +
               leaves + "</pending-confirmation></history></system></state>";
    }
    static std::string Persistent()
    {
        return Pending("<return-to>1</return-to><persistent>true</persistent>");
    }
    static std::string OfSession()
    {
        return Pending(
            "<commit>2</commit><return-to>1</return-to><user>ann</user><session>7</session>"
            "<persistent>false</persistent><time-left>60</time-left>");
    }

    std::ostringstream out;
    std::ostringstream err;
    Peer peer{[this](const std::string& operation) {
        return operation.starts_with("<get>") ? std::optional(Data(pending)) : Ok(operation);
    }};
    cli::Shell shell{
        cli::Commands(), {[this] { return peer.Connect(); }, [] { return cli_test::Yang(); }}, out, err};

    void Converse(const std::string& lines)
    {
        std::istringstream input("configure\n" + lines);
        cli_test::Converse(shell, input, out);
    }
};

TEST(ConfirmedCommands, InAScriptUseAnIdByThemselves)
{
    Confirming fixture;
    EXPECT_TRUE(fixture.shell.RunAll("commit confirmed 60 comment why; commit confirmed"));
    fixture.pending = Confirming::Persistent();
    EXPECT_TRUE(fixture.shell.RunAll("commit confirmed; confirm; cancel"));
    EXPECT_THAT(
        fixture.peer.Requests(),
        ElementsAre(kGetPending,
                    Confirmed("<confirm-timeout>60</confirm-timeout><persist>" + OwnId() +
                              "</persist><comment xmlns=\"urn:switch:yang:switch-system\">why</comment>"),
                    kGetPending,                                                                      //
                    kGetPending, Confirmed("<persist>" + OwnId() + "</persist>"), kGetPending,        //
                    kGetPending, Confirmed("<persist-id>" + OwnId() + "</persist-id>"), kGetPending,  //
                    kGetPending, Confirm("<persist-id>" + OwnId() + "</persist-id>"),                 //
                    kGetPending, "<cancel-commit><persist-id>" + OwnId() + "</persist-id></cancel-commit>"));
    EXPECT_EQ(fixture.out.str(), "");
    EXPECT_THAT(fixture.err.str(), EndsWith("confirmed\nnothing to undo\n"));
}

TEST(ConfirmedCommands, UseTheIdThatTheyAreGiven)
{
    Confirming fixture;
    EXPECT_TRUE(fixture.shell.RunAll("commit confirmed persist a; confirm a; cancel a"));
    fixture.pending = Confirming::Persistent();
    EXPECT_TRUE(fixture.shell.RunAll("commit confirmed 5 persist a"));
    EXPECT_THAT(fixture.peer.Requests(),
                ElementsAre(kGetPending, Confirmed("<persist>a</persist>"), kGetPending,
                            Confirm("<persist-id>a</persist-id>"),
                            "<cancel-commit><persist-id>a</persist-id></cancel-commit>", kGetPending,
                            Confirmed("<confirm-timeout>5</confirm-timeout><persist-id>a</persist-id>"),
                            kGetPending));
}

TEST(ConfirmedCommands, InAConversationBelongToTheSession)
{
    Confirming fixture;
    fixture.pending = Confirming::OfSession();
    fixture.Converse("commit confirmed 60\nconfirm\n");
    EXPECT_THAT(fixture.peer.Requests(),
                ElementsAre(kGetPending, Confirmed("<confirm-timeout>60</confirm-timeout>"), kGetPending,
                            kGetPending, Confirm("")));
    EXPECT_THAT(fixture.err.str(),
                HasSubstr("Commit 2 by ann waits for its confirmation: rolled back to commit 1 "
                          "in 60 s, or when session 7 ends.\n"));
}

TEST(ConfirmedCommands, AShellThatEndsWithoutAConfirmationSaysSo)
{
    for (const char* lines : {"commit confirmed 60\n", "commit confirmed 60\nexit\nexit\n"}) {
        Confirming fixture;
        fixture.pending = Confirming::OfSession();
        fixture.Converse(lines);
        EXPECT_THAT(fixture.err.str(),
                    HasSubstr("warning: what still waits for its confirmation is rolled back"));
        EXPECT_THAT(fixture.err.str(), HasSubstr("persist ID"));
    }
    for (const char* end : {"confirm", "cancel", "commit", "commit confirmed persist a"}) {
        Confirming fixture;
        fixture.pending = Confirming::OfSession();
        fixture.Converse(std::string("commit confirmed 60\n") + end + "\nexit\nexit\n");
        EXPECT_THAT(fixture.err.str(), Not(HasSubstr("warning"))) << end;
    }
}

TEST(ConfirmedCommands, RefuseATimeThatIsNone)
{
    for (const char* time : {"0", "4294967296", "99999999999999999999"}) {
        Confirming fixture;
        EXPECT_FALSE(fixture.shell.Run(std::string("commit confirmed ") + time));
        EXPECT_THAT(fixture.err.str(), HasSubstr("SECONDS is a number from 1 to 4294967295")) << time;
        EXPECT_THAT(fixture.peer.Requests(), IsEmpty());
    }
}

TEST(ConfirmedCommands, ShowWhatCantBeRolledBack)
{
    Confirming fixture;
    fixture.pending = Confirming::Pending(
        "<commit>2</commit><return-to>1</return-to><user>ann</user><persistent>false</persistent>"
        "<time-left>0</time-left><problem>the disk is full</problem>");
    EXPECT_TRUE(fixture.shell.Run("show history"));
    EXPECT_THAT(fixture.out.str(),
                HasSubstr("Commit 2 by ann waits for its confirmation: it could not be rolled back: the\n"
                          "disk is full; a commit or confirm keeps"));
    EXPECT_THAT(fixture.out.str(), Not(HasSubstr(" in 0 s")));
}

}  // namespace
