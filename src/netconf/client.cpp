// SPDX-License-Identifier: Apache-2.0
#include "netconf/client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "base/number.h"
#include "netconf/xml.h"

namespace netconf {
namespace {

/// <rpc-reply> stands at depth 1, <data> and <rpc-error> at 2, an error's elements at 3, what is in
/// <error-info> at 4.
class ReplyVisitor final : public XmlVisitor {
public:
    explicit ReplyVisitor(Reply& reply) : m_reply(reply) {}

    /// The name of the first element without a namespace; empty if there is none.
    [[nodiscard]] const std::string& Bare() const { return m_bare; }
    [[nodiscard]] bool IsReply() const { return m_isReply; }
    [[nodiscard]] std::pair<std::size_t, std::size_t> Data() const { return {m_dataBegin, m_dataEnd}; }
    /// An element of another namespace, and the bytes inside it.
    struct Output {
        std::string name;
        std::size_t begin = 0;
        std::size_t end = 0;
    };
    [[nodiscard]] const std::vector<Output>& Outputs() const { return m_outputs; }

    bool OnStart(const XmlElement& element) override
    {
        // No valid reply has such elements, and libyang's parser does not survive two of one name.
        if (element.ns.empty() && element.depth > 1) {
            m_bare = element.name;
            return false;
        }
        const std::string_view name = element.ns == kBaseNamespace ? element.name : std::string_view{};
        if (element.depth == 1) StartReply(name, element);
        if (element.depth == 2) StartSecond(name, element);
        if (!m_inError) return true;
        if (element.depth == 3) {
            m_field = FieldOf(name);
            m_inInfo = name == "error-info";
        }
        if (element.depth == 4 && m_inInfo) {
            m_reply.errors.back().info.emplace_back(element.name, "");
            m_field = &m_reply.errors.back().info.back().second;
        }
        return true;
    }

    bool OnEnd(std::size_t depth, std::size_t begin) override
    {
        if (depth == 2) {
            if (m_inData) m_dataEnd = begin;
            if (!m_output.empty()) m_outputs.push_back({std::exchange(m_output, {}), m_outputBegin, begin});
            m_inData = false;
            m_inError = false;
        }
        if (depth == 3) m_inInfo = false;
        if (depth == 3 || depth == 4) m_field = nullptr;
        return true;
    }

    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (m_field != nullptr) m_field->append(text);
        return true;
    }

private:
    void StartReply(std::string_view name, const XmlElement& element)
    {
        m_isReply = name == "rpc-reply";
        for (const XmlAttribute& attribute : element.attributes)
            if (attribute.ns == kHistoryNamespace) TakeNote(attribute.name, attribute.value);
    }

    void TakeNote(std::string_view name, std::string_view value)
    {
        if (name == "commit") m_reply.commit = base::ToNumber<std::uint64_t>(value);
        if (name == "changes") m_reply.changes = base::ToNumber<std::size_t>(value);
        if (name == "acknowledged")
            ForEachPair(value, [this](std::string_view process, std::uint32_t microseconds) {
                m_reply.acknowledged.emplace_back(process, std::chrono::microseconds(microseconds));
            });
        if (name == "also-edited-by")
            ForEachPair(value, [this](std::string_view user, std::uint32_t edits) {
                m_reply.alsoEditedBy.emplace_back(user, edits);
            });
    }

    /// NAME=NUMBER, with a blank between two; others are passed over.
    template <typename Take>
    static void ForEachPair(std::string_view list, const Take& take)
    {
        while (!list.empty()) {
            const std::string_view each = list.substr(0, list.find(' '));
            list.remove_prefix(std::min(each.size() + 1, list.size()));
            const std::size_t equals = each.find('=');
            if (equals == std::string_view::npos) continue;
            const auto number = base::ToNumber<std::uint32_t>(each.substr(equals + 1));
            if (number) take(each.substr(0, equals), *number);
        }
    }

    void StartSecond(std::string_view name, const XmlElement& element)
    {
        m_inData = name == "data";
        m_inError = name == "rpc-error";
        if (name.empty()) {
            m_output = element.name;
            m_outputBegin = element.end;
        }
        if (m_inData) m_dataBegin = element.end;
        if (m_inError) m_reply.errors.push_back(RpcError{"", "", "", "", "", "", {}, {}});
    }

    std::string* FieldOf(std::string_view name)
    {
        RpcError& error = m_reply.errors.back();
        if (name == "error-type") return &error.type;
        if (name == "error-tag") return &error.tag;
        if (name == "error-severity") return &error.severity;
        if (name == "error-app-tag") return &error.appTag;
        if (name == "error-path") return &error.path;
        if (name == "error-message") return &error.message;
        return nullptr;
    }

