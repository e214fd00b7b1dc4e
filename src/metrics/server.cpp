// SPDX-License-Identifier: Apache-2.0
#include "metrics/server.h"

#include <array>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "base/timers.h"
#include "ipc/acceptor.h"

namespace metrics {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using Response = http::response<http::string_body>;

constexpr std::chrono::milliseconds kDrainLimit{1'000};

using Render = std::function<std::string()>;

Response Answer(http::status status, unsigned version, std::string body)
{
    Response response(status, version);
    const std::string_view type = status == http::status::ok ? kContentType : "text/plain; charset=utf-8";
    response.set(http::field::content_type, {type.data(), type.size()});
    response.body() = std::move(body);
    return response;
}

Response AnswerTo(const http::request<http::empty_body>& request, const Render& render)
{
    const auto path = request.target().substr(0, request.target().find('?'));
    if (path != "/metrics")
        return Answer(http::status::not_found, request.version(), "there is only /metrics here\n");
    if (request.method() != http::verb::get && request.method() != http::verb::head) {
        Response response =
            Answer(http::status::method_not_allowed, request.version(), "/metrics can only be read\n");
        response.set(http::field::allow, "GET, HEAD");
        return response;
    }
    return Answer(http::status::ok, request.version(), render());
}

/// One connection. Lives while an operation is under way.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    using OnEnd = std::function<void(Connection*)>;

    Connection(tcp::socket socket, base::Timers& timers, const Render& render, OnEnd onEnd)
        : m_socket(std::move(socket)), m_timers(timers), m_render(render), m_onEnd(std::move(onEnd))
    {
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Read()
    {
        m_request.emplace();
        m_request->header_limit(Server::kMaxHeader);
        m_deadline = m_timers.After(Server::kReadLimit, [this] { Close(); });
        http::async_read_header(
            m_socket, m_buffer, *m_request,
            [self = shared_from_this()](error_code error, std::size_t) { self->OnRequest(error); });
    }

    /// Closes the socket, which ends what is under way, without calling OnEnd.
    void Abandon()
    {
        m_onEnd = nullptr;
        Close();
    }

private:
    void OnRequest(error_code error);
    void Write(Response response, bool keep, bool withBody);
    void OnWritten(error_code error, bool keep);
    void Drain();

    void Close()
    {
        m_deadline.reset();
        error_code ignored;  // it is the end of the connection in any case
        m_socket.close(ignored);
        if (const OnEnd onEnd = std::exchange(m_onEnd, nullptr)) onEnd(this);
    }

    tcp::socket m_socket;
    base::Timers& m_timers;
    const Render& m_render;
    OnEnd m_onEnd;  // null: ended
    boost::beast::flat_buffer m_buffer{Server::kMaxHeader * 2};
    std::optional<http::request_parser<http::empty_body>> m_request;
    Response m_response;
    std::optional<http::response_serializer<http::string_body>> m_serializer;
    std::array<char, 4096> m_rest{};
    std::shared_ptr<void> m_deadline;
};

void Connection::OnRequest(error_code error)
{
    if (m_onEnd == nullptr) return;
    const bool isHttp = error && error.category() == make_error_code(http::error::bad_method).category();
    if (error == http::error::end_of_stream || error == http::error::partial_message || (error && !isHttp))
        return Close();
    constexpr unsigned kVersion = 11;
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
        return Write(Answer(http::status::request_header_fields_too_large, kVersion, "too long\n"), false,
                     true);
    if (error) return Write(Answer(http::status::bad_request, kVersion, "that is no request\n"), false, true);
    const auto& request = m_request->get();
    // A request with a body is answered, but its body is not read, so the connection ends.
    const bool keep = request.keep_alive() && m_request->is_done();
    Write(AnswerTo(request, m_render), keep, request.method() != http::verb::head);
}

void Connection::Write(Response response, bool keep, bool withBody)
{
    m_response = std::move(response);
    m_response.keep_alive(keep);
    m_response.content_length(m_response.body().size());
    m_deadline = m_timers.After(Server::kWriteLimit, [this] { Close(); });
    m_serializer.emplace(m_response);
    const auto written = [self = shared_from_this(), keep](error_code error, std::size_t) {
        self->OnWritten(error, keep);
    };
    if (withBody)
        http::async_write(m_socket, *m_serializer, written);
    else
        http::async_write_header(m_socket, *m_serializer, written);
}

void Connection::OnWritten(error_code error, bool keep)
{
    if (m_onEnd == nullptr) return;
    m_serializer.reset();
    m_response = {};
    if (error) return Close();
    if (keep) return Read();
    m_socket.shutdown(tcp::socket::shutdown_send, error);
    m_deadline = m_timers.After(kDrainLimit, [this] { Close(); });
    Drain();
}

/// Reads what the peer still sends: closing a socket with unread bytes would take the answer back.
void Connection::Drain()
{
    m_socket.async_read_some(asio::buffer(m_rest),
                             [self = shared_from_this()](error_code error, std::size_t) {
                                 if (self->m_onEnd == nullptr) return;
                                 if (error) return self->Close();
                                 self->Drain();
                             });
}

tcp::endpoint LoopbackEndpoint(const std::string& address, std::uint16_t port)
{
    error_code error;
    const auto parsed = asio::ip::make_address(address, error);
    if (error || !parsed.is_loopback())
        throw std::invalid_argument(
            address + " is no loopback address: metrics have no access control, use " + "127.0.0.1 or ::1");
    return {parsed, port};
}

tcp::acceptor Listen(asio::io_context& loop, const tcp::endpoint& endpoint)
{
    try {
        return {loop, endpoint};
    } catch (const boost::system::system_error& error) {
        throw std::system_error(error.code().value(), std::system_category(),
                                "can't serve metrics at " + endpoint.address().to_string() + " port " +
                                    std::to_string(endpoint.port()));
    }
}

}  // namespace

class Server::Impl {
public:
    Impl(tcp::acceptor listening, base::Timers& timers, Render render)
        : m_timers(timers),
          m_render(std::move(render)),
          m_port(listening.local_endpoint().port()),
          m_acceptor(std::move(listening), timers, "can't take a connection for metrics",
                     [this](tcp::socket socket) { Add(std::move(socket)); })
    {
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl()
    {
        const auto connections = std::exchange(m_connections, {});
        for (const auto& connection : connections) connection->Abandon();
    }

    [[nodiscard]] std::uint16_t Port() const { return m_port; }

private:
    void Add(tcp::socket socket)
    {
        if (m_connections.size() >= kMaxConnections) return;  // closes it
        const auto connection = std::make_shared<Connection>(
            std::move(socket), m_timers, m_render,
            [this](Connection* ended) { m_connections.erase(ended->shared_from_this()); });
        m_connections.insert(connection);
        connection->Read();
    }

    base::Timers& m_timers;
    const Render m_render;
    const std::uint16_t m_port;
    std::set<std::shared_ptr<Connection>> m_connections;
    ipc::Acceptor<tcp> m_acceptor;
};

Server::Server(asio::io_context& loop, base::Timers& timers, const std::string& address, std::uint16_t port,
               std::function<std::string()> text)
    : m_impl(std::make_unique<Impl>(Listen(loop, LoopbackEndpoint(address, port)), timers, std::move(text)))
{
}

Server::~Server() = default;

std::uint16_t Server::Port() const { return m_impl->Port(); }

}  // namespace metrics
