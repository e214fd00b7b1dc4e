// SPDX-License-Identifier: Apache-2.0
// The real time, on an Asio loop.

#include "base/timers.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/timerfd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

namespace base {
namespace {

using Clock = std::chrono::steady_clock;  // the kernel's CLOCK_MONOTONIC

// An alarm on any Timers.
class AlarmByTimers final : public Alarm {
public:
    AlarmByTimers(Timers& timers, std::function<void()> action)
        : m_timers(timers), m_action(std::move(action))
    {
    }
    void Set(std::chrono::milliseconds delay) override { m_pending = m_timers.After(delay, m_action); }
    void Cancel() override { m_pending = nullptr; }

private:
    Timers& m_timers;
    const std::function<void()> m_action;
    std::shared_ptr<void> m_pending;
};

// An alarm with a descriptor of its own, for which the loop waits all the time.
class LoopAlarm final : public Alarm {
public:
    LoopAlarm(boost::asio::io_context& loop, std::function<void()> action)
        : m_state(std::make_shared<State>(loop, std::move(action)))
    {
        Wait(m_state);
    }

    void Set(std::chrono::milliseconds delay) override
    {
        m_state->isSet = true;
        m_state->due = Clock::now() + delay;
        m_state->Arm(std::max<std::chrono::nanoseconds>(delay, std::chrono::nanoseconds(1)));
    }

    void Cancel() override
    {
        m_state->isSet = false;
        m_state->Disarm();
    }

private:
    struct State {
        State(boost::asio::io_context& loop, std::function<void()> what)
            : timer(loop, MakeTimer()), action(std::move(what))
        {
        }

        // The timer is never read: arming it makes it unreadable again.
        void Arm(std::chrono::nanoseconds delay)
        {
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(delay);
            itimerspec time{};
            time.it_value = {.tv_sec = seconds.count(), .tv_nsec = (delay - seconds).count()};
            (void)::timerfd_settime(timer.native_handle(), 0, &time, nullptr);
        }
        void Disarm() { Arm(std::chrono::nanoseconds(0)); }

        boost::asio::posix::stream_descriptor timer;
        const std::function<void()> action;
        Clock::time_point due;
        bool isSet = false;
    };

    static int MakeTimer()
    {
        const int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        if (timer < 0) throw std::system_error(errno, std::generic_category(), "timer");
        return timer;
    }

    static void Wait(const std::shared_ptr<State>& state)
    {
        state->timer.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                                [held = std::weak_ptr<State>(state)](const boost::system::error_code& error) {
                                    const auto still = held.lock();
                                    if (!error && still != nullptr) OnReadable(still);
                                });
    }

    // Waits again once the timer is not readable, also if the action throws.
    static void OnReadable(const std::shared_ptr<State>& state)
    {
        struct Waiting {
            const std::shared_ptr<State>& state;
            ~Waiting()
            {
                if (!state->isSet) state->Disarm();
                Wait(state);
            }
        } const waiting{state};
        // The alarm was set again or cancelled after the timer became readable.
        if (!state->isSet || Clock::now() < state->due) return;
        state->isSet = false;
        state->action();
    }

    const std::shared_ptr<State> m_state;
};

struct Pending {
    Pending(boost::asio::io_context& loop, std::function<void()> what) : timer(loop), action(std::move(what))
    {
    }
    boost::asio::steady_timer timer;
    std::function<void()> action;
};

class LoopTimers final : public Timers {
public:
    explicit LoopTimers(boost::asio::io_context& loop) : m_loop(loop) {}

    [[nodiscard]] Clock::time_point Now() const override { return Clock::now(); }

    std::shared_ptr<void> After(std::chrono::milliseconds delay, std::function<void()> action) override
    {
        auto pending = std::make_shared<Pending>(m_loop, std::move(action));
        pending->timer.expires_after(delay);
        pending->timer.async_wait(
            [held = std::weak_ptr<Pending>(pending)](const boost::system::error_code& error) {
                const auto still = held.lock();
                if (error || still == nullptr) return;
                const auto due = std::move(still->action);  // may drop the last handle
                due();
            });
        return pending;
    }

    std::unique_ptr<Alarm> MakeAlarm(std::function<void()> action) override
    {
        return std::make_unique<LoopAlarm>(m_loop, std::move(action));
    }

private:
    boost::asio::io_context& m_loop;
};

}  // namespace

std::shared_ptr<void> Timers::At(Clock::time_point time, std::function<void()> action)
{
    const auto delay = std::chrono::ceil<std::chrono::milliseconds>(time - Now());
    return After(std::max(delay, std::chrono::milliseconds(0)), std::move(action));
}

std::unique_ptr<Alarm> Timers::MakeAlarm(std::function<void()> action)
{
    return std::make_unique<AlarmByTimers>(*this, std::move(action));
}

std::unique_ptr<Timers> MakeTimers(boost::asio::io_context& loop)
{
    return std::make_unique<LoopTimers>(loop);
}

}  // namespace base
