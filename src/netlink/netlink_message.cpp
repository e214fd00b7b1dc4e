// SPDX-License-Identifier: Apache-2.0
// Messages: writing requests, reading attributes and errors.

#include <cstring>

#include <libmnl/libmnl.h>

#include "netlink/netlink.h"

namespace net {
namespace {

template <typename Value>
Value ReadValue(std::span<const std::uint8_t> bytes)
{
    Value value{};
    if (bytes.size() >= sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

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

}  // namespace net
