// SPDX-License-Identifier: Apache-2.0
// Every screen of swcli as a person sees it, on one switch with known traffic, compared with the texts in
// golden/: one file a scene and size of the terminal. `make renew` writes them anew.

#include <sched.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/version.h"
#include "cli/commands/command.h"
#include "cli/data/words.h"
#include "screens/golden_text.h"
#include "screens/scenes.h"
#include "support/decoding_collector.h"
#include "support/network.h"
#include "support/world.h"
#include "system/terminal.h"

namespace screens_tests {
namespace {

using support::Await;
using support::DecodingCollector;
using support::Network;
using support::World;
using support::WorldOptions;
using system_tests::Terminal;
using system_tests::TerminalSize;

constexpr std::string_view kHost = "sw1";
constexpr const char* kPrompt = "root@sw1";
constexpr std::uint16_t kSflowPort = 6343;

/// The commands of all scenes, without what stands behind '|'.
std::vector<std::vector<std::string>> TypedCommands()
{
    std::vector<std::vector<std::string>> all;
    for (const auto& [name, lines] : GoldenScenes())
        for (const std::string& line : lines) {
            std::vector<std::string> words;
            for (const cli::Word& word : cli::SplitWords(line)) {
                if (word.IsPipe()) break;
                words.push_back(word.text);
            }
            all.push_back(words);
        }
    return all;
}

TEST(Scenes, TypeEveryCommandOfTheTableButThoseWithAReason)
{
    const auto typed = TypedCommands();
    for (const cli::Command& command : cli::Commands()) {
        const std::string name(command.name);
        const bool isTyped = std::ranges::any_of(
            typed, [&](const auto& words) { return cli::CommandOf(cli::Commands(), words) == &command; });
        EXPECT_NE(isTyped, WithoutScene().contains(name))
            << name << (isTyped ? " has a scene and a reason for having none" : " has no scene");
    }
    for (const auto& [name, reason] : WithoutScene())
        EXPECT_TRUE(
            std::ranges::any_of(cli::Commands(), [&](const cli::Command& each) { return each.name == name; }))
            << "there is no command " << name;
}

/// A switch with four ports of which one has traffic, and a terminal on it.
class Screens : public testing::TestWithParam<TerminalSize> {
protected:
    void SetUp() override
    {
        if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        if (::unshare(CLONE_NEWUTS) != 0 || ::sethostname(kHost.data(), kHost.size()) != 0)
            GTEST_SKIP() << "the host can't have another name here";
        for (const std::string number : {"1", "2", "3", "10"}) {
            Network::Veth("p" + number, "h" + number);
            Network::Ip("link set dev p" + number + " alias gigabit-ethernet-1/1/" + number + "\n");
        }
        Network::AwaitSending("h1");
        WorldOptions options;
        options.managerArguments = {"--source", "packet-socket"};
        m_world.emplace(options);
        m_collector.emplace("127.0.0.1", kSflowPort);
        std::filesystem::create_directories(m_world->Dir() / "home");
    }

    std::unique_ptr<Terminal> Shell(const std::map<std::string, std::string>& more = {})
    {
        auto environment = m_world->Environment("swcli");
        environment["HOME"] = (m_world->Dir() / "home").string();
        environment["PAGER"] = "cat";
        environment.insert(more.begin(), more.end());
        auto shell =
            std::make_unique<Terminal>(m_world->Dir() / ("t" + std::to_string(++m_terminals)), environment,
                                       std::vector{World::Program("swcli").string()}, GetParam());
        shell->AwaitsLast(kPrompt + std::string(">"));
        return shell;
    }

    /// Drops the line, and what the terminal has shown. What it clears goes to its history, so that is
    /// forgotten when nothing but the prompt is there.
    static void Renew(Terminal& shell)
    {
        shell.Key("C-c");
        Await("a prompt", [&] { return shell.Screen().ends_with('>'); });
        shell.Clear();
        Await("nothing but a prompt", [&] {
            const std::string screen = shell.Screen();
            return screen.ends_with('>') && screen.find('\n') == std::string::npos;
        });
        shell.Forget();
    }

    /// The lines of the scene as they are typed.
    [[nodiscard]] std::string Lines(const std::string& name) const
    {
        std::string lines;
        for (std::string line : GoldenScenes().at(name)) {
            if (const auto at = line.find(kDirectory); at != std::string::npos)
                line.replace(at, kDirectory.size(), m_world->Dir().string());
            lines += line + "\n";
        }
        return lines;
    }

    [[nodiscard]] std::string Stable(const std::string& transcript) const
    {
        std::map<std::string, std::string> words{{m_world->Dir().string(), std::string(kDirectory)}};
        words[base::Version()] = "VERSION";
        return Masked(WithNamedColours(transcript), words);
    }

