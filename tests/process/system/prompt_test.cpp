// SPDX-License-Identifier: Apache-2.0
// swcli on a terminal: keys, history, paste, help and the prompt, as a person has them.

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>

#include "base/user.h"
#include "system/system_test.h"
#include "system/terminal.h"

namespace system_tests {
namespace {

class Prompt : public SystemTest {
protected:
    Prompt()
    {
        TheWorld().Start(scenario::Usual());
        std::array<char, HOST_NAME_MAX + 1> host{};
        ::gethostname(host.data(), host.size() - 1);
        const std::string name = host.data();
        m_name = base::UserName(::geteuid()) + "@" + name.substr(0, name.find('.'));
        std::filesystem::create_directories(Home());
    }

    [[nodiscard]] std::filesystem::path Home() { return TheWorld().Dir() / "home"; }
    [[nodiscard]] std::filesystem::path History() { return Home() / ".swcli_history"; }

    /// A shell on a terminal of its own, at its first prompt.
    std::unique_ptr<Terminal> Shell(std::vector<std::string> command = {})
    {
        if (command.empty()) command = {World::Program("swcli").string()};
        auto environment = TheWorld().Environment("swcli");
        environment["HOME"] = Home().string();
        auto terminal = std::make_unique<Terminal>(TheWorld().Dir() / ("t" + std::to_string(++m_terminals)),
                                                   environment, command);
        terminal->AwaitsLast(At(">"));
        return terminal;
    }

