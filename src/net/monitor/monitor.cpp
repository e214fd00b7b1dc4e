// SPDX-License-Identifier: Apache-2.0
// Runs the mirror of the kernel's tables on the loop: sockets, turns, and the delay before everything is read
// again.

#include "net/monitor/monitor.h"

#include <chrono>
#include <cstdint>
#include <system_error>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include "base/timers.h"
#include "log/log.h"
#include "net/bridges/bridges.h"
#include "net/links/link_speed.h"
#include "net/monitor/link_follower.h"
#include "net/resolver/resolver.h"
#include "net/routes/kernel_routes.h"
#include "net/routes/routes.h"

namespace net {
namespace {

// How long Start waits for links that keep changing before it continues from the loop.
constexpr std::chrono::seconds kFirstTime{2};
// Between a loss and the next dump: during a burst of changes, an immediate dump would be interrupted too.
constexpr std::chrono::milliseconds kAgain{100};
constexpr int kSettingsATurn = 64;

}  // namespace

class Monitor::Impl {
public:
    Impl(boost::asio::io_context& loop, base::Timers& timers, base::Worker& worker)
        : m_timers(timers),
          m_routes(m_questions),
          m_resolver(m_bridges, m_routes),
          m_follower(m_links, m_bridges, m_speeds, worker,
                     {[this](const Link& link, const Placement& placement) {
                          m_resolver.PutDevice(link, placement);
                      },
                      [this](std::uint32_t ifIndex) { m_resolver.RemoveDevice(ifIndex); }}),
          m_routeFollower({[this] { m_routes.Forget(); }, [this] { m_questions.ForgetRules(); }}),
          m_linkEvents(loop, m_follower.Descriptor()),
          m_settingEvents(loop),
          m_routeEvents(loop, m_routeFollower.Descriptor())
    {
        if (m_settings.Descriptor() >= 0) m_settingEvents.assign(m_settings.Descriptor());
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl()
    {
        Stop();
        // Other members own the sockets.
        m_linkEvents.release();
        m_routeEvents.release();
        if (m_settingEvents.is_open()) m_settingEvents.release();
    }

    void Start()
    {
        m_alive = std::make_shared<bool>(true);
        const auto end = std::chrono::steady_clock::now() + kFirstTime;
        m_follower.Synchronise();
        while (m_follower.Turn() || m_follower.Synchronising() || m_follower.NeedsSynchronise()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                slog::Notice("links change faster than they can be read; going on with what is known");
                break;
            }
            if (m_follower.NeedsSynchronise()) m_follower.Synchronise();
        }
        m_follower.DumpBeside([this] {
            if (m_alive != nullptr) Follow();
        });
        LinkTurn();
        if (m_settingEvents.is_open()) AwaitSettings();
        AwaitRoutes();
    }

    void Stop()
    {
        m_alive.reset();
        m_again.reset();
        boost::system::error_code ignored;  // nothing was awaited
        m_linkEvents.cancel(ignored);
        m_routeEvents.cancel(ignored);
        if (m_settingEvents.is_open()) m_settingEvents.cancel(ignored);
    }

    Links& CurrentLinks() { return m_links; }
    Forwarding& CurrentForwarding() { return m_resolver; }

private:
    // A handler that is under way at Stop finds this expired; a turn that a later one has replaced finds
    // another number.
    using Alive = std::weak_ptr<bool>;

    void LinkTurn()
    {
        const bool more = m_follower.Turn();
        if (m_follower.NeedsSynchronise() && m_again == nullptr) {
            m_again = m_timers.After(kAgain, [this] {
                m_again.reset();
                m_follower.Synchronise();
                Follow();
            });
        }
        const auto next = [this, alive = Alive(m_alive), turn = ++m_turn](const auto&... error) {
            if (!alive.expired() && !(error || ... || false) && turn == m_turn) LinkTurn();
        };
        if (more)
            boost::asio::post(m_linkEvents.get_executor(), next);
        else
            m_linkEvents.async_wait(boost::asio::posix::stream_descriptor::wait_read, next);
    }

    // Takes a turn now, even if no message has come.
    void Follow()
    {
        boost::system::error_code ignored;
        m_linkEvents.cancel(ignored);
        LinkTurn();
    }

    void AwaitSettings()
    {
        m_settingEvents.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                                   [this, alive = Alive(m_alive)](const boost::system::error_code& error) {
                                       if (error || alive.expired()) return;
                                       TakeSettings();
                                       Follow();
                                       AwaitSettings();
                                   });
    }

    void TakeSettings()
    {
        try {
            for (int i = 0; i < kSettingsATurn; ++i) {
                const auto received =
                    m_settings.Receive([this](std::uint32_t ifIndex) { m_follower.Measure(ifIndex); });
                if (received == NetlinkSocket::Received::kNothing) break;
                if (received == NetlinkSocket::Received::kLost) m_follower.MeasureAll();
            }
        } catch (const std::system_error& error) {
            slog::Info("changes of links' speeds can't be read: {}", error.what());
            m_follower.MeasureAll();
        }
    }

    void AwaitRoutes()
    {
        m_routeEvents.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                                 [this, alive = Alive(m_alive)](const boost::system::error_code& error) {
                                     if (error || alive.expired()) return;
                                     m_routeFollower.Turn();
                                     AwaitRoutes();
                                 });
    }

    base::Timers& m_timers;
    Links m_links;
    Bridges m_bridges;
    const std::shared_ptr<LinkSpeeds> m_speeds = std::make_shared<LinkSpeeds>();
    SpeedChanges m_settings{m_speeds->Family()};
    KernelRoutes m_questions;
    Routes m_routes;
    Resolver m_resolver;
    LinkFollower m_follower;
    RouteFollower m_routeFollower;
    boost::asio::posix::stream_descriptor m_linkEvents;
    boost::asio::posix::stream_descriptor m_settingEvents;
    boost::asio::posix::stream_descriptor m_routeEvents;
    std::shared_ptr<bool> m_alive;
    std::shared_ptr<void> m_again;
    std::uint64_t m_turn = 0;
};

Monitor::Monitor(boost::asio::io_context& loop, base::Timers& timers, base::Worker& worker)
    : m_impl(std::make_unique<Impl>(loop, timers, worker))
{
}
Monitor::~Monitor() = default;
void Monitor::Start() { m_impl->Start(); }
void Monitor::Stop() { m_impl->Stop(); }
Links& Monitor::CurrentLinks() { return m_impl->CurrentLinks(); }
Forwarding& Monitor::CurrentForwarding() { return m_impl->CurrentForwarding(); }

}  // namespace net
