// SPDX-License-Identifier: Apache-2.0
// The loop behind the full screen, with a terminal played by the test: a key is pressed when a text is shown.
#include "cli/commands/monitor_screen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <future>
#include <sstream>

#include "base/unique_fd.h"
#include "cli/peer.h"
#include "cli/watching.h"
#include "cli/yang.h"
#include "netconf/socket.h"

namespace {

using cli::Key;
using cli::KeyPress;
using cli_test::Data;
using cli_test::Peer;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

struct Step {
    std::string shows;  // what the screen has to show before
    KeyPress press;
    std::function<void()> then = {};
};

KeyPress Typed(const std::string& text) { return {Key::kCharacter, text}; }

class PlayedScreen final : public cli::Screen {
public:
    PlayedScreen(std::deque<Step> steps, std::vector<std::string>& shown)
        : m_steps(std::move(steps)), m_shown(shown), m_event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
    }
    [[nodiscard]] cli::ScreenSize Size() const override { return {80, 24}; }
    void Resize() override {}
    [[nodiscard]] cli::Charset Characters() const override { return cli::Charset::kUtf8; }
    void Draw(const std::vector<cli::StyledLine>& lines) override
    {
        std::string text;
        for (const cli::StyledLine& line : lines) {
            for (const cli::StyledText& part : line) text += part.text;
            text += '\n';
        }
        m_shown.push_back(text);
        while (!m_steps.empty() && text.find(m_steps.front().shows) != std::string::npos) {
            const Step step = std::move(m_steps.front());
            m_steps.pop_front();
            if (step.then) step.then();
            if (step.press.key == Key::kOther) continue;
            m_keys.push_back(step.press);
            const std::uint64_t one = 1;
            EXPECT_EQ(static_cast<ssize_t>(sizeof one), ::write(m_event.Get(), &one, sizeof one));
            return;
        }
    }
    std::optional<KeyPress> Read() override
    {
        if (m_keys.empty()) {
            std::uint64_t count = 0;
            static_cast<void>(::read(m_event.Get(), &count, sizeof count));
            return std::nullopt;
        }
        const KeyPress press = m_keys.front();
        m_keys.pop_front();
        return press;
    }
    [[nodiscard]] int Descriptor() const override { return m_event.Get(); }

private:
    std::deque<Step> m_steps;
    std::vector<std::string>& m_shown;
    std::deque<KeyPress> m_keys;
    base::UniqueFd m_event;
};

std::string Interface(const std::string& name, int seen)
{
    return "<interface><name>" + name + "</name><packets-seen>" + std::to_string(seen) +
           "</packets-seen><packets-sampled>" + std::to_string(seen / 10) + "</packets-sampled></interface>";
}

std::string SflowState(const std::string& content)
{
    return Data(
        "<state xmlns=\"urn:switch:yang:switch-state\"><oam><sflow><manager><session>loaded</session>"
        "<samples-per-second>7</samples-per-second><datagrams-per-second>3</datagrams-per-second>"
        "</manager>" +
        content + "</sflow></oam></state>");
}

struct MonitorScreenTest : testing::Test {
    /// Runs the command until the steps have ended it.
    bool Run(std::deque<Step> steps, const std::string& name = {})
    {
        const cli::Arguments arguments;
        const std::function<std::unique_ptr<netconf::Client>()> connect = [this] {
            ++connections;
            if (refuses) throw netconf::ConnectionError("peer: Connection refused");
            return peer.Connect();
        };
        cli::Call call{arguments, cli::Format::kText, nullptr, cli_test::Yang(), out, out, state, 79, connect,
                       {}};
        return cli::MonitorOnScreen(
            call, [&] { return std::make_unique<PlayedScreen>(std::move(steps), shown); },
            cli::SflowWatch("interface", name));
    }

    std::optional<std::string> Answer(const std::string& operation)
    {
        if (dies.exchange(false)) return std::nullopt;
        if (operation.find("sflow-top-talkers") != std::string::npos)
            return cli_test::RpcError("error", "p1 is not sampled; set a sampling-rate");
        if (isAway)
            return cli_test::RpcError("warning", "sflow-mgr (process 812) does not answer since 12 s") +
                   Data("");
        seen += 1000;
        if (operation.find("<name>p1</name>") != std::string::npos) return SflowState(Interface("p1", seen));
        return SflowState(Interface("p1", seen) + Interface("p2", seen));
    }

