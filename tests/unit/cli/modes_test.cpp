// SPDX-License-Identifier: Apache-2.0
// The modes of a conversation: which commands they take, where paths begin, what the prompt says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>
#include <sstream>

#include "cli/peer.h"
#include "cli/shell/prompt.h"
#include "cli/shell/shell.h"
#include "cli/yang.h"

namespace {

using cli_test::Data;
using cli_test::Ok;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct ModesFixture {
    explicit ModesFixture(cli_test::Answer answer = Ok) : peer(std::move(answer)) {}
    std::ostringstream out;
    std::ostringstream err;
    cli_test::Peer peer;
    cli::Environment environment{[this] { return peer.Connect(); }, [] { return cli_test::Yang(); }};

    void Converse(const std::string& text)
    {
        cli::Shell shell(cli::Commands(), environment, out, err);
        std::istringstream input(text);
        cli_test::Converse(shell, input, out);
    }
};

TEST(Modes, APromptTakesEditsInConfigurationModeOnly)
{
    for (const char* edit : {"set oam sflow collector c1", "delete oam sflow collector c1", "edit oam sflow",
                             "discard", "commit", "rollback 1", "load merge x.json"}) {
        ModesFixture test;
        test.Converse(std::string(edit) + "\n");
        EXPECT_THAT(test.err.str(),
                    HasSubstr("it belongs to configuration mode; type configure, then it again"));
        EXPECT_THAT(test.peer.Requests(), IsEmpty()) << edit;
    }
    ModesFixture test;
    test.Converse("configure\ndiscard\nexit\ndiscard\n");
    EXPECT_THAT(test.peer.Requests(), ElementsAre("<discard-changes/>"));
    EXPECT_EQ(test.out.str(), "swcli> swcli (config)> swcli (config)> swcli> swcli> \n");
}

TEST(Modes, ABatchHasNone)
{
    ModesFixture test;
    cli::Shell shell(cli::Commands(), test.environment, test.out, test.err);
    EXPECT_TRUE(shell.RunAll("set oam sflow collector c1; commit; show system faults"));
    EXPECT_EQ(test.peer.Requests().size(), 3U);
}

TEST(Modes, PathsBeginAtThePlaceOfEdit)
{
    ModesFixture test;
    test.Converse(
        "configure\nedit oam sflow\nset collector c1\nedit interface 1/1/1\nset sampling-rate 5\nup\n"
        "set collector c2\ntop\nset oam sflow collector c3\n");
    const auto requests = test.peer.Requests();
    ASSERT_EQ(requests.size(), 5U);  // the last asks what is left
    EXPECT_THAT(requests[0], HasSubstr("<sflow><collector><name>c1</name></collector></sflow>"));
    EXPECT_THAT(requests[1], HasSubstr("<interface><name>1/1/1</name><sampling-rate>5</sampling-rate>"));
    EXPECT_THAT(requests[2], HasSubstr("<sflow><collector><name>c2</name></collector></sflow>"));
    EXPECT_THAT(requests[3], HasSubstr("<sflow><collector><name>c3</name></collector></sflow>"));
    EXPECT_THAT(test.out.str(), HasSubstr("swcli (config oam sflow interface 1/1/1)> "));
}

TEST(Modes, EditLeadsToWhatHasSomethingBelow)
{
    const struct {
        const char* path;
        const char* error;
    } rows[] = {
        {"oam sflow agent ipv4", "has nothing below it"},
        {"oam sflow interface", "has several entries: add the name of one"},
        {"oam sflow interface 1/1/[1-2]", "edit leads to one entry, not to several"},
        {"oam nothing", "\"nothing\" is unknown after oam; possible: sflow"},
    };
    for (const auto& row : rows) {
        ModesFixture test;
        test.Converse(std::string("configure\nedit ") + row.path + "\n");
        EXPECT_THAT(test.err.str(), HasSubstr(row.error));
        EXPECT_THAT(test.out.str(), Not(HasSubstr("(config oam")));
    }
}

TEST(Modes, ExitLeavesThePlaceThenTheModeThenTheShell)
{
    for (const char* word : {"exit", "quit"}) {
        ModesFixture test;
        const std::string leave = std::string(word) + "\n";
        test.Converse("configure\nedit oam sflow\n" + leave + leave + leave + "discard\n");
        EXPECT_EQ(test.out.str(), "swcli> swcli (config)> swcli (config oam sflow)> swcli (config)> swcli> ");
        EXPECT_EQ(test.err.str(), "");
    }
}

TEST(Modes, RunRunsWhatFollows)
{
    ModesFixture test;
    test.Converse("configure\nrun validate\nrun\n");
    EXPECT_THAT(test.peer.Requests(), ElementsAre("<validate><source><candidate/></source></validate>"));
    EXPECT_THAT(test.err.str(), HasSubstr("error: a command is missing; usage: run COMMAND..."));
}

TEST(Modes, ALostPrivateCandidateEndsConfigurationMode)
{
    ModesFixture test([](const std::string& operation) {
        return operation.starts_with("<validate") ? std::nullopt : Ok(operation);
    });
    test.Converse("configure private\nedit oam\nvalidate\nset sflow collector c1\n");
    EXPECT_THAT(test.err.str(), HasSubstr("the private candidate has ended with the session"));
    EXPECT_THAT(test.err.str(), HasSubstr("error: it belongs to configuration mode"));
    EXPECT_THAT(test.out.str(), HasSubstr("swcli (private oam)> swcli> "));
}

// ---- Ctrl-C while a command waits ----

/// Presses Ctrl-C once the request that begins so has come, and answers it when the next prompt is there.
class Interrupted {
public:
    explicit Interrupted(std::string request) : m_request(std::move(request)), m_test(Answerer()) {}

