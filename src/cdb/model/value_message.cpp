// SPDX-License-Identifier: Apache-2.0
#include "cdb/model/value_message.h"

#include <limits>

#include "ipc/cdb.pb.h"

namespace cdb {
namespace {

struct Writer {
    ipc::cdb::Value& message;

    void operator()(std::monostate) const { message.clear_kind(); }
    void operator()(const std::string& text) const { message.set_text(text); }
    void operator()(bool value) const { message.set_boolean(value); }
    void operator()(std::uint16_t value) const { message.set_uint16(value); }
    void operator()(std::uint32_t value) const { message.set_uint32(value); }
    void operator()(Ipv4 value) const { message.set_ipv4(value.word); }
    void operator()(Ipv4Plen value) const
    {
        message.mutable_ipv4_plen()->set_address(value.word);
        message.mutable_ipv4_plen()->set_length(value.length);
    }
};

}  // namespace

void ToMessage(const Value& value, ipc::cdb::Value& message) { std::visit(Writer{message}, value); }

std::optional<Value> FromMessage(const ipc::cdb::Value& message)
{
    constexpr std::uint32_t kAddressBits = 32;
    using Kind = ipc::cdb::Value;
    switch (message.kind_case()) {
    case Kind::KIND_NOT_SET:
        return Value();
    case Kind::kText:
        return Value(message.text());
    case Kind::kBoolean:
        return Value(message.boolean());
    case Kind::kUint16:
        if (message.uint16() > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
        return Value(static_cast<std::uint16_t>(message.uint16()));
    case Kind::kUint32:
        return Value(message.uint32());
    case Kind::kIpv4:
        return Value(Ipv4{message.ipv4()});
    case Kind::kIpv4Plen:
        if (message.ipv4_plen().length() > kAddressBits) return std::nullopt;
        return Value(
            Ipv4Plen{message.ipv4_plen().address(), static_cast<std::uint8_t>(message.ipv4_plen().length())});
    }
    return std::nullopt;
}

}  // namespace cdb