    std::atomic<bool> dies = false, isAway = false, refuses = false;
    int seen = 0;
    std::atomic<int> connections = 0;
    std::ostringstream out;
    cli::ShellState state;
    std::vector<std::string> shown;
    Peer peer{[this](const std::string& operation) { return Answer(operation); }};
};

TEST_F(MonitorScreenTest, LooksIntoAPortAsksForThatAloneAndGoesBack)
{
    EXPECT_TRUE(Run({{"> p1", {Key::kEnter, {}}},
                     {"p1 is not sampled; set a sampling-rate", {Key::kEscape, {}}},
                     {"  p2 ", Typed("q")}}));
    const std::vector<std::string> requests = peer.Requests();
    EXPECT_THAT(requests.front(), HasSubstr("<interface><name/>"));
    EXPECT_THAT(requests, Contains(HasSubstr("<interface><name>p1</name>")));
    EXPECT_THAT(requests, Contains(HasSubstr("<interface>p1</interface></sflow-top-talkers>")));
    EXPECT_EQ(1, connections);
}

TEST_F(MonitorScreenTest, AManagerThatIsAwayIsSaidAndItComesBack)
{
    EXPECT_TRUE(Run(
        {{"7 samples/s", {}, [this] { isAway = true; }},
         {"no figures: sflow-mgr (process 812) does not answer since 12 s", {}, [this] { isAway = false; }},
         {"7 samples/s", Typed("q")}}));
    bool isSaid = false;
    for (const std::string& screen : shown)
        if (screen.find("no figures: sflow-mgr") != std::string::npos) {
            isSaid = true;
            EXPECT_THAT(screen, HasSubstr("> p1                    -"));
        }
    EXPECT_TRUE(isSaid);
}

TEST_F(MonitorScreenTest, ADatabaseThatDiesIsSaidAndIsConnectedToAgain)
{
    EXPECT_TRUE(Run({{"7 samples/s",
                      {},
                      [this] {
                          refuses = true;
                          dies = true;
                      }},
                     {"no figures: peer: Connection refused", {}, [this] { refuses = false; }},
                     {"7 samples/s", Typed("q")}}));
    EXPECT_GE(connections, 3);
}

TEST_F(MonitorScreenTest, KeysWorkWhileAnAnswerIsAwaited)
{
    std::atomic<bool> isLate = false;
    std::promise<void> goesOn;
    std::shared_future<void> mayGoOn = goesOn.get_future().share();
    Peer slow([&](const std::string& operation) {
        if (isLate) mayGoOn.wait();
        return Answer(operation);
    });
    const cli::Arguments arguments;
    const std::function<std::unique_ptr<netconf::Client>()> connect = [&] { return slow.Connect(); };
    cli::Call call{arguments, cli::Format::kText, nullptr, cli_test::Yang(), out, out, state, 79, connect,
                   {}};
    std::deque<Step> steps{{"7 samples/s", {}, [&] { isLate = true; }},
                           {"no figures: the database does not answer since ", Typed("h")},
                           {"Any key goes back", Typed("x")},
                           {"no figures: the database", Typed("q"), [&] { goesOn.set_value(); }}};
    EXPECT_TRUE(cli::MonitorOnScreen(
        call, [&] { return std::make_unique<PlayedScreen>(std::move(steps), shown); },
        cli::SflowWatch("interface", "")));
}

TEST_F(MonitorScreenTest, APauseAsksNothing)
{
    std::size_t requests = 0;
    EXPECT_TRUE(Run({{"7 samples/s", Typed("p")},
                     {"paused since", {}, [&] { requests = peer.Requests().size(); }},
                     {"paused since", {}},
                     {"paused since", Typed("p"), [&] { EXPECT_EQ(requests, peer.Requests().size()); }},
                     {"Z", {}, [&] { dies = false; }},
                     {"  p2 ", Typed("q")}}));
}

TEST_F(MonitorScreenTest, WithoutATerminalThatCanBeFilledItSaysSo)
{
    const cli::Arguments arguments;
    const std::function<std::unique_ptr<netconf::Client>()> connect = [&] { return peer.Connect(); };
    cli::Call call{arguments, cli::Format::kText, nullptr, cli_test::Yang(), out, out, state, 79, connect,
                   {}};
    EXPECT_FALSE(cli::MonitorOnScreen(
        call, [] { return nullptr; }, cli::SflowWatch("interface", "")));
}

TEST_F(MonitorScreenTest, WithoutADatabaseAtTheBeginItFails)
{
    refuses = true;
    EXPECT_THROW(Run({}), netconf::ConnectionError);
    EXPECT_TRUE(shown.empty());
}

}  // namespace
