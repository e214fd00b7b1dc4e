// SPDX-License-Identifier: Apache-2.0
// Reads the manager's metrics (see the header).

#include "support/metrics.h"

#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace support {
namespace {

class Connection {
public:
    explicit Connection(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const timeval patience{.tv_sec = 10, .tv_usec = 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
            const int error = errno;
            ::close(m_socket);
            throw std::system_error(error, std::generic_category(), "the metrics");
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { ::close(m_socket); }

    std::string Ask(const std::string& request) const
    {
        if (::send(m_socket, request.data(), request.size(), MSG_NOSIGNAL) < 0) return {};
        std::string answer;
        std::array<char, 16384> part{};
        for (ssize_t got; (got = ::recv(m_socket, part.data(), part.size(), 0)) > 0;)
            answer.append(part.data(), static_cast<std::size_t>(got));
        return answer;
    }

private:
    int m_socket;
};

}  // namespace

Metrics Metrics::Fetch(std::uint16_t port)
{
    const std::string answer =
        Connection(port).Ask("GET /metrics HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    const std::size_t end = answer.find("\r\n\r\n");
    if (!answer.starts_with("HTTP/1.1 200") || end == std::string::npos)
        throw std::runtime_error("no metrics but: " + answer.substr(0, 200));
    return Metrics(answer.substr(end + 4));
}

Metrics::Metrics(const std::string& text)
{
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        const std::size_t blank = line.rfind(' ');
        if (blank == std::string::npos) throw std::runtime_error("no metric: " + line);
        m_values[line.substr(0, blank)] = std::stod(line.substr(blank + 1));
    }
}

double Metrics::Exact(const std::string& line) const
{
    const auto at = m_values.find(line);
    if (at == m_values.end()) throw std::out_of_range("no metric " + line);
    return at->second;
}

std::uint64_t Metrics::At(const std::string& line) const { return static_cast<std::uint64_t>(Exact(line)); }

std::uint64_t Metrics::OfInterface(const std::string& name, const std::string& what) const
{
    return At("sflow_interface_" + what + "{interface=\"" + name + "\"}");
}

bool Metrics::AnyUnsampled() const
{
    constexpr std::string_view kSampled = "sflow_interface_sampled{";
    for (auto at = m_values.lower_bound(std::string(kSampled));
         at != m_values.end() && at->first.starts_with(kSampled); ++at) {
        const std::string interface = "{" + at->first.substr(kSampled.size());
        if (at->second == 0 && Exact("sflow_interface_present" + interface) != 0 &&
            Exact("sflow_interface_sampling_rate" + interface) != 0)
            return true;
    }
    return false;
}

std::uint64_t Metrics::OfCollector(const std::string& name, const std::string& what) const
{
    return At("sflow_collector_" + what + "{collector=\"" + name + "\"}");
}

std::string Metrics::Source() const
{
    const std::string before = "sflow_manager_source_info{source=\"";
    for (const auto& [line, value] : m_values)
        if (line.starts_with(before)) return line.substr(before.size(), line.size() - before.size() - 2);
    throw std::out_of_range("no metric sflow_manager_source_info");
}

}  // namespace support
