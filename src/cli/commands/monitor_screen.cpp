// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/monitor_screen.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <csignal>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/commands/inquiry.h"
#include "cli/commands/interrupt.h"
#include "cli/commands/request.h"
#include "cli/commands/show.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"
#include "cli/screens/watch_screen.h"
#include "netconf/requests.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kBetweenLooks{1000};
/// From then on it is said that no answer has come.
constexpr milliseconds kLate{2500};
/// A connection that is being made is looked after that often.
constexpr milliseconds kBetweenTries{100};

constexpr const char* kNoneYet = "asked for";

std::string TimeOfDay()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%H:%M:%SZ", &parts);
    return text.data();
}

std::string ShortHostName()
{
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0) return "switch";
    const std::string text = name.data();
    return text.substr(0, text.find('.'));
}

std::string FirstMessage(const netconf::Reply& reply, const std::string& otherwise)
{
    return reply.errors.empty() ? otherwise : reply.errors.front().message;
}

class ScreenMonitor {
public:
    ScreenMonitor(Call& call, Inquiry& inquiry, Screen& screen, SflowWatch watch)
        : m_call(call), m_inquiry(inquiry), m_screen(screen), m_watch(std::move(watch))
    {
        m_view.inside = m_watch.Name();
        m_view.beganInside = !m_view.inside.empty();
    }

    /// The signal that ends the process; nullopt if it is only the command that ends.
    std::optional<int> Run(const Interrupt& signals)
    {
        while (!m_view.left) {
            AskIfDue();
            TakeAnswer();
            Draw();
            if (!Wait(signals.Descriptor())) return SIGHUP;
            while (const auto signal = signals.Take()) {
                if (*signal == SIGINT) return std::nullopt;
                if (*signal != SIGWINCH) return signal;
                m_screen.Resize();
            }
            TakeKeys();
        }
        return std::nullopt;
    }

private:
    void AskIfDue()
    {
        const auto now = Clock::now();
        if (m_inquiry.IsBusy() || m_view.paused || now < m_nextLook) return;
        m_nextLook = std::max(m_nextLook + kBetweenLooks, now);
        m_asked = now;
        m_asksFor = m_view.inside;
        std::vector<std::string> operations{
            netconf::Get(StateFilter("<oam><sflow>" + m_watch.Filter() + "</sflow></oam>"))};
        if (!m_asksFor.empty() && m_watch.List() == "interface")
            operations.push_back(netconf::SflowTopTalkers(m_asksFor));
        m_inquiry.Ask(std::move(operations));
    }

    void TakeAnswer()
    {
        auto answer = m_inquiry.Take();
        if (!answer) {
            const auto passed = Clock::now() - m_asked;
            if (m_inquiry.IsBusy() && passed >= kLate)
                m_failure = "the database does not answer since " +
                            std::to_string(std::chrono::duration_cast<std::chrono::seconds>(passed).count()) +
                            " s";
            return;
        }
        // What has been asked for before a port was entered or left is not what is shown.
        if (m_asksFor != m_view.inside || m_view.paused) return;
        if (answer->replies.empty()) {
            m_failure = std::move(answer->failure);
            return;
        }
        try {
            TakeState(answer->replies.front());
            if (answer->replies.size() > 1) TakeTalkers(answer->replies.back());
        } catch (const Error& error) {
            m_failure = error.what();
        }
    }

    void TakeState(const netconf::Reply& reply)
    {
        m_failure.clear();
        if (!reply.ok) {
            m_failure = FirstMessage(reply, "the database refused without a reason");
            return;
        }
        const Tree state = ParseReply(m_call.yang, reply.data);
        m_lookedAt = Clock::now();
        Watched watched = m_watch.Look(state.get(), m_lookedAt);
        if (!watched.isKnown) {
            // The rows stay, without their figures.
            m_failure = FirstMessage(reply, "the sFlow manager does not answer");
            return;
        }
        m_watched = std::move(watched);
    }

