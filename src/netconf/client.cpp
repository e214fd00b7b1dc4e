// SPDX-License-Identifier: Apache-2.0
#include "netconf/client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "netconf/xml.h"

namespace netconf {
namespace {

using Clock = std::chrono::steady_clock;

std::string ErrnoText(int error) { return std::strerror(error); }

}  // namespace

Client Client::Connect(const std::string& socketPath, const ClientOptions& options)
{
    return Client(ConnectSocket(socketPath), socketPath, options);
}

Client::Client(base::UniqueFd socket, std::string name, const ClientOptions& options)
    : m_socket(std::move(socket)), m_name(std::move(name)), m_callTimeout(options.callTimeout)
{
    // Every wait is a poll with a deadline, so neither reading nor writing may block by itself.
    const int flags = ::fcntl(m_socket.Get(), F_GETFL);
    if (flags < 0 || ::fcntl(m_socket.Get(), F_SETFL, flags | O_NONBLOCK) != 0) Fail(ErrnoText(errno));
    SayHello(options);
}

Reply Client::Call(std::string_view operation)
{
    Send(operation);
    return Receive();
}

void Client::Send(std::string_view operation)
{
    std::string message = "<rpc xmlns=\"";
    message.append(kBaseNamespace)
        .append("\" message-id=\"")
        .append(std::to_string(++m_lastId))
        .append("\">");
    message.append(operation).append("</rpc>");
    std::string frame = FrameHeader(m_framing, message.size());
    frame.append(message).append(FrameTrailer(m_framing));
    Write(frame, Clock::now() + m_callTimeout);
}

Reply Client::Receive()
{
    auto reply = ParseReply(ReceiveMessage());
    if (!reply) Fail(reply.error());
    return *std::move(reply);
}

void Client::SendRaw(std::string_view bytes) { Write(bytes, Clock::now() + m_callTimeout); }

std::string Client::ReceiveMessage() { return Read(Clock::now() + m_callTimeout); }

void Client::SayHello(const ClientOptions& options)
{
    const Deadline deadline = Clock::now() + options.connectTimeout;
    Hello ours;
    ours.capabilities.emplace_back(kBase10);
    if (options.offerChunked) ours.capabilities.emplace_back(kBase11);
    Write(ToXml(ours).append(FrameTrailer(Framing::kEndOfMessage)), deadline);
    const std::string first = Read(deadline);
    auto theirs = ParseHello(first);
    if (!theirs) {
        // A server that gives no session may say why instead of a hello.
        const auto refusal = ParseReply(first);
        Fail(refusal && !refusal->errors.empty() ? "no session: " + refusal->errors[0].message
                                                 : theirs.error());
    }
    m_server = *std::move(theirs);
    if (m_server.sessionId == 0) Fail("the server's <hello> has no <session-id>");
    const auto framing = CommonFraming(ours, m_server);
    if (!framing) Fail("the server speaks no version of NETCONF that this client knows");
    m_framing = *framing;
    m_reader.SetFraming(m_framing);
}

void Client::Write(std::string_view bytes, Deadline deadline)
{
    while (!bytes.empty()) {
        const ssize_t written = ::send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        // The server may have said why before it closed; Read finds that.
        if (errno == EPIPE || errno == ECONNRESET) return;
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) Fail(ErrnoText(errno));
        AwaitReady(POLLOUT, deadline);
    }
}

std::string Client::Read(Deadline deadline)
{
    std::array<char, 65536> buffer;
    for (;;) {
        if (auto message = m_reader.Next()) return *std::move(message);
        if (!m_reader.Problem().empty()) Fail("the server's framing is broken: " + m_reader.Problem());
        const ssize_t count = ::recv(m_socket.Get(), buffer.data(), buffer.size(), 0);
        if (count > 0) {
            m_reader.Append({buffer.data(), static_cast<std::size_t>(count)});
            continue;
        }
        if (count == 0) Fail("the server has closed the session");
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) Fail(ErrnoText(errno));
        AwaitReady(POLLIN, deadline);
    }
}

void Client::AwaitReady(short events, Deadline deadline) const
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) Fail("no answer in time");
    pollfd wait{m_socket.Get(), events, 0};
    if (::poll(&wait, 1, static_cast<int>(left.count())) < 0 && errno != EINTR) Fail(ErrnoText(errno));
}

void Client::Fail(const std::string& what) const { throw ConnectionError(m_name + ": " + what); }

}  // namespace netconf
