// SPDX-License-Identifier: Apache-2.0
// Listens to rtnetlink(7) and ethtool netlink and keeps the links and the forwarding tables as the kernel has
// them. After a loss of messages, it reads everything again.

#ifndef NET_MONITOR_MONITOR_H
#define NET_MONITOR_MONITOR_H

#include <memory>

#include "net/links/links.h"
#include "net/routes/forwarding.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
class Worker;
}  // namespace base

namespace net {

class Monitor {
public:
    /// Opens the sockets. Throws std::system_error. The table is empty until Start. `loop`, `timers` and
    /// `worker` must outlive it. The worker asks for the speeds of links that are new or have changed.
    Monitor(boost::asio::io_context& loop, base::Timers& timers, base::Worker& worker);
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
    ~Monitor();

    /// Reads everything once, then follows it from the loop.
    void Start();
    void Stop();

    [[nodiscard]] Links& CurrentLinks();
    [[nodiscard]] Forwarding& CurrentForwarding();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace net

#endif
