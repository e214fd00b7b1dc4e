// The real time, on an Asio loop.

#include "ipc/timers.h"

#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace ipc {
namespace {

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

private:
    boost::asio::io_context& m_loop;
};

}  // namespace

std::unique_ptr<Timers> MakeTimers(boost::asio::io_context& loop)
{
    return std::make_unique<LoopTimers>(loop);
}

}  // namespace ipc