    /// What the terminal shows while the scene is typed.
    std::string Play(Terminal& shell, const std::string& name)
    {
        constexpr const char* kEnd = "# end";
        shell.Paste(Lines(name) + kEnd);
        Await("the scene " + name + " ends",
              [&] { return shell.Screen().ends_with(std::string("> ") + kEnd); });
        std::string text = Stable(shell.Transcript());
        Renew(shell);
        return text.substr(0, text.rfind(kPrompt));
    }

    /// What is listed at '?'.
    std::string Ask(Terminal& shell)
    {
        std::string text;
        std::string prompt = kPrompt + std::string(">");
        for (const std::string& line : AskedLines()) {
            shell.AwaitsLast(prompt);
            shell.Type(line);
            if (line == "configure") {
                shell.Key("Enter");
                prompt = kPrompt + std::string(" (config)>");
                shell.AwaitsLast(prompt);
                Renew(shell);
                continue;
            }
            std::string row = prompt + " " + line;
            row.erase(row.find_last_not_of(' ') + 1);
            shell.AwaitsLast(row);
            shell.Type("?");
            Await("something is listed", [&] {
                const std::string screen = shell.Screen();
                return screen != row && screen.ends_with("\n" + row);
            });
            const std::string shown = Stable(shell.Transcript());
            text += shown.substr(0, shown.rfind(kPrompt));
            Renew(shell);
        }
        shell.Type("exit");
        shell.Key("Enter");
        shell.AwaitsLast(kPrompt + std::string(">"));
        Renew(shell);
        return text;
    }

    void Check(Terminal& shell, const std::string& name) { Check(name, Play(shell, name)); }

    void Check(const std::string& name, const std::string& text)
    {
        const auto [columns, rows] = GetParam();
        const std::string folder = std::to_string(columns) + "x" + std::to_string(rows);
        EXPECT_EQ("", CompareWithGolden(
                          World::Tree() / "tests/process/screens/golden" / folder / (name + ".txt"), text));
        EXPECT_EQ("", LinesWiderThan(static_cast<std::size_t>(columns) - 1, WithoutColours(text)));
    }

    /// Commits the scenes' configuration; returns when the manager shows what becomes of it.
    void Configure()
    {
        std::string commands;
        for (const std::string& line : GoldenConfiguration()) commands += line + ";";
        m_world->CliDone(commands + "commit");
        m_traffic = std::jthread([](const std::stop_token& stop) {
            support::Injector port("h1");
            for (; !stop.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(200)))
                port.Send(support::UdpFrame({}));
        });
        Await("samples are sent, and the rest is diagnosed", [&] {
            const auto state = nlohmann::json::parse(m_world->CliDone("show sflow | json"));
            const auto& sflow = state.at("switch-state:state").at("oam").at("sflow");
            constexpr std::size_t kProblems = 12;
            return sflow.at("collector").at(0).at("flow-samples-sent") != "0" &&
                   sflow.value("problem", nlohmann::json()).size() == kProblems;
        });
    }

    void AwaitShown(const std::string& command, const std::string& text)
    {
        Await("\"" + text + "\" is shown",
              [&] { return m_world->Cli(command).output.find(text) != std::string::npos; });
    }

    std::optional<Network> m_network;
    std::optional<World> m_world;
    std::optional<DecodingCollector> m_collector;
    std::jthread m_traffic;  // all the time, so that the port is never idle
    int m_terminals = 0;
};

/// The text without the lines that have a prompt.
std::string Results(const std::string& text)
{
    std::string results;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with(kPrompt)) results += line + "\n";
    return results;
}

TEST_P(Screens, AreTheGoldenOnes)
{
    m_world->Start("{}");
    const auto shell = Shell();
    Check(*shell, "empty");
    Configure();
    for (const char* name : {"state", "forms", "edit", "errors", "help"}) Check(*shell, name);
    Check("choices", Ask(*shell));
    m_world->Daemon().Kill();
    AwaitShown("show sflow problems", "start sflow-app");
    Check(*shell, "no-daemon");
    m_world->Manager().Kill();
    AwaitShown("show system processes", "No process");
    Check(*shell, "no-manager");
    m_world->Cdbd().Kill();
    Check(*shell, "no-database");
}

TEST_P(Screens, AreTheSameTextsWithoutColoursAndWithoutATerminal)
{
    m_world->Start("{}");
    Configure();
    for (const char* name : {"state", "forms"}) {
        const std::string coloured = Play(*Shell(), name);
        const std::string plain = Play(*Shell({{"NO_COLOR", "1"}}), name);
        EXPECT_EQ(WithoutColours(coloured), plain);
        if (GetParam().columns != TerminalSize().columns) continue;
        const auto piped = m_world->Run({World::Program("swcli").string()}, Lines(name));
        EXPECT_EQ(Results(plain), Stable(piped.output)) << piped.errors;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, Screens, testing::Values(TerminalSize{80, 24}, TerminalSize{160, 50}),
                         [](const auto& size) { return "At" + std::to_string(size.param.columns); });

}  // namespace
}  // namespace screens_tests
