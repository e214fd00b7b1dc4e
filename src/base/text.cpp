// SPDX-License-Identifier: Apache-2.0
#include "base/text.h"

#include <algorithm>
#include <cstdint>

namespace base {
namespace {

/// One character: how many bytes it has, and whether it may be shown.
struct Character {
    std::size_t length = 1;
    bool fit = false;
};

bool IsFit(std::uint32_t code)
{
    if (code == '\t' || code == '\n') return true;
    if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return false;  // C0, DEL, C1
    if (code >= 0xFDD0 && code <= 0xFDEF) return false;
    return (code & 0xFFFEU) != 0xFFFEU;
}

/// The first character of the text, which is not empty. Overlong forms, surrogates and values beyond U+10FFFF
/// are not characters.
Character First(std::string_view text)
{
    const auto byte = [&text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::uint32_t lead = byte(0);
    if (lead < 0x80) return {1, IsFit(lead)};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return {};
    std::uint32_t code = lead & (0x7FU >> length);
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0U) != 0x80U) return {};
        code = (code << 6U) | (byte(at) & 0x3FU);
    }
    const std::uint32_t least = length == 4 ? 0x10000U : length == 3 ? 0x800U : 0x80U;
    if (code < least || code > 0x10FFFFU || (code >= 0xD800U && code < 0xE000U)) return {};
    return {length, IsFit(code)};
}

}  // namespace

bool IsPresentable(std::string_view text)
{
    while (true) {
        // Skips printable ASCII, which most texts consist of.
        const auto* special =
            std::find_if_not(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
        text.remove_prefix(static_cast<std::size_t>(special - text.begin()));
        if (text.empty()) return true;
        const Character character = First(text);
        if (!character.fit) return false;
        text.remove_prefix(character.length);
    }
}

std::string Presentable(std::string_view text, std::size_t limit)
{
    std::string out;
    out.reserve(std::min(text.size(), limit));
    while (!text.empty()) {
        const Character character = First(text);
        if (out.size() + (character.fit ? character.length : 1) > limit) break;
        if (character.fit)
            out.append(text.substr(0, character.length));
        else
            out.push_back('?');
        text.remove_prefix(character.length);
    }
    return out;
}

void MakePresentable(std::string& text, std::size_t limit)
{
    if (text.size() > limit || !IsPresentable(text)) text = Presentable(text, limit);
}

}  // namespace base