    Reply& m_reply;
    std::string* m_field = nullptr;
    std::string m_bare;
    bool m_isReply = false;
    bool m_inData = false;
    bool m_inError = false;
    bool m_inInfo = false;
    std::size_t m_dataBegin = 0;
    std::size_t m_dataEnd = 0;
    std::string m_output;  // the name of the open element of another namespace
    std::size_t m_outputBegin = 0;
    std::vector<Output> m_outputs;
};

using Clock = std::chrono::steady_clock;

std::string ErrnoText(int error) { return std::strerror(error); }

}  // namespace

base::expected<Reply, std::string> ParseReply(std::string xml)
{
    Reply reply;
    reply.xml = std::move(xml);
    ReplyVisitor visitor(reply);
    if (auto problem = ReadXml(reply.xml, visitor))
        return base::Unexpected("the reply can't be read: " + *problem);
    if (!visitor.Bare().empty())
        return base::Unexpected("the element <" + visitor.Bare() +
                                "> of the server's message has no namespace");
    if (!visitor.IsReply()) return base::Unexpected("the server's message is no <rpc-reply>");
    const auto [begin, end] = visitor.Data();
    if (end > begin) reply.data = reply.xml.substr(begin, end - begin);
    for (const auto& output : visitor.Outputs())
        if (output.end > output.begin)
            reply.output[output.name] = reply.xml.substr(output.begin, output.end - output.begin);
    reply.ok = std::all_of(reply.errors.begin(), reply.errors.end(),
                           [](const RpcError& error) { return error.IsWarning(); });
    return reply;
}

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
    while (m_owed > 0) ReceiveMessage();
    Send(operation);
    return Receive();
}

std::optional<Reply> Client::CallWithin(std::string_view operation, std::chrono::milliseconds time)
{
    while (m_owed > 0)
        if (!ReceiveMessageWithin(time)) return std::nullopt;
    Send(operation);
    auto message = ReceiveMessageWithin(time);
    if (!message) return std::nullopt;
    return Parsed(*std::move(message));
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
    ++m_owed;
    Write(frame, Clock::now() + m_callTimeout);
}

Reply Client::Receive() { return Parsed(ReceiveMessage()); }

Reply Client::Parsed(std::string message) const
{
    auto reply = ParseReply(std::move(message));
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

std::optional<std::string> Client::ReceiveMessageUnless(int stop)
{
    constexpr int kForEver = -1;
    for (;;) {
        std::array<pollfd, 2> wait{pollfd{m_socket.Get(), POLLIN, 0}, pollfd{stop, POLLIN, 0}};
        // What has been read already comes first, but not before the end.
        auto message = ReadAvailable();
        const int timeout = message ? 0 : kForEver;
        if (::poll(wait.data(), wait.size(), timeout) < 0 && errno != EINTR) Fail(ErrnoText(errno));
        if (wait[1].revents != 0) return std::nullopt;
        if (message) return message;
    }
}

std::optional<std::string> Client::ReceiveMessageWithin(std::chrono::milliseconds time)
{
    const Deadline deadline = Clock::now() + time;
    for (;;) {
        if (auto message = ReadAvailable()) return message;
        if (Clock::now() >= deadline) return std::nullopt;
        AwaitReady(POLLIN, deadline + std::chrono::milliseconds(1));
    }
}

std::string Client::Read(Deadline deadline)
{
    for (;;) {
        if (auto message = ReadAvailable()) return *std::move(message);
        AwaitReady(POLLIN, deadline);
    }
}

/// Nullopt if there is no whole message yet.
std::optional<std::string> Client::ReadAvailable()
{
    std::array<char, 65536> buffer;
    for (;;) {
        if (auto message = m_reader.Next()) {
            m_owed -= std::min<std::size_t>(m_owed, 1);
            return *std::move(message);
        }
        if (!m_reader.Problem().empty()) Fail("the server's framing is broken: " + m_reader.Problem());
        const ssize_t count = ::recv(m_socket.Get(), buffer.data(), buffer.size(), 0);
        if (count > 0) {
            m_reader.Append({buffer.data(), static_cast<std::size_t>(count)});
            continue;
        }
        if (count == 0) Fail("the server has closed the session");
        if (errno == EAGAIN || errno == EWOULDBLOCK) return std::nullopt;
        if (errno != EINTR) Fail(ErrnoText(errno));
    }
}

void Client::AwaitReady(short events, Deadline deadline) const
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) Fail("no answer in time");
    std::array<pollfd, 2> wait{pollfd{m_socket.Get(), events, 0}, pollfd{m_stop, POLLIN, 0}};
    const int ready = ::poll(wait.data(), wait.size(), static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) Fail(ErrnoText(errno));
    if (ready <= 0 || wait[1].revents == 0) return;
    if (events == POLLOUT) Fail("stopped in the middle of a request");
    throw Stopped(m_name + ": stopped before the reply came");
}

void Client::Fail(const std::string& what) const { throw ConnectionError(m_name + ": " + what); }

}  // namespace netconf
