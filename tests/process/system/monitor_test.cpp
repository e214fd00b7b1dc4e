// SPDX-License-Identifier: Apache-2.0
// "monitor sflow" on a terminal, with a real switch and traffic under it.

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "system/own_settings.h"
#include "system/terminal.h"

namespace system_tests {
namespace {

constexpr const char* kAll = "> busy ";
constexpr const char* kPrompt = ">";

/// Packets that enter by "busy", some each moment.
class Traffic {
public:
    Traffic() : m_thread([this] { Run(); }) {}
    ~Traffic()
    {
        m_ends = true;
        m_thread.join();
    }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;

private:
    void Run()
    {
        Injector injector("far-end");
        const std::vector<support::Bytes> frames(20, support::UdpFrame({}));
        while (!m_ends) {
            injector.Send(frames);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }

    std::atomic<bool> m_ends = false;
    std::thread m_thread;
};

class Monitor : public OwnSettings {
protected:
    void SetUp() override
    {
        OwnSettings::SetUp();
        if (IsSkipped()) return;
        Start();
        m_traffic.emplace();
    }

    std::unique_ptr<Terminal> Open(const std::vector<std::string>& command,
                                   const std::map<std::string, std::string>& more = {})
    {
        auto environment = m_world->Environment("swcli");
        environment["HOME"] = m_world->Dir().string();
        for (const auto& [name, value] : more) environment[name] = value;
        return std::make_unique<Terminal>(m_world->Dir() / ("t" + std::to_string(++m_terminals)), environment,
                                          command);
    }

    /// The command at a prompt, with the port and its rates on the screen.
    std::unique_ptr<Terminal> Watch(const std::map<std::string, std::string>& more = {})
    {
        auto shell = Open({World::Program("swcli").string()}, more);
        shell->Awaits(kPrompt);
        shell->Type("monitor sflow");
        shell->Key("Enter");
        AwaitLive(*shell);
        return shell;
    }

    /// Beside "busy" an interface that the kernel does not have.
    void ConfigureMissing()
    {
        m_world->CliDone(
            "set oam sflow interface idle0 sampling-rate 1 polling-interval 0; "
            "set oam sflow interface idle0 flow-sampling-collector c1; commit");
    }

    /// Until figures of the port are shown.
    static void AwaitLive(Terminal& shell)
    {
        if (!support::Becomes([&] { return HasFigures(shell.Screen()); }))
            throw support::TimedOut("no figures are shown:\n" + shell.Screen());
    }
    static bool HasFigures(const std::string& screen)
    {
        const std::size_t row = screen.find("busy  ");
        if (row == std::string::npos || screen.find("no figures") != std::string::npos) return false;
        const std::size_t figure = screen.find_first_not_of(' ', row + 4);
        return figure != std::string::npos && std::isdigit(static_cast<unsigned char>(screen[figure])) != 0 &&
               screen[figure] != '0';
    }

    /// Ends the command and expects the prompt as it was before, without anything of the screen.
    static void Leaves(Terminal& shell)
    {
        shell.Key("q");
        Await("the prompt is back", [&] { return shell.Screen().ends_with(kPrompt); });
        EXPECT_THAT(shell.Screen(), HasSubstr("> monitor sflow\n"));
        EXPECT_THAT(shell.Screen(), Not(HasSubstr("packets/s")));
        // It echoes, and lines are edited.
        shell.Enter("help exit", "Leaves the place of edit");
    }

