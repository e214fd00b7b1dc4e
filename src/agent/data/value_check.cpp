// SPDX-License-Identifier: Apache-2.0
#include "agent/data/value_check.h"

#include <libyang/libyang.h>
#include <libyang/plugins_types.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "base/text.h"

namespace agent {
namespace {

constexpr std::size_t kKnownValues = 4096;
constexpr std::size_t kKnownLength = 64;

enum class Verdict : std::uint8_t { kFits, kDoesNot, kUnknown };

template <typename Integer>
Verdict CheckInteger(const lysc_type* type, std::string_view text)
{
    Integer value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return Verdict::kUnknown;
    const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    const bool canonical = digits.front() != '0' || text == "0";
    if (!canonical) return Verdict::kUnknown;
    const lysc_range* range = reinterpret_cast<const lysc_type_num*>(type)->range;
    if (range == nullptr) return Verdict::kFits;
    LY_ARRAY_COUNT_TYPE at = 0;
    LY_ARRAY_FOR(range->parts, at)
    {
        const auto& part = range->parts[at];
        if constexpr (std::is_signed_v<Integer>) {
            if (value >= part.min_64 && value <= part.max_64) return Verdict::kFits;
        } else {
            if (value >= part.min_u64 && value <= part.max_u64) return Verdict::kFits;
        }
    }
    return Verdict::kDoesNot;
}

Verdict CheckEnumeration(const lysc_type* type, std::string_view text)
{
    const auto* enumeration = reinterpret_cast<const lysc_type_enum*>(type);
    LY_ARRAY_COUNT_TYPE at = 0;
    LY_ARRAY_FOR(enumeration->enums, at)
    {
        if (text == enumeration->enums[at].name) return Verdict::kFits;
    }
    return Verdict::kDoesNot;
}

/// Whether the text has a digit for each '0' of the form, and is the same in all else.
bool HasForm(std::string_view text, std::string_view form)
{
    return text.size() == form.size() &&
           std::equal(text.begin(), text.end(), form.begin(),
                      [](char c, char wanted) { return wanted == '0' ? c >= '0' && c <= '9' : c == wanted; });
}

bool UpTo(std::string_view digits, int least, int most)
{
    int value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value >= least && value <= most;
}

/// yang:date-and-time (RFC 6991). Kept in the zone that it has.
bool IsDateAndTime(std::string_view text)
{
    constexpr std::string_view kForm = "0000-00-00T00:00:00";
    const std::string_view date = text.substr(0, std::min(text.size(), kForm.size()));
    if (!HasForm(date, kForm) || !UpTo(date.substr(5, 2), 1, 12) || !UpTo(date.substr(8, 2), 1, 31) ||
        !UpTo(date.substr(11, 2), 0, 23) || !UpTo(date.substr(14, 2), 0, 59) ||
        !UpTo(date.substr(17, 2), 0, 60))
        return false;
    text.remove_prefix(kForm.size());
    if (text.starts_with('.')) {
        const std::size_t end = std::min(text.find_first_not_of("0123456789", 1), text.size());
        if (end == 1) return false;
        text.remove_prefix(end);
    }
    if (text == "Z") return true;
    return (HasForm(text, "+00:00") || HasForm(text, "-00:00")) && UpTo(text.substr(1, 2), 0, 23) &&
           UpTo(text.substr(4, 2), 0, 59);
}

Verdict CheckString(const lysc_type* type, std::string_view text)
{
    const std::string_view plugin = type->plugin->id;
    if (plugin.starts_with("libyang 2 - date-and-time"))
        return IsDateAndTime(text) ? Verdict::kFits : Verdict::kDoesNot;
    const auto* string = reinterpret_cast<const lysc_type_str*>(type);
    const bool plain =
        plugin.starts_with("libyang 2 - string") && string->length == nullptr && string->patterns == nullptr;
    return plain ? Verdict::kFits : Verdict::kUnknown;
}

Verdict CheckCheaply(const lysc_type* type, std::string_view text)
{
    switch (type->basetype) {
    case LY_TYPE_UINT8:
        return CheckInteger<std::uint8_t>(type, text);
    case LY_TYPE_UINT16:
        return CheckInteger<std::uint16_t>(type, text);
    case LY_TYPE_UINT32:
        return CheckInteger<std::uint32_t>(type, text);
    case LY_TYPE_UINT64:
        return CheckInteger<std::uint64_t>(type, text);
    case LY_TYPE_INT8:
        return CheckInteger<std::int8_t>(type, text);
    case LY_TYPE_INT16:
        return CheckInteger<std::int16_t>(type, text);
    case LY_TYPE_INT32:
        return CheckInteger<std::int32_t>(type, text);
    case LY_TYPE_INT64:
        return CheckInteger<std::int64_t>(type, text);
    case LY_TYPE_BOOL:
        return text == "true" || text == "false" ? Verdict::kFits : Verdict::kDoesNot;
    case LY_TYPE_ENUM:
        return CheckEnumeration(type, text);
    case LY_TYPE_STRING:
        return CheckString(type, text);
    default:
        return Verdict::kUnknown;
    }
}

}  // namespace

std::optional<std::string_view> ValueChecker::Check(const lysc_node* leaf, std::string_view text)
{
    const lysc_type* type = leaf->nodetype == LYS_LEAF
                                ? reinterpret_cast<const lysc_node_leaf*>(leaf)->type
                                : reinterpret_cast<const lysc_node_leaflist*>(leaf)->type;
    if (!base::IsPresentable(text)) {
        m_text = base::Presentable(text, text.size());
        text = m_text;
    }
    switch (CheckCheaply(type, text)) {
    case Verdict::kFits:
        return text;
    case Verdict::kDoesNot:
        return std::nullopt;
    case Verdict::kUnknown:
        break;
    }
    return AskLibyang(leaf, type, text);
}

std::optional<std::string_view> ValueChecker::AskLibyang(const lysc_node* leaf, const lysc_type* type,
                                                         std::string_view text)
{
    auto& known = m_known[type];
    if (known.contains(text)) return text;
    const char* canonical = nullptr;
    const LY_ERR result =
        lyd_value_validate(m_context, leaf, text.data(), text.size(), nullptr, nullptr, &canonical);
    // A reference to data that is not at hand can be checked for its form only.
    if (result != LY_SUCCESS && result != LY_EINCOMPLETE) {
        ly_err_clean(const_cast<ly_ctx*>(m_context), nullptr);
        return std::nullopt;
    }
    m_canonical = canonical != nullptr ? std::string_view(canonical) : text;
    if (canonical != nullptr) lydict_remove(m_context, canonical);
    if (m_canonical == text && text.size() <= kKnownLength && m_knownCount < kKnownValues) {
        known.emplace(text);
        ++m_knownCount;
    }
    return m_canonical;
}

}  // namespace agent