    void TakeTalkers(const netconf::Reply& reply)
    {
        m_talkers = Talkers{};
        if (!reply.ok) {
            m_talkers.problem = FirstMessage(reply, "the database refused without a reason");
            return;
        }
        try {
            const Tree output = ParseOutput(m_call.yang, reply, "sflow-top-talkers");
            m_talkers = TalkersOf(Children(output.get()));
        } catch (const Error& error) {
            m_talkers.problem = error.what();
        }
    }

    [[nodiscard]] WatchScene Scene() const
    {
        return {m_watch,       m_watched, m_view.paused ? m_lookedAt : Clock::now(),
                TimeOfDay(),   m_host,    m_failure,
                m_pausedSince, m_talkers};
    }

    void Draw() { m_screen.Draw(WatchScreen(Scene(), m_view, m_screen.Size(), m_screen.Characters())); }

    /// For a key, a signal, an answer, or the next look. False if the terminal has gone.
    [[nodiscard]] bool Wait(int signals) const
    {
        std::array<pollfd, 3> wait{pollfd{m_screen.Descriptor(), POLLIN, 0}, pollfd{signals, POLLIN, 0},
                                   pollfd{m_inquiry.Descriptor(), POLLIN, 0}};
        auto left = std::chrono::ceil<milliseconds>(m_nextLook - Clock::now());
        // While an answer is outstanding, how long it takes is shown.
        if (m_inquiry.IsBusy() || m_view.paused) left = kBetweenLooks;
        if (m_inquiry.IsBusy() && wait[2].fd < 0) left = kBetweenTries;
        ::poll(wait.data(), wait.size(), static_cast<int>(std::max(left, milliseconds(0)).count()));
        return (wait[0].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
    }

    void TakeKeys()
    {
        while (const auto press = m_screen.Read()) {
            const std::string inside = m_view.inside;
            const bool wasPaused = m_view.paused;
            OnKey(m_view, *press, RowsOf(m_watched, m_view), RowsOfEntries(Scene(), m_screen.Size()));
            if (m_view.left) return;
            if (m_view.paused != wasPaused) {
                m_pausedSince = m_view.paused ? TimeOfDay() : "";
                m_failure = m_view.paused ? m_failure : kNoneYet;  // those of before are none of now
            }
            if (m_view.inside == inside) continue;
            Turn();
            m_talkers = Talkers{};
            m_nextLook = Clock::now();
        }
    }

    /// Into the entry that the view is inside of now, or out of it.
    void Turn()
    {
        m_watch.Turn(m_view.inside);
        if (!m_view.inside.empty()) {
            m_all = m_watched;
            return;
        }
        m_watched = std::move(m_all);
        // They are of before.
        for (WatchedEntry& entry : m_watched.entries) entry.rates = {};
    }

    Call& m_call;
    Inquiry& m_inquiry;
    Screen& m_screen;
    SflowWatch m_watch;
    Watched m_watched;
    Watched m_all;  // the last look at all, while one is looked into
    WatchView m_view;
    Talkers m_talkers;
    std::string m_host = ShortHostName();
    std::string m_failure = kNoneYet;
    std::string m_pausedSince;
    std::string m_asksFor;
    Clock::time_point m_nextLook = Clock::now();
    Clock::time_point m_asked, m_lookedAt;
};

}  // namespace

bool MonitorOnScreen(Call& call, const std::function<std::unique_ptr<Screen>()>& open, SflowWatch watch)
{
    std::optional<int> ends;
    {
        // Before any thread, so that each has the signals blocked.
        const Interrupt signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH};
        Inquiry inquiry(call.connect);
        const std::unique_ptr<Screen> screen = open();
        if (!screen) return false;
        ends = ScreenMonitor(call, inquiry, *screen, std::move(watch)).Run(signals);
    }
    if (ends) ::raise(*ends);
    return true;
}

}  // namespace cli