    std::optional<Traffic> m_traffic;

private:
    int m_terminals = 0;
};

TEST_F(Monitor, ShowsTrafficSortsFiltersLooksIntoAPortAndLeavesACleanPrompt)
{
    ConfigureMissing();
    const auto shell = Watch();
    shell->Awaits("1 of 2 ports sampling  1 of 1 collectors receiving");
    shell->Awaits("> idle0");  // it is missing, so it stands on top
    shell->Awaits("interface-missing");
    shell->Type("s");
    shell->Awaits("s sort: packets");
    shell->Type("/bus");
    shell->Awaits("filter: bus_");
    shell->Key("Enter");
    shell->Awaits("\"bus\": 1 of 2");
    shell->Awaits(kAll);
    EXPECT_THAT(shell->Screen(), Not(HasSubstr("interface-missing")));
    shell->Key("Enter");
    shell->Awaits("interface busy");
    shell->Awaits("Collectors  c1 receiving");
    shell->Awaits("1 in 1");
    shell->Awaits("█");
    shell->Awaits("Top talkers, ");
    shell->Awaits("udp       198.51.100.1:1000  198.51.100.2:2000");
    EXPECT_THAT(shell->Screen(), testing::ContainsRegex("packets/s  [1-9][0-9.]*k bits/s, "));
    shell->Key("Escape");
    shell->Awaits("\"bus\": 1 of 2");
    shell->Key("Escape");
    shell->Awaits("idle0");
    shell->Type("h");
    shell->Awaits("Any key goes back");
    shell->Type("x");
    shell->Type("p");
    shell->Awaits("paused since");
    shell->Type("p");
    AwaitLive(*shell);
    Leaves(*shell);
}

TEST_F(Monitor, FollowsTheSizeOfTheTerminal)
{
    const auto shell = Watch();
    shell->Resize({160, 50});
    Await("the keys stand in the last row of the larger one",
          [&] { return std::ranges::count(shell->Screen(), '\n') == 49; });
    AwaitLive(*shell);
    shell->Resize({60, 15});
    Await("and of the smaller one", [&] {
        const std::string screen = shell->Screen();
        return std::ranges::count(screen, '\n') == 14 && screen.ends_with("q quit");
    });
    AwaitLive(*shell);
    shell->Resize({20, 4});
    shell->Awaits("too small");
    shell->Resize({80, 24});
    AwaitLive(*shell);
    Leaves(*shell);
}

TEST_F(Monitor, SaysThatTheDatabaseIsAwayAndGoesOnWhenItIsBack)
{
    const auto shell = Watch();
    m_world->Cdbd().Kill();
    shell->Awaits("no figures: ");
    EXPECT_THAT(shell->Screen(), HasSubstr("> busy                  -  "));
    shell->Type("h");
    shell->Awaits("Any key goes back");
    shell->Type("x");
    m_world->StartCdbd();
    AwaitLive(*shell);
    Leaves(*shell);
}

TEST_F(Monitor, SaysThatTheManagerDoesNotAnswerAndKeysGoOn)
{
    const auto shell = Watch();
    m_world->Manager().Freeze();
    shell->Awaits("does not answer");
    EXPECT_THAT(shell->Screen(), HasSubstr("> busy                  -  "));
    shell->Type("s");
    shell->Awaits("s sort: packets");
    m_world->Manager().Thaw();
    AwaitLive(*shell);
    Leaves(*shell);
}

TEST_F(Monitor, HasFewColoursAndWithNoColorNone)
{
    constexpr const char* kRed = "\033[31m";
    ConfigureMissing();
    {
        const auto shell = Watch();
        shell->Awaits("1 broken");
        EXPECT_THAT(shell->Transcript(),
                    testing::AnyOf(HasSubstr(kRed), HasSubstr("\033[1m\033[31m"), HasSubstr(";31m")));
        Leaves(*shell);
    }
    const auto shell = Watch({{"NO_COLOR", "1"}});
    shell->Awaits("1 broken");
    const std::string screen = shell->Transcript();
    EXPECT_THAT(screen, HasSubstr("\033[1m"));
    EXPECT_THAT(screen, Not(HasSubstr("31m")));
    EXPECT_THAT(screen, Not(HasSubstr("33m")));
    Leaves(*shell);
}

TEST_F(Monitor, CtrlCLeavesTheTerminalAsItWas)
{
    const std::string program = World::Program("swcli").string();
    const auto shell = Open(
        {"bash", "-c", program + " -c 'monitor sflow interface busy'; echo status $?; stty -a; sleep 1000"});
    shell->Awaits("interface busy");
    shell->Key("C-c");
    shell->Awaits("status 0");
    shell->Awaits(" icanon ");
    shell->Awaits(" echo ");
}

TEST_F(Monitor, ASignalThatEndsItLeavesTheTerminalAsItWas)
{
    const std::string program = World::Program("swcli").string();
    const std::string file = (m_world->Dir() / "pid").string();
    const auto shell = Open({"bash", "-c",
                             "(echo $BASHPID >" + file + "; exec " + program +
                                 " -c 'monitor sflow'); echo status $?; stty -a; sleep 1000"});
    AwaitLive(*shell);
    ::kill(std::stoi(support::ReadFile(file)), SIGTERM);
    shell->Awaits("status 143");
    shell->Awaits(" icanon ");
    shell->Awaits(" echo ");
    EXPECT_THAT(shell->Screen(), Not(HasSubstr("packets/s")));
}

TEST_F(Monitor, ATerminalThatCantBeFilledHasLines)
{
    for (const char* term : {"TERM=dumb", "TERM=of-no-description"}) {
        const auto shell = Open({"env", term, World::Program("swcli").string(), "-c", "monitor sflow"});
        shell->Awaits(" datagrams/s  nothing broken\n");
        shell->Key("C-c");
        Await("it ends", [&] { return !shell->Runs(); });
    }
}

}  // namespace
}  // namespace system_tests
