// SPDX-License-Identifier: Apache-2.0
// A netlink(7) socket and its messages, on libmnl: requests with acknowledgement, dumps, and notifications.
// It does not interpret messages. The attribute reader is safe on any bytes. Numbers are in host byte order.
// Used by src/net and src/capture.

#ifndef NETLINK_NETLINK_H
#define NETLINK_NETLINK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <linux/netlink.h>

#include "base/unique_fd.h"

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
    void AddText(std::uint16_t type, std::string_view text);  // with its terminating zero
    /// Attributes added until EndNest are nested in this one. EndNest takes the value returned.
    [[nodiscard]] std::size_t BeginNest(std::uint16_t type);
    void EndNest(std::size_t begun);

    [[nodiscard]] nlmsghdr& Message() { return *reinterpret_cast<nlmsghdr*>(m_bytes.data()); }

private:
    void AddRaw(const void* data, std::size_t size);  // padded to 4 bytes

    std::vector<std::uint8_t> m_bytes;
};

/// One attribute of a received message, valid while the message is. Its readers return 0 or empty if it is
/// absent or too short.
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
    [[nodiscard]] std::string_view Text() const;  // up to its first zero

private:
    const nlattr* m_attribute = nullptr;
};

/// Visits each attribute; `bytes` come from Payload, or from Attribute::Bytes of a nest.
void ForEachAttribute(std::span<const std::uint8_t> bytes, const std::function<void(Attribute)>& visit);

/// The attributes of types below N, indexed by type; the last one if a type occurs twice.
template <std::size_t N>
std::array<Attribute, N> ReadAttributes(std::span<const std::uint8_t> bytes)
{
    std::array<Attribute, N> attributes{};
    ForEachAttribute(bytes, [&attributes](Attribute attribute) {
        if (attribute.Type() < N) attributes[attribute.Type()] = attribute;
    });
    return attributes;
}

/// Visits each message of a datagram, or of several with each at a multiple of NLMSG_ALIGNTO.
void ForEachMessage(std::span<const std::uint8_t> bytes, const std::function<void(const nlmsghdr&)>& visit);

/// The bytes behind the family's header of this size; empty if the message is shorter.
[[nodiscard]] std::span<const std::uint8_t> Payload(const nlmsghdr& message, std::size_t headerSize);

/// The family's header; null if the message is shorter.
template <typename Header>
const Header* HeaderOf(const nlmsghdr& message)
{
    if (message.nlmsg_len < NLMSG_HDRLEN + sizeof(Header)) return nullptr;
    return reinterpret_cast<const Header*>(reinterpret_cast<const std::uint8_t*>(&message) + NLMSG_HDRLEN);
}

/// A netlink socket, for one thread. A callback must not use the socket: its message lies in the socket's
/// buffer.
class NetlinkSocket {
public:
    using OnMessage = std::function<void(const nlmsghdr&)>;

    /// `protocol` is NETLINK_ROUTE or NETLINK_GENERIC. Non-blocking. With `strict` the kernel checks
    /// requests strictly and obeys the filters of dumps. Throws std::system_error.
    explicit NetlinkSocket(int protocol, bool strict = false);

    [[nodiscard]] int Descriptor() const { return m_socket.Get(); }

    /// Subscribes to a multicast group (RTNLGRP_*). Throws std::system_error.
    void Join(std::uint32_t group);
    /// Sets the size of the kernel's queue for this socket; beyond the system's limit only if the process
    /// may. Throws std::system_error.
    void SetReceiveBuffer(std::size_t bytes);

    /// Sends the request and waits for its end: the end of a dump (NLM_F_DUMP), or the acknowledgement, which
    /// is asked for. Throws std::system_error for the kernel's error, with the kernel's text if it has one,
    /// and ETIMEDOUT after 5 s. A dump that changes interrupt is repeated up to 5 times in all, after
    /// `restart`; returns false if the last is interrupted too.
    bool Request(NetlinkRequest& request, const OnMessage& answer = nullptr,
                 const std::function<void()>& restart = nullptr);

    /// Sends a request without waiting; Receive delivers the answers, which carry the returned sequence
    /// number. Throws std::system_error.
    std::uint32_t Send(NetlinkRequest& request);
    /// Whether the message answers the request with this sequence number.
    [[nodiscard]] bool IsAnswer(const nlmsghdr& message, std::uint32_t sequence) const
    {
        return message.nlmsg_seq == sequence && message.nlmsg_pid == m_port;
    }

    enum class Received { kNothing, kMessages, kLost };
    /// Takes one datagram if there is one, without waiting; its messages include NLMSG_DONE and NLMSG_ERROR.
    /// kLost if the kernel has dropped messages for this socket. Throws std::system_error.
    Received Receive(const OnMessage& message);

    /// Waits until a message has come; returns false if the time passes first.
    [[nodiscard]] bool Wait(int milliseconds) const;

private:
    enum class Outcome { kDone, kInterrupted };
    Outcome Exchange(NetlinkRequest& request, const OnMessage& answer);

    base::UniqueFd m_socket;
    std::uint32_t m_port = 0;
    std::uint32_t m_sequence = 0;
    // Not filled beforehand: what is never received takes no memory.
    std::unique_ptr<std::uint8_t[]> m_buffer;
};

/// The error that an NLMSG_ERROR or NLMSG_DONE carries, with the kernel's text; nullopt for an
/// acknowledgement.
struct NetlinkError {
    int number = 0;  // errno
    std::string text;
};
[[nodiscard]] std::optional<NetlinkError> ErrorOf(const nlmsghdr& message);

/// A generic netlink family: its number and its multicast groups. Group returns nullopt if it has none of
/// that name.
struct GenericFamily {
    std::uint16_t id = 0;
    std::vector<std::pair<std::string, std::uint32_t>> groups;
    [[nodiscard]] std::optional<std::uint32_t> Group(std::string_view name) const;
};
/// Asks for it by name ("ethtool") on a NETLINK_GENERIC socket. Throws std::system_error, ENOENT if the
/// kernel has no such family.
[[nodiscard]] GenericFamily FindGenericFamily(NetlinkSocket& socket, std::string_view name);

}  // namespace net

#endif
