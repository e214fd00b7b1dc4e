// SPDX-License-Identifier: Apache-2.0
#include "cli/data/type_words.h"

#include <libyang/libyang.h>
#include <libyang/plugins_types.h>

#include <cstdint>
#include <string_view>
#include <utility>

#include "cli/data/error.h"
#include "cli/data/words.h"

namespace cli {

const lysc_type* TypeOf(const lysc_node* leaf)
{
    return leaf->nodetype == LYS_LEAFLIST ? reinterpret_cast<const lysc_node_leaflist*>(leaf)->type
                                          : reinterpret_cast<const lysc_node_leaf*>(leaf)->type;
}

namespace {

const char* UnitsOf(const lysc_node* leaf)
{
    return leaf->nodetype == LYS_LEAFLIST ? reinterpret_cast<const lysc_node_leaflist*>(leaf)->units
                                          : reinterpret_cast<const lysc_node_leaf*>(leaf)->units;
}

std::string Range(const lysc_type_num* type, bool isSigned, const std::string& otherwise)
{
    if (!type->range) return otherwise;
    std::string text;
    LY_ARRAY_COUNT_TYPE i = 0;
    LY_ARRAY_FOR(type->range->parts, i)
    {
        const lysc_range::lysc_range_part& part = type->range->parts[i];
        if (!text.empty()) text += " or ";
        text += isSigned ? std::to_string(part.min_64) + ".." + std::to_string(part.max_64)
                         : std::to_string(part.min_u64) + ".." + std::to_string(part.max_u64);
    }
    return text;
}

std::string Enums(const lysc_type_enum* type)
{
    std::string text;
    LY_ARRAY_COUNT_TYPE i = 0;
    LY_ARRAY_FOR(type->enums, i)
    {
        if (!text.empty()) text += ", ";
        text += type->enums[i].name;
    }
    return text;
}

/// An address: what it is, and how it is written.
struct Address {
    const char* plugin;  // the end of what libyang calls its type
    const char* what;
    const char* form;
};

const Address* AddressOf(const lysc_type* type)
{
    static constexpr Address kAddresses[] = {
        {"ipv4-address", "IPv4 address", "four numbers, as in 192.0.2.1"},
        {"ipv6-address", "IPv6 address", "it as in 2001:db8::1"},
        {"ipv4-prefix", "IPv4 prefix", "it as in 192.0.2.0/24"},
        {"ipv6-prefix", "IPv6 prefix", "it as in 2001:db8::/32"},
    };
    const std::string_view plugin = type->plugin && type->plugin->id ? type->plugin->id : "";
    for (const Address& address : kAddresses)
        if (plugin.find(address.plugin) != std::string_view::npos) return &address;
    return nullptr;
}

std::string Allowed(const lysc_type* type)
{
    const auto* number = reinterpret_cast<const lysc_type_num*>(type);
    switch (type->basetype) {
    case LY_TYPE_BOOL:
        return "true or false";
    case LY_TYPE_ENUM:
        return Enums(reinterpret_cast<const lysc_type_enum*>(type));
    case LY_TYPE_UINT8:
        return Range(number, false, "0..255");
    case LY_TYPE_UINT16:
        return Range(number, false, "0..65535");
    case LY_TYPE_UINT32:
        return Range(number, false, "0..4294967295");
    case LY_TYPE_UINT64:
        return Range(number, false, "0..18446744073709551615");
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_INT64:
        return Range(number, true, "a whole number");
    case LY_TYPE_LEAFREF:
        return Allowed(reinterpret_cast<const lysc_type_leafref*>(type)->realtype);
    default:
        return AddressOf(type) ? AddressOf(type)->what : "text";
    }
}

bool IsNumber(const lysc_type* type)
{
    switch (type->basetype) {
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
    case LY_TYPE_UINT64:
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_INT64:
        return true;
    default:
        return false;
    }
}

/// What is wrong with a value that the type refuses, and what to write. `reason`: libyang's, which is the
/// model's own text where that has one, and else made of its types and patterns.
std::string Wrong(const lysc_node* leaf, const lysc_type* type, const std::string& value,
                  const std::string& reason)
{
    const std::string quoted = "\"" + value + "\" is ";
    if (IsNumber(type)) {
        const bool digits =
            !value.empty() &&
            value.find_first_not_of("0123456789", value.starts_with('-') ? 1 : 0) == std::string::npos;
        return quoted + (digits ? "out of range" : "no number") + "; write " + AllowedValues(leaf);
    }
    if (type->basetype == LY_TYPE_BOOL) return quoted + "neither true nor false";
    if (type->basetype == LY_TYPE_ENUM)
        return quoted + "not among the values; write one of " + AllowedValues(leaf);
    if (const Address* address = AddressOf(type))
        return quoted + "no " + address->what + "; write " + address->form;
    const bool isOwn = !reason.starts_with("Unsatisfied") && !reason.starts_with("Invalid");
    return quoted + (isOwn ? "not allowed: " + reason : "not allowed here");
}

/// Why libyang refuses the value; empty if it takes it.
std::string Refusal(const ly_ctx* yang, const lysc_node* leaf, const std::string& value)
{
    ly_err_clean(const_cast<ly_ctx*>(yang), nullptr);
    const LY_ERR result =
        lyd_value_validate(yang, leaf, value.data(), value.size(), nullptr, nullptr, nullptr);
    // "incomplete": right by its type; the database checks whether the referenced value exists.
    if (result == LY_SUCCESS || result == LY_EINCOMPLETE) return {};
    const char* message = ly_errmsg(yang);
    return message ? message : "the value is not allowed";
}

}  // namespace

std::string AllowedValues(const lysc_node* leaf)
{
    std::string text = Allowed(TypeOf(leaf));
    if (const char* units = UnitsOf(leaf)) text = text + " " + units;
    return text;
}

void CheckValue(const ly_ctx* yang, const lysc_node* leaf, const std::string& value)
{
    const std::string refusal = Refusal(yang, leaf, value);
    if (refusal.empty()) return;
    const lysc_type* type = TypeOf(leaf);
    while (type->basetype == LY_TYPE_LEAFREF)
        type = reinterpret_cast<const lysc_type_leafref*>(type)->realtype;
    throw Error(Wrong(leaf, type, value, refusal));
}

}  // namespace cli
