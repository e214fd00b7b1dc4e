// SPDX-License-Identifier: Apache-2.0
// swcli on terminals that change, are odd or small, and on files that can't be read or written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/world.h"
#include "system/terminal.h"

namespace screens_tests {
namespace {

using support::Await;
using support::World;
using system_tests::Terminal;
using system_tests::TerminalSize;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class Terminals : public testing::Test {
protected:
    Terminals()
    {
        m_world.Start("{}");
        std::filesystem::create_directories(m_world.Dir() / "home");
    }

    static std::string Program() { return World::Program("swcli").string(); }

    /// The shell at its first prompt; `settings` are those of env.
    std::unique_ptr<Terminal> Shell(const std::vector<std::string>& settings = {}, TerminalSize size = {})
    {
        std::vector<std::string> command{"env"};
        command.insert(command.end(), settings.begin(), settings.end());
        command.push_back(Program());
        auto environment = m_world.Environment("swcli");
        environment["HOME"] = (m_world.Dir() / "home").string();
        auto shell = std::make_unique<Terminal>(m_world.Dir() / ("t" + std::to_string(++m_terminals)),
                                                environment, command, size);
        AwaitPrompt(*shell);
        return shell;
    }

    static void AwaitPrompt(Terminal& shell)
    {
        Await("a prompt", [&] { return shell.Screen().ends_with('>'); });
    }

    support::RunResult Bash(const std::string& script)
    {
        return m_world.Run({"bash", "-c", script, "bash", Program()});
    }

    World m_world;
    int m_terminals = 0;
};

TEST_F(Terminals, ATableTakesTheNewWidth)
{
    const auto shell = Shell();
    const auto show = [&] {
        shell->Clear();
        Await("an empty screen", [&] { return shell->Screen().find('\n') == std::string::npos; });
        shell->Enter("show system processes", "callpoint");
        AwaitPrompt(*shell);
        return shell->Screen();
    };
    EXPECT_THAT(show(), HasSubstr("Since"));
    shell->Resize({50, 24});
    EXPECT_THAT(show(), Not(HasSubstr("Since")));
    shell->Resize({120, 24});
    EXPECT_THAT(show(), HasSubstr("Since"));
}

TEST_F(Terminals, AMessageTakesTheNewWidth)
{
    const auto shell = Shell();
    shell->Enter("help nonsense", "begins with \"nonsense\"; help lists all");
    shell->Resize({40, 24});
    shell->Enter("help nonsense", "\n       \"nonsense\"; help lists all");
}

TEST_F(Terminals, ALineThatIsTypedOutlivesANewWidth)
{
    const auto shell = Shell();
    shell->Type("help show system processes  # and a comment that is so long that it does not fit");
    shell->Awaits("s not fit");
    shell->Resize({120, 24});
    shell->Key("BSpace");
    shell->Resize({50, 24});
    shell->Type("X");
    shell->Key("Home");
    shell->Key("Delete");
    shell->Enter("h", "those that miss");
    AwaitPrompt(*shell);
    EXPECT_THAT(shell->Screen(), Not(HasSubstr("error")));
    shell->Key("Up");
    shell->Awaits("it does not fiX");
}

TEST_F(Terminals, ThePagerTakesTheNewHeight)
{
    const auto shell = Shell({"-u", "PAGER"}, {80, 8});
    shell->Type("help show");
    shell->Key("Enter");
    shell->AwaitsLast(":");
    EXPECT_THAT(shell->Screen(), Not(HasSubstr("show checkpoints")));
    shell->Resize({80, 20});
    shell->Awaits("show checkpoints");
    shell->Key("q");
    AwaitPrompt(*shell);
    shell->Enter("help exit", "Leaves the place of edit");
}

TEST_F(Terminals, MayBeTenCharactersWide)
{
    const auto shell = Shell({"PAGER=cat"}, {10, 24});
    for (const char* line :
         {"show sflow", "show interfaces", "show nonsense", "help", "show system sessions"}) {
        shell->Clear();
        shell->Type(line);
        shell->Key("Enter");
        AwaitPrompt(*shell);
    }
    shell->Type("show ");
    shell->Type("?");
    shell->Awaits("sflow");
    EXPECT_TRUE(shell->Runs());
}

TEST_F(Terminals, MayBeOfAnyKindInAnyLanguage)
{
    for (const std::string terminal : {"TERM=dumb", "TERM=", "TERM=no-such-terminal", "TERM=vt100"}) {
        SCOPED_TRACE(terminal);
        const auto shell = Shell({terminal, "LANG=C", "LC_ALL=C"});
        shell->Type("help exiQ");
        shell->Key("BSpace");
        shell->Enter("t", "Leaves the place of edit");
        AwaitPrompt(*shell);
        shell->Enter("nonsense", "unknown command");
        AwaitPrompt(*shell);
        const bool hasColours = shell->Transcript().find("\033[31m") != std::string::npos;
        EXPECT_EQ(terminal != "TERM=dumb" && terminal != "TERM=", hasColours);
    }
    const auto unset = Shell({"-u", "TERM"});
    unset->Enter("nonsense", "unknown command");
    EXPECT_THAT(unset->Transcript(), Not(HasSubstr("\033[31m")));
}

TEST_F(Terminals, ColoursAreForTheTerminalOnly)
{
    const auto shell = Shell();
    shell->Enter("configure", "(config)>");
    shell->Enter("set oam sflow collector c1 ip 192.0.2.1", "(config)*>");
    const std::string file = (m_world.Dir() / "compared").string();
    shell->Enter("compare | save " + file, "saved in");
    EXPECT_THAT(support::ReadFile(file), HasSubstr("\n+ oam sflow collector c1 ip"));
    EXPECT_THAT(support::ReadFile(file), Not(HasSubstr("\033")));
    shell->Enter("compare | match \"^[+] oam sflow collector c1 ip\"", "\n+ oam sflow collector c1 ip");
    AwaitPrompt(*shell);
    EXPECT_THAT(shell->Transcript(), Not(HasSubstr("\033[32m")));
    shell->Enter("compare", "\n+ oam sflow collector c1\n");
    AwaitPrompt(*shell);
    EXPECT_THAT(shell->Transcript(), HasSubstr("\033[32m+ oam sflow collector c1"));
}

TEST_F(Terminals, AResultThatCantBeWrittenIsAnError)
{
    for (const char* output : {">/dev/full", ">&-"}) {
        const auto result = Bash(std::string("\"$1\" -c 'show system processes' ") + output);
        EXPECT_EQ(1, result.status) << output;
        EXPECT_EQ("error: standard output can't be written\n", result.errors);
    }
}

TEST_F(Terminals, AnInputThatCantBeReadIsAnError)
{
    for (const char* input : {"<&-", "</"}) {
        const auto result = Bash(std::string("\"$1\" ") + input);
        EXPECT_EQ(1, result.status) << input;
        EXPECT_THAT(result.errors, HasSubstr("error: can't read standard input"));
    }
    EXPECT_EQ(0, Bash("\"$1\" </dev/null").status);
}

TEST_F(Terminals, MessagesThatCantBeWrittenChangeNoStatus)
{
    for (const char* errors : {"2>/dev/full", "2>&-"}) {
        EXPECT_EQ(1, Bash(std::string("\"$1\" -c nonsense ") + errors).status) << errors;
        const auto shown = Bash(std::string("\"$1\" -c 'show system faults' ") + errors);
        EXPECT_EQ(0, shown.status) << errors;
        EXPECT_THAT(shown.output, EndsWith("\n"));
    }
}

}  // namespace
}  // namespace screens_tests
