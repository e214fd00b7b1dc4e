// SPDX-License-Identifier: Apache-2.0
// A small HTTP server on a loopback address for monitoring: GET and HEAD of /metrics, nothing else. What a
// client can cost is bounded: few connections, short headers, short waits. There is no access control, which
// is why it listens on loopback addresses only. Used by cdbd and sflow-mgr.

#ifndef METRICS_SERVER_H
#define METRICS_SERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace metrics {

/// The text format of Prometheus, as text.h writes it.
inline constexpr std::string_view kContentType = "text/plain; version=0.0.4; charset=utf-8";

class Server {
public:
    /// One connection more is ended at once.
    static constexpr std::size_t kMaxConnections = 16;
    /// Bytes of a request's header, its first line included.
    static constexpr std::uint32_t kMaxHeader = 8192;
    /// A request's header has to be complete within the first after the connection or the answer before it,
    /// and the client has to take an answer within the second.
    static constexpr std::chrono::milliseconds kReadLimit{10'000};
    static constexpr std::chrono::milliseconds kWriteLimit{30'000};

    /// Listens; `address` is an IPv4 or IPv6 address of the loopback interface, and `port` 0 is one that the
    /// kernel chooses. `text` makes the metrics, called from the loop, once a request. Throws
    /// std::invalid_argument for any other address and std::system_error if it can't listen; both name the
    /// address. Loop and timers must outlive it.
    Server(boost::asio::io_context& loop, base::Timers& timers, const std::string& address,
           std::uint16_t port, std::function<std::string()> text);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    /// Ends all connections.
    ~Server();

    /// The port that it listens on, host byte order.
    [[nodiscard]] std::uint16_t Port() const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace metrics

#endif