    /// The prompt with this behind the name.
    [[nodiscard]] std::string At(const std::string& rest) const { return m_name + rest; }

private:
    std::string m_name;
    int m_terminals = 0;
};

TEST_F(Prompt, LoadsWhatIsTypedAndDropsItAtCtrlC)
{
    const auto shell = Shell();
    shell->Enter("configure", At(" (config)>"));
    shell->Type("load merge terminal");
    shell->Key("Enter");
    shell->Awaits("Ctrl-D on a line of its own ends it");
    shell->Type("oam { sflow { collector typed { ip 192.0.2.77; } } }");
    shell->Key("Enter");
    shell->Key("C-d");
    shell->Awaits("2 values loaded into the candidate");
    shell->AwaitsLast(At(" (config)*>"));
    shell->Enter("discard", At(" (config)>"));
    shell->Type("load set terminal");
    shell->Key("Enter");
    shell->Awaits("Ctrl-D on a line of its own ends it");
    shell->Type("set oam sflow collector typed ip 192.0.2.77");
    shell->Key("Enter");
    shell->Key("C-c");
    shell->Awaits("dropped; nothing is loaded");
    shell->AwaitsLast(At(" (config)>"));
    shell->Enter("compare", At(" (config)>"));
}

TEST_F(Prompt, TellsTheModeThePlaceAndWhatIsNotCommitted)
{
    const auto shell = Shell();
    shell->Enter("configure", At(" (config)>"));
    shell->Enter("edit oam sflow interface eth1", At(" (config oam sflow interface eth1)>"));
    shell->Enter("set sampling-rate 4711", At(" (config oam sflow interface eth1)*>"));
    shell->Enter("top", At(" (config)*>"));
    shell->Type("commit confirmed 600");
    shell->Key("Enter");
    shell->Awaits(" [confirm in ");
    shell->Type("cancel");
    shell->Key("Enter");
    shell->AwaitsLast(At(" (config)>"));
    shell->Enter("configure private", At(" (private)>"));
    shell->Enter("quit", At(">"));
    shell->AwaitsLast(At(">"));
    shell->Type("exit");
    shell->Key("Enter");
    Await("the shell ends", [&] { return !shell->Runs(); });
}

TEST_F(Prompt, KeysEditTheLine)
{
    const auto shell = Shell();
    shell->Type("xhelp exiQ");
    shell->Key("Home");
    shell->Key("Delete");
    shell->Key("End");
    shell->Key("BSpace");
    shell->Type("t");
    shell->AwaitsLast(At("> help exit"));
    shell->Key("Enter");
    shell->Awaits("Leaves the place of edit");
    shell->AwaitsLast(At(">"));
    // One key takes a character of several bytes.
    shell->Type("a\xc3\xa9\xe2\x82\xac");
    shell->AwaitsLast(At("> a\xc3\xa9\xe2\x82\xac"));
    shell->Key("BSpace");
    shell->AwaitsLast(At("> a\xc3\xa9"));
    shell->Key("Left");
    shell->Type("b");
    shell->AwaitsLast(At("> ab\xc3\xa9"));
    shell->Key("Enter");
    shell->Awaits("unknown command \"ab\xc3\xa9\"");
}

TEST_F(Prompt, CtrlCDropsTheLineAndEndsACommandButNeverTheShell)
{
    const auto shell = Shell();
    shell->Type("nonsense");
    shell->Key("C-c");
    shell->Awaits("nonsense^C");
    shell->AwaitsLast(At(">"));
    EXPECT_THAT(shell->Screen(), Not(HasSubstr("error")));
    shell->Enter("monitor events", "monitor events");
    // What happens shows that the command waits. It is told from its subscription on.
    unsigned rate = 4000;
    Await("an event is shown", [&] {
        Commit(Rate("eth1", ++rate));
        return shell->Screen().find("netconf-config-change") != std::string::npos;
    });
    shell->Key("C-c");
    shell->AwaitsLast(At(">"));
    shell->Key("C-c");
    shell->Key("C-c");
    shell->Enter("help exit", "Leaves the place of edit");
}

TEST_F(Prompt, TheHistoryIsSearchedAndKeptOverSessions)
{
    {
        const auto shell = Shell();
        shell->Enter("help exit", "Leaves the place of edit");
        shell->Enter("help confirm", "Confirms the commit");
        shell->AwaitsLast(At(">"));
        shell->Key("C-r");
        shell->Type("exi");
        shell->Awaits("help exit");
        shell->Key("Enter");
        shell->AwaitsLast(At(">"));
        shell->Type("quit");
        shell->Key("Enter");
        Await("the shell ends", [&] { return !shell->Runs(); });
    }
    struct stat status {};
    ASSERT_EQ(0, ::stat(History().c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 0777U);
    EXPECT_EQ("help exit\nhelp confirm\nhelp exit\nquit\n", support::ReadFile(History()));

    const auto again = Shell();
    again->Key("Up");
    again->AwaitsLast(At("> quit"));
    again->Key("Up");
    again->AwaitsLast(At("> help exit"));
    again->Key("Up");
    again->AwaitsLast(At("> help confirm"));
}

TEST_F(Prompt, AHistoryThatCantBeWrittenIsNoFault)
{
    std::filesystem::create_directories(History());
    const auto shell = Shell();
    shell->Enter("help exit", "Leaves the place of edit");
    shell->AwaitsLast(At(">"));
    EXPECT_THAT(shell->Screen(), Not(HasSubstr("error")));
}

TEST_F(Prompt, LinesThatArePastedRunInTheirOrder)
{
    for (const bool marked : {true, false}) {
        const auto shell = Shell();
        shell->Paste(
            std::string("configure private\n") +
                (marked ? "set\toam sflow interface eth1 sampling-rate 4711\n"
                        : "set oam sflow interface eth1 sampling-rate 4711\n") +
                "set oam sflow interface eth1 polling-interval 77\nset oam sflow collector c1 port 7\n"
                "edit oam sflow interface eth1\nset sampling-rate 4712\nshow configuration\nhelp top",
            marked);
        shell->Awaits("polling-interval 77;");
        shell->AwaitsLast(At(" (private oam sflow interface eth1)*> help top"));
        EXPECT_THAT(shell->Screen(), HasSubstr("sampling-rate 4712;"));
        EXPECT_THAT(shell->Screen(), Not(HasSubstr("error")));
    }
}

TEST_F(Prompt, APastedQuestionMarkIsText)
{
    const auto shell = Shell();
    shell->Paste("help \"what?\" now?");
    shell->AwaitsLast(At("> help \"what?\" now?"));
}

TEST_F(Prompt, AQuestionMarkHelpsAtOnceAndTabCompletes)
{
    const auto shell = Shell();
    shell->Enter("configure", At(" (config)>"));
    shell->Type("set oam sflow interface eth1 ?");
    shell->Awaits("\n  sampling-rate ");
    shell->AwaitsLast(At(" (config)> set oam sflow interface eth1"));
    shell->Type("flow-sampling-collector ?");
    shell->Awaits("\n  c3");
    shell->Key("C-c");
    shell->Type("del");
    shell->Key("Tab");
    shell->Type("oa");
    shell->Key("Tab");
    shell->Type("sflow inter");
    shell->Key("Tab");
    shell->Type("eth1 samp");
    shell->Key("Tab");
    shell->AwaitsLast(At(" (config)> delete oam sflow interface eth1 sampling-rate"));
    shell->Key("Enter");
    shell->AwaitsLast(At(" (config)*>"));
    shell->Enter("discard", At(" (config)>"));
}

TEST_F(Prompt, TabKnowsWhatACommandMayName)
{
    TheWorld().CliDone(
        "set oam sflow collector c9 ip 192.0.2.9; commit comment \"named\"; "
        "request checkpoint before-upgrade");
    const auto client = Connect();
    const auto shell = Shell();
    shell->Type("request delete-checkpoint be");
    shell->Key("Tab");
    shell->AwaitsLast(At("> request delete-checkpoint before-upgrade"));
    shell->Key("C-c");
    shell->Type("show history ?");
    shell->Awaits(": named");
    shell->Key("C-c");
    shell->Type("request session ?");
    shell->Awaits("\n  " + std::to_string(client.SessionId()) + " ");
    shell->Key("C-c");
    shell->Type("monitor sflow collector c9");
    shell->Key("Tab");
    shell->AwaitsLast(At("> monitor sflow collector c9"));
}

TEST_F(Prompt, ADatabaseThatHangsNeitherHoldsNorBreaksIt)
{
    const auto shell = Shell();
    TheWorld().Cdbd().Freeze();
    shell->Key("Enter");
    shell->AwaitsLast(At(" [no answer]>"));
    // What asks nothing does not wait either.
    shell->Enter("help exit", "Leaves the place of edit");
    shell->AwaitsLast(At(" [no answer]>"));
    TheWorld().Cdbd().Thaw();
    Await("the prompt has its answer", [&] {
        shell->Key("Enter");
        return shell->Screen().ends_with(At(">"));
    });
    shell->Enter("show system candidates", "The shared candidate has no edits.");
    shell->AwaitsLast(At(">"));
}

TEST_F(Prompt, CtrlCEndsTheWaitForADatabaseThatHangs)
{
    const auto shell = Shell();
    shell->Enter("configure exclusive", At(" (exclusive)>"));
    shell->Enter("set oam sflow collector kept ip 192.0.2.77", At(" (exclusive)*>"));
    TheWorld().Cdbd().Freeze();
    shell->Type("show system sessions");
    shell->Key("Enter");
    // Until the command has begun the key belongs to the line.
    Await("the command is stopped", [&] {
        shell->Key("C-c");
        return shell->Screen().find("stopped: the reply is not waited for") != std::string::npos;
    });
    shell->AwaitsLast(At(" (exclusive) [no answer]>"));
    // A key that asks does not hold the line for long either.
    shell->Type("request session ");
    shell->Key("Tab");
    shell->Awaits("<N>");
    shell->Key("C-c");
    TheWorld().Cdbd().Thaw();
    Await("the prompt has its answer", [&] {
        shell->Key("Enter");
        return shell->Screen().ends_with(At(" (exclusive)*>"));
    });
    // The lock and the edit under it are still there.
    shell->Enter("show configuration oam sflow collector kept", "192.0.2.77");
    shell->Enter("discard", At(" (exclusive)>"));
}

TEST_F(Prompt, IsTheShellOfALogin)
{
    const std::string program = World::Program("swcli").string();
    const auto shell = Shell({"bash", "-c", "exec -a -swcli " + program});
    shell->Enter("show system candidates", "The shared candidate has no edits.");
    shell->Type("exit");
    shell->Key("Enter");
    Await("the shell ends", [&] { return !shell->Runs(); });
}

TEST_F(Prompt, RunsTheCommandOfALoginWithoutATerminal)
{
    if (::geteuid() != 0) GTEST_SKIP() << "only root can start another login shell";
    const auto result = TheWorld().Run(
        {"su", "-m", "-s", World::Program("swcli").string(), "root", "-c", "show system candidates | json"});
    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_THAT(result.output, testing::StartsWith("{"));
}

}  // namespace
}  // namespace system_tests