    /// What the errors say.
    std::string Converse(const std::vector<std::string>& lines)
    {
        cli::Shell shell(cli::Commands(), m_test.environment, m_test.out, m_test.err);
        Lines source(*this, lines);
        shell.Converse(source);
        return m_test.err.str();
    }
    [[nodiscard]] std::vector<std::string> Requests() const { return m_test.peer.Requests(); }

private:
    struct Lines : cli::LineSource {
        Lines(Interrupted& test, const std::vector<std::string>& lines) : m_test(test), m_left(lines) {}
        std::optional<std::string> Read(const std::string& /*prompt*/) override
        {
            if (m_test.m_isAsked && !std::exchange(m_test.m_isReleased, true)) m_test.m_release.set_value();
            if (m_left.empty()) return std::nullopt;
            return std::exchange(m_left, {m_left.begin() + 1, m_left.end()}).front();
        }
        Interrupted& m_test;
        std::vector<std::string> m_left;
    };

    cli_test::Answer Answerer()
    {
        return [this](const std::string& operation) {
            if (operation.starts_with(m_request) && !m_isAsked) {
                m_isAsked = true;
                ::pthread_kill(m_shell, SIGINT);
                m_release.get_future().wait();
            }
            return Ok(operation);
        };
    }

    std::string m_request;
    pthread_t m_shell = ::pthread_self();
    std::promise<void> m_release;
    std::atomic<bool> m_isAsked = false;
    bool m_isReleased = false;
    ModesFixture m_test;
};

TEST(CtrlC, EndsTheWaitAndKeepsTheSession)
{
    Interrupted test("<validate");
    EXPECT_THAT(test.Converse({"configure exclusive", "validate", "commit", "configure shared"}),
                testing::StartsWith("error: stopped: the reply is not waited for, and what was asked for may "
                                    "still be done\n"));
    EXPECT_THAT(test.Requests(), ElementsAre(HasSubstr("lock"), HasSubstr("validate"), "<commit></commit>",
                                             HasSubstr("discard"), HasSubstr("unlock")));
}

TEST(CtrlC, LeavesNoDoubtWhichCandidateThereIs)
{
    Interrupted test("<open-private-candidate");
    const std::string errors =
        test.Converse({"configure private", "set oam sflow collector c1", "configure"});
    EXPECT_THAT(errors,
                HasSubstr("error: peer: stopped before the reply came; the private candidate has ended "
                          "with the session\n"));
    EXPECT_THAT(errors, HasSubstr("type configure"));
}

TEST(CtrlC, TellsAtTheEndOfEditsThatMayHaveBeenMade)
{
    Interrupted test("<edit-config");
    test.Converse({"configure", "set oam sflow collector c1"});
    // What is left is asked for, although no reply has told of an edit.
    EXPECT_THAT(test.Requests(), ElementsAre(HasSubstr("<edit-config"), HasSubstr("editor")));
}

// ---- abbreviations ----

TEST(Abbreviations, AreTakenWhereOneCommandRemains)
{
    ModesFixture test;
    test.Converse("config\ndisc\nsh sf pr\nval\n");
    EXPECT_THAT(test.peer.Requests(), ElementsAre("<discard-changes/>", HasSubstr("<problem/>"),
                                                  "<validate><source><candidate/></source></validate>"));
}

TEST(Abbreviations, OfPathsAreTakenToo)
{
    ModesFixture test;
    test.Converse("config\nset o sflow int 1/1/1 sampl 5\n");
    EXPECT_THAT(test.peer.Requests()[0],
                HasSubstr("<interface><name>1/1/1</name><sampling-rate>5</sampling-rate>"));
}

TEST(Abbreviations, ThatMayBeSeveralAreRefusedWithTheirNames)
{
    ModesFixture test;
    test.Converse("con\nconfigure\nset oam sflow interface x m 5\nset oam sflow interface x p 5\n");
    EXPECT_THAT(test.err.str(), HasSubstr("error: \"con\" may be configure, confirm"));
    EXPECT_EQ(test.err.str().find("p\" may be"), std::string::npos);
}

TEST(Abbreviations, MeanTheOneThatBeginsTheOthers)
{
    ModesFixture test;
    test.Converse("show sflow int eth1\n");
    EXPECT_THAT(test.peer.Requests()[0], HasSubstr("<interface><name>eth1</name></interface>"));
}

TEST(Abbreviations, NeverChangeWhatAWordMeans)
{
    ModesFixture test;
    // A checkpoint may be called c, as "commit" begins; a file "merge".
    test.Converse("config\nrollback c\nset oam sflow interface s sampling-rate 5\n");
    EXPECT_THAT(test.peer.Requests()[0], HasSubstr("<checkpoint>c</checkpoint>"));
    EXPECT_THAT(test.peer.Requests()[1], HasSubstr("<name>s</name>"));
}

// ---- the prompt ----

cli::ShellState Configuring(std::vector<std::string> place = {})
{
    cli::ShellState state;
    state.configures = true;
    state.place = std::move(place);
    return state;
}

TEST(Prompt, TellsModePlaceEditsAndWhatWaits)
{
    EXPECT_EQ(cli::PromptText("ann@sw1", {}, {}), "ann@sw1> ");
    EXPECT_EQ(cli::PromptText("ann@sw1", {}, {.isEdited = true}), "ann@sw1*> ");
    EXPECT_EQ(
        cli::PromptText("ann@sw1", Configuring({"oam", "sflow"}), {.isEdited = true, .confirmIn = "54"}),
        "ann@sw1 (config oam sflow)* [confirm in 54 s]> ");
    cli::ShellState state = Configuring();
    state.candidate = cli::CandidateUse::kExclusive;
    EXPECT_EQ(cli::PromptText("ann@sw1", state, {}), "ann@sw1 (exclusive)> ");
}

TEST(Prompt, CutsALongPlaceAtItsBegin)
{
    EXPECT_EQ(
        cli::PromptText("a@b", Configuring({"oam", "sflow", "interface", "gigabit-ethernet-1/1/10"}), {}),
        "a@b (config ... interface gigabit-ethernet-1/1/10)> ");
}

std::optional<std::string> Stands(const std::string& operation)
{
    if (operation.find("<candidates") == std::string::npos) return "<ok/>";
    return Data(
        "<state xmlns=\"urn:switch:yang:switch-state\"><system><candidates "
        "xmlns=\"urn:switch:yang:switch-private-candidate\"><editor><session-id>9</session-id><edits>1</"
        "edits>"
        "</editor></candidates><history xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation>"
        "<return-to>1</return-to><time-left>54</time-left></pending-confirmation></history></system></"
        "state>");
}

TEST(Prompt, AsksTheDatabaseHowThingsStand)
{
    ModesFixture test(Stands);
    test.environment.asksStanding = true;
    test.Converse("exit\n");
    EXPECT_EQ(test.out.str(), "swcli* [confirm in 54 s]> ");
}

TEST(Prompt, SaysOnceThatTheDatabaseIsAway)
{
    ModesFixture test;
    test.environment.asksStanding = true;
    test.environment.connect = []() -> std::unique_ptr<netconf::Client> {
        throw netconf::ConnectionError("can't connect");
    };
    test.Converse("help exit\nhelp quit\n");
    EXPECT_EQ(test.err.str(), "warning: can't connect\n");
    EXPECT_THAT(test.out.str(), HasSubstr("swcli [no database]> "));
}

}  // namespace
