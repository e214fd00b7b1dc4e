// SPDX-License-Identifier: Apache-2.0
// The part of the configuration's schema that the fake database knows: the sFlow configuration and
// the management addresses, written down once more by hand.

#ifndef FAKES_FAKE_SCHEMA_H
#define FAKES_FAKE_SCHEMA_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace fakes {

struct Ipv4 {
    std::uint32_t word = 0;  // network byte order
    friend bool operator==(const Ipv4&, const Ipv4&) = default;
};
struct Ipv4Plen {
    std::uint32_t word = 0;  // network byte order
    std::uint8_t length = 0;
    friend bool operator==(const Ipv4Plen&, const Ipv4Plen&) = default;
};

/// A leaf's value; std::monostate: none.
using Value = std::variant<std::monostate, std::string, bool, std::uint16_t, std::uint32_t, Ipv4, Ipv4Plen>;

/// "192.0.2.1" and "10.0.0.5/24". Throw std::invalid_argument for anything else.
Ipv4 Address(const std::string& text);
Ipv4Plen AddressAndLength(const std::string& text);

struct SchemaNode {
    enum class Kind { kContainer, kList, kLeaf };
    std::string path;  // without instances
    Kind kind = Kind::kContainer;
    Value type;              // a leaf's: any value of its type
    Value defaultValue;      // a leaf's; none: no default
    std::string defaultRef;  // a sibling's name: a leaf without a value has that sibling's
    std::uint32_t tag = 0;
    std::int32_t ns = 0;

    [[nodiscard]] std::string Name() const { return path.substr(path.rfind('/') + 1); }
    [[nodiscard]] std::string Parent() const { return path.substr(0, path.rfind('/')); }
};

/// Parents before children, siblings in schema order. A list's key is its leaf `name`.
const std::vector<SchemaNode>& Schema();
const SchemaNode* FindNode(const std::string& path);
const SchemaNode* FindTag(std::uint32_t tag);

/// An entry's or container's leaves in schema order.
std::vector<const SchemaNode*> LeavesOf(const std::string& path);

}  // namespace fakes

#endif
