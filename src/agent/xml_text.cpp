#include "agent/xml_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace agent {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

bool IsAscii(unsigned char c) { return c < 0x80 && (c >= 0x20 || c == '\t' || c == '\n' || c == '\r'); }

/// How many bytes the character at the beginning has; 0: none that may stand in XML.
std::size_t LengthOf(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) return IsAscii(first) ? 1 : 0;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    std::uint32_t character = first & (0x7FU >> length);
    for (std::size_t at = 1; at < length; ++at) {
        const auto next = static_cast<unsigned char>(text[at]);
        if ((next & 0xC0U) != 0x80) return 0;
        character = character << 6U | (next & 0x3FU);
    }
    constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    const bool none = (character & 0xFFFEU) == 0xFFFE || (character >= 0xFDD0 && character <= 0xFDEF);
    return character < kLeast[length] || character > 0x10FFFF || surrogate || none ? 0 : length;
}

}  // namespace

bool IsXmlText(std::string_view text)
{
    while (true) {
        // Nearly all that comes.
        const auto* plain =
            std::find_if_not(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
        text.remove_prefix(static_cast<std::size_t>(plain - text.begin()));
        if (text.empty()) return true;
        const std::size_t length = LengthOf(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
}

std::string FitForXml(std::string_view text)
{
    std::string fit;
    fit.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = LengthOf(text);
        fit.append(length == 0 ? kReplacement : text.substr(0, length));
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return fit;
}

}  // namespace agent
