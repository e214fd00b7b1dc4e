// SPDX-License-Identifier: Apache-2.0
#include "netlink/netlink.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <system_error>

#include <libmnl/libmnl.h>
#include <poll.h>
#include <sys/socket.h>

#include <linux/genetlink.h>

namespace net {
namespace {

constexpr int kAnswerTimeMs = 5000;
constexpr int kDumpTries = 5;
constexpr std::size_t kBufferSize = 64 * 1024;  // the kernel's dumps take up to half of it

template <typename Value>
Value ReadValue(std::span<const std::uint8_t> bytes)
{
    Value value{};
    if (bytes.size() >= sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::system_category(), what); }

}  // namespace

NetlinkRequest::NetlinkRequest(std::uint16_t type, std::uint16_t flags) : m_bytes(NLMSG_HDRLEN)
{
    m_bytes.reserve(256);
    Message().nlmsg_type = type;
    Message().nlmsg_flags = static_cast<std::uint16_t>(flags | NLM_F_REQUEST);
    Message().nlmsg_len = NLMSG_HDRLEN;
}

void NetlinkRequest::AddRaw(const void* data, std::size_t size)
{
    const std::size_t at = m_bytes.size();
    m_bytes.resize(at + MNL_ALIGN(size));
    if (size != 0) std::memcpy(m_bytes.data() + at, data, size);
    Message().nlmsg_len = static_cast<std::uint32_t>(m_bytes.size());
}

void NetlinkRequest::AddBytes(std::uint16_t type, std::span<const std::uint8_t> bytes)
{
    const nlattr header{static_cast<std::uint16_t>(MNL_ATTR_HDRLEN + bytes.size()), type};
    AddRaw(&header, sizeof header);
    AddRaw(bytes.data(), bytes.size());
}

void NetlinkRequest::AddU32(std::uint16_t type, std::uint32_t value)
{
    AddBytes(type, {reinterpret_cast<const std::uint8_t*>(&value), sizeof value});
}

void NetlinkRequest::AddText(std::uint16_t type, std::string_view text)
{
    const std::string ended(text);
    AddBytes(type, {reinterpret_cast<const std::uint8_t*>(ended.c_str()), ended.size() + 1});
}

std::size_t NetlinkRequest::BeginNest(std::uint16_t type)
{
    const std::size_t begun = m_bytes.size();
    AddBytes(static_cast<std::uint16_t>(type | NLA_F_NESTED), {});
    return begun;
}

void NetlinkRequest::EndNest(std::size_t begun)
{
    const auto size = static_cast<std::uint16_t>(m_bytes.size() - begun);
    std::memcpy(m_bytes.data() + begun, &size, sizeof size);
}

std::uint16_t Attribute::Type() const { return m_attribute ? mnl_attr_get_type(m_attribute) : 0; }

std::span<const std::uint8_t> Attribute::Bytes() const
{
    if (m_attribute == nullptr) return {};
    return {static_cast<const std::uint8_t*>(mnl_attr_get_payload(m_attribute)),
            mnl_attr_get_payload_len(m_attribute)};
}

std::uint8_t Attribute::U8() const { return ReadValue<std::uint8_t>(Bytes()); }
std::uint16_t Attribute::U16() const { return ReadValue<std::uint16_t>(Bytes()); }
std::uint32_t Attribute::U32() const { return ReadValue<std::uint32_t>(Bytes()); }
std::uint64_t Attribute::U64() const { return ReadValue<std::uint64_t>(Bytes()); }

std::string_view Attribute::Text() const
{
    const auto bytes = Bytes();
    const auto* text = reinterpret_cast<const char*>(bytes.data());
    return bytes.empty() ? std::string_view{} : std::string_view(text, strnlen(text, bytes.size()));
}

void ForEachAttribute(std::span<const std::uint8_t> bytes, const std::function<void(Attribute)>& visit)
{
    const auto* at = reinterpret_cast<const nlattr*>(bytes.data());
    int left = static_cast<int>(bytes.size());
    while (mnl_attr_ok(at, left)) {
        visit(Attribute(at));
        left -= static_cast<int>(MNL_ALIGN(at->nla_len));
        at = mnl_attr_next(at);
    }
}

void ForEachMessage(std::span<const std::uint8_t> bytes, const std::function<void(const nlmsghdr&)>& visit)
{
    const auto* at = reinterpret_cast<const nlmsghdr*>(bytes.data());
    auto left = static_cast<int>(bytes.size());
    for (; mnl_nlmsg_ok(at, left); at = mnl_nlmsg_next(at, &left)) visit(*at);
}

std::span<const std::uint8_t> Payload(const nlmsghdr& message, std::size_t headerSize)
{
    const std::size_t before = NLMSG_HDRLEN + MNL_ALIGN(headerSize);
    if (message.nlmsg_len <= before) return {};
    return {reinterpret_cast<const std::uint8_t*>(&message) + before, message.nlmsg_len - before};
}

std::optional<NetlinkError> ErrorOf(const nlmsghdr& message)
{
    // NLMSG_ERROR and NLMSG_DONE begin with the number; the latter has only that.
    const auto* number = HeaderOf<int>(message);
    if (number == nullptr || *number >= 0) return std::nullopt;
    NetlinkError error{-*number, "netlink request"};
    if (message.nlmsg_type != NLMSG_ERROR || (message.nlmsg_flags & NLM_F_ACK_TLVS) == 0) return error;
    const auto* answer = HeaderOf<nlmsgerr>(message);
    if (answer == nullptr) return error;
    // The request itself comes before them, unless the kernel has left it out.
    std::size_t before = sizeof(nlmsgerr);
    if ((message.nlmsg_flags & NLM_F_CAPPED) == 0 && answer->msg.nlmsg_len > sizeof(nlmsghdr))
        before += answer->msg.nlmsg_len - sizeof(nlmsghdr);
    const auto attributes = ReadAttributes<NLMSGERR_ATTR_MSG + 1>(Payload(message, before));
    if (attributes[NLMSGERR_ATTR_MSG]) error.text = attributes[NLMSGERR_ATTR_MSG].Text();
    return error;
}

NetlinkSocket::NetlinkSocket(int protocol, bool strict)
    : m_buffer(std::make_unique_for_overwrite<std::uint8_t[]>(kBufferSize))
{
    m_socket = base::UniqueFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol));
    if (!m_socket) Fail("netlink socket");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    socklen_t size = sizeof address;
    if (bind(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        Fail("netlink address");
    m_port = address.nl_pid;
    // Optional: without them errors have no text and requests are checked less strictly.
    const int on = 1;
    std::ignore = setsockopt(m_socket.Get(), SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof on);
    std::ignore = setsockopt(m_socket.Get(), SOL_NETLINK, NETLINK_CAP_ACK, &on, sizeof on);
    if (strict) std::ignore = setsockopt(m_socket.Get(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);
}

void NetlinkSocket::Join(std::uint32_t group)
{
    if (setsockopt(m_socket.Get(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0)
        Fail("netlink group");
}

void NetlinkSocket::SetReceiveBuffer(std::size_t bytes)
{
    const int size = static_cast<int>(bytes);
    if (setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) == 0) return;
    if (setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0) Fail("netlink buffer");
}

std::uint32_t NetlinkSocket::Send(NetlinkRequest& request)
{
    nlmsghdr& message = request.Message();
    if (++m_sequence == 0) ++m_sequence;  // 0 marks notifications
    message.nlmsg_seq = m_sequence;
    message.nlmsg_pid = m_port;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = -1;
    do {
        sent = sendto(m_socket.Get(), &message, message.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                      sizeof kernel);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) Fail("netlink request");
    return m_sequence;
}

NetlinkSocket::Received NetlinkSocket::Receive(const OnMessage& message)
{
    for (;;) {
        sockaddr_nl from{};
        socklen_t fromSize = sizeof from;
        const ssize_t size = recvfrom(m_socket.Get(), m_buffer.get(), kBufferSize, MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&from), &fromSize);
        if (size < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN) return Received::kNothing;
            if (errno == ENOBUFS) return Received::kLost;
            Fail("netlink answer");
        }
        if (from.nl_pid != 0) continue;  // not from the kernel: any process may send to us
        // The kernel sends no datagram larger than this buffer; if it did, part of it would be lost.
        if (static_cast<std::size_t>(size) > kBufferSize) return Received::kLost;
        ForEachMessage({m_buffer.get(), static_cast<std::size_t>(size)}, message);
        return Received::kMessages;
    }
}

bool NetlinkSocket::Wait(int milliseconds) const
{
    pollfd waiting{m_socket.Get(), POLLIN, 0};
    return poll(&waiting, 1, milliseconds) > 0;
}

NetlinkSocket::Outcome NetlinkSocket::Exchange(NetlinkRequest& request, const OnMessage& answer)
{
    const bool dump = (request.Message().nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
    if (!dump) request.Message().nlmsg_flags |= NLM_F_ACK;
    const std::uint32_t sequence = Send(request);

    bool done = false;
    bool interrupted = false;
    std::optional<NetlinkError> error;
    std::exception_ptr thrown;  // by `answer`; rethrown once the other answers are taken
    const auto take = [&](const nlmsghdr& message) {
        if (!IsAnswer(message, sequence)) return;
        if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) interrupted = true;
        if (message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE) {
            error = ErrorOf(message);
            done = true;
        } else if (message.nlmsg_type >= NLMSG_MIN_TYPE && answer && thrown == nullptr) {
            try {
                answer(message);
            } catch (...) {
                thrown = std::current_exception();
            }
        }
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kAnswerTimeMs);
    while (!done) {
        switch (Receive(take)) {
        case Received::kMessages:
            break;
        case Received::kLost:
            interrupted = true;
            break;
        case Received::kNothing:
            if (!Wait(kAnswerTimeMs) || std::chrono::steady_clock::now() > deadline)
                throw std::system_error(ETIMEDOUT, std::system_category(), "netlink answer");
        }
    }
    if (thrown != nullptr) std::rethrow_exception(thrown);
    if (error) throw std::system_error(error->number, std::system_category(), error->text);
    return interrupted ? Outcome::kInterrupted : Outcome::kDone;
}

bool NetlinkSocket::Request(NetlinkRequest& request, const OnMessage& answer,
                            const std::function<void()>& restart)
{
    for (int tries = 1;; ++tries) {
        if (Exchange(request, answer) == Outcome::kDone) return true;
        if (tries == kDumpTries) return false;
        if (restart) restart();
    }
}

GenericFamily FindGenericFamily(NetlinkSocket& socket, std::string_view name)
{
    NetlinkRequest request(GENL_ID_CTRL, 0);
    genlmsghdr header{};
    header.cmd = CTRL_CMD_GETFAMILY;
    header.version = 1;
    request.AddHeader(header);
    request.AddText(CTRL_ATTR_FAMILY_NAME, name);
    GenericFamily family;
    socket.Request(request, [&family](const nlmsghdr& message) {
        const auto attributes =
            ReadAttributes<CTRL_ATTR_MCAST_GROUPS + 1>(Payload(message, sizeof(genlmsghdr)));
        family.id = attributes[CTRL_ATTR_FAMILY_ID].U16();
        ForEachAttribute(attributes[CTRL_ATTR_MCAST_GROUPS].Bytes(), [&family](Attribute entry) {
            const auto group = ReadAttributes<CTRL_ATTR_MCAST_GRP_ID + 1>(entry.Bytes());
            family.groups.emplace_back(std::string(group[CTRL_ATTR_MCAST_GRP_NAME].Text()),
                                       group[CTRL_ATTR_MCAST_GRP_ID].U32());
        });
    });
    return family;
}

std::optional<std::uint32_t> GenericFamily::Group(std::string_view name) const
{
    for (const auto& [group, number] : groups)
        if (group == name) return number;
    return std::nullopt;
}

}  // namespace net
