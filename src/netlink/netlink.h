// SPDX-License-Identifier: Apache-2.0
// A netlink(7) socket and its messages, on libmnl: requests with acknowledgement, dumps, and messages that
// come unasked. It knows nothing of what the messages mean. The reader of attributes takes any bytes.
// Used by the monitor, the route look-ups and the counter reader of this folder.

#ifndef NETLINK_NETLINK_H
#define NETLINK_NETLINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <linux/netlink.h>

namespace net {

/// A request that is being written. Attributes follow the family's header.
class NetlinkRequest {
public:
    /// `type` is a message type (RTM_*, or a generic family's number); `flags` go beside NLM_F_REQUEST.
    NetlinkRequest(std::uint16_t type, std::uint16_t flags);

    /// Appends the family's header (ifinfomsg, genlmsghdr, …).
    template <typename Header>
    void AddHeader(const Header& header)
    {
        AddRaw(&header, sizeof header);
    }
    void AddBytes(std::uint16_t type, std::span<const std::uint8_t> bytes);
    void AddU8(std::uint16_t type, std::uint8_t value) { AddBytes(type, {&value, 1}); }
    void AddU32(std::uint16_t type, std::uint32_t value);
    void AddText(std::uint16_t type, std::string_view text);  // ends with a zero
    /// Everything added until EndNest stands inside.
    [[nodiscard]] std::size_t BeginNest(std::uint16_t type);
    void EndNest(std::size_t begun);

    [[nodiscard]] nlmsghdr& Message() { return *reinterpret_cast<nlmsghdr*>(m_bytes.data()); }

private:
    void AddRaw(const void* data, std::size_t size);  // padded to 4 bytes

    std::vector<std::uint8_t> m_bytes;
};

/// One attribute of a message that was received; its readers give 0 or nothing when it is too short.
class Attribute {
public:
    Attribute() = default;
    explicit Attribute(const nlattr* attribute) : m_attribute(attribute) {}

    explicit operator bool() const { return m_attribute != nullptr; }
    [[nodiscard]] std::uint16_t Type() const;
    [[nodiscard]] std::span<const std::uint8_t> Bytes() const;  // empty when absent
    [[nodiscard]] std::uint8_t U8() const;
    [[nodiscard]] std::uint16_t U16() const;
    [[nodiscard]] std::uint32_t U32() const;
    [[nodiscard]] std::uint64_t U64() const;
    [[nodiscard]] std::string_view Text() const;  // up to its zero

private:
    const nlattr* m_attribute = nullptr;
};

/// Walks attributes; `bytes` as Payload or Attribute::Bytes (of a nest) give it.
void ForEachAttribute(std::span<const std::uint8_t> bytes, const std::function<void(Attribute)>& visit);

/// The attributes up to type N - 1 by type; of several of one type, the last.
template <std::size_t N>
std::array<Attribute, N> ReadAttributes(std::span<const std::uint8_t> bytes)
{
    std::array<Attribute, N> attributes{};
    ForEachAttribute(bytes, [&attributes](Attribute attribute) {
        if (attribute.Type() < N) attributes[attribute.Type()] = attribute;
    });
    return attributes;
}

/// What stands behind the family's header of this size; empty when the message is shorter.
[[nodiscard]] std::span<const std::uint8_t> Payload(const nlmsghdr& message, std::size_t headerSize);

/// The family's header; null when the message is shorter.
template <typename Header>
const Header* HeaderOf(const nlmsghdr& message)
{
    if (message.nlmsg_len < NLMSG_HDRLEN + sizeof(Header)) return nullptr;
    return reinterpret_cast<const Header*>(reinterpret_cast<const std::uint8_t*>(&message) + NLMSG_HDRLEN);
}

/// What it calls with a message must not use the socket: the message lies in its buffer.
class NetlinkSocket {
public:
    using OnMessage = std::function<void(const nlmsghdr&)>;

    /// `protocol` is NETLINK_ROUTE or NETLINK_GENERIC. Non-blocking. With `strict` the kernel checks
    /// requests strictly and obeys the filters of dumps. Throws std::system_error.
    explicit NetlinkSocket(int protocol, bool strict = false);
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;
    ~NetlinkSocket();

    [[nodiscard]] int Descriptor() const { return m_descriptor; }

    /// Hears of a multicast group (RTNLGRP_*) from now on. Throws std::system_error.
    void Join(std::uint32_t group);
    /// Size of the kernel's queue for us, beyond the system's limit where we may; smaller ones too.
    void SetReceiveBuffer(std::size_t bytes);

    /// Sends the request and waits for its end: the answers of a dump (NLM_F_DUMP among its flags), or
    /// those before the acknowledgement, which is asked for. An error of the kernel's is thrown as
    /// std::system_error, with its own words where it has some; also ETIMEDOUT after 5 s. A dump that
    /// changes disturbed is repeated a few times, after `restart`; false when it stays disturbed.
    bool Request(NetlinkRequest& request, const OnMessage& answer = nullptr,
                 const std::function<void()>& restart = nullptr);

    /// Sends a request whose answers come by Receive; they bear the sequence number returned.
    std::uint32_t Send(NetlinkRequest& request);
    /// It answers what we have sent under this number.
    [[nodiscard]] bool IsAnswer(const nlmsghdr& message, std::uint32_t sequence) const
    {
        return message.nlmsg_seq == sequence && message.nlmsg_pid == m_port;
    }

    enum class Received { kNothing, kMessages, kLost };
    /// What has come, one datagram at most, without waiting: also NLMSG_DONE, NLMSG_ERROR. kLost when
    /// the kernel had to drop messages for us. Throws std::system_error.
    Received Receive(const OnMessage& message);

    /// Waits until something has come or the time is over (false).
    [[nodiscard]] bool Wait(int milliseconds) const;

private:
    enum class Outcome { kDone, kInterrupted };
    Outcome Exchange(NetlinkRequest& request, const OnMessage& answer);

    int m_descriptor = -1;
    std::uint32_t m_port = 0;
    std::uint32_t m_sequence = 0;
    std::vector<std::uint8_t> m_buffer;
};

/// The error that an NLMSG_ERROR carries, with the kernel's words; nothing for an acknowledgement.
struct NetlinkError {
    int number = 0;  // errno
    std::string text;
};
[[nodiscard]] std::optional<NetlinkError> ErrorOf(const nlmsghdr& message);

/// A generic netlink family: its number and its multicast groups.
struct GenericFamily {
    std::uint16_t id = 0;
    std::vector<std::pair<std::string, std::uint32_t>> groups;
    [[nodiscard]] std::optional<std::uint32_t> Group(std::string_view name) const;
};
/// Asks for it by name ("ethtool") on a NETLINK_GENERIC socket; throws std::system_error, ENOENT where
/// the kernel has none of that name.
[[nodiscard]] GenericFamily FindGenericFamily(NetlinkSocket& socket, std::string_view name);

}  // namespace net

#endif
