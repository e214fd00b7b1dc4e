// SPDX-License-Identifier: Apache-2.0
#include "cli/type_text.h"

#include <libyang/libyang.h>

#include <cstdint>

namespace cli {
namespace {

const lysc_type* TypeOf(const lysc_node* leaf)
{
    const lysc_type* type = leaf->nodetype == LYS_LEAFLIST
                                ? reinterpret_cast<const lysc_node_leaflist*>(leaf)->type
                                : reinterpret_cast<const lysc_node_leaf*>(leaf)->type;
    return type;
}

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
        return "text";
    }
}

}  // namespace

std::string AllowedValues(const lysc_node* leaf)
{
    std::string text = Allowed(TypeOf(leaf));
    if (const char* units = UnitsOf(leaf)) text = text + " " + units;
    return text;
}

bool HasLimits(const lysc_node* leaf) { return Allowed(TypeOf(leaf)) != "text"; }

}  // namespace cli
