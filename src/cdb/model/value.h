// SPDX-License-Identifier: Apache-2.0
// A typed configuration value, as the store keeps it and the client API delivers it. Independent of YANG and
// the store.

#ifndef CDB_MODEL_VALUE_H
#define CDB_MODEL_VALUE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace cdb {

/// An IPv4 address in network byte order, as in_addr.
struct Ipv4 {
    std::uint32_t word = 0;
    friend bool operator==(const Ipv4&, const Ipv4&) = default;
};

/// An IPv4 address with its prefix length, host bits kept. Network byte order.
struct Ipv4Plen {
    std::uint32_t word = 0;
    std::uint8_t length = 0;
    friend bool operator==(const Ipv4Plen&, const Ipv4Plen&) = default;
};

/// std::monostate: no value.
using Value = std::variant<std::monostate, std::string, bool, std::uint16_t, std::uint32_t, Ipv4, Ipv4Plen>;

/// The alternatives of Value, by index.
enum class ValueType : std::uint8_t { kNone, kString, kBool, kUint16, kUint32, kIpv4, kIpv4Plen };

inline ValueType TypeOf(const Value& value) { return static_cast<ValueType>(value.index()); }

/// The value's canonical YANG text ("true", "4096", "192.0.2.1", "10.0.0.5/24"); empty for no value.
std::string ToText(const Value& value);

/// The value of that type with this canonical text; a number may have leading zeros ("010" is 10). Nullopt if
/// the text is none. Checks the type's range, not narrower ones.
std::optional<Value> FromText(ValueType type, std::string_view text);

/// The type's name for messages ("uint32", "ipv4-address", ...).
const char* TypeName(ValueType type);

}  // namespace cdb

#endif
