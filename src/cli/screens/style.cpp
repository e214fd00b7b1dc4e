// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/style.h"

#include <array>
#include <cctype>
#include <cstddef>
#include <utility>

namespace cli {
namespace {

constexpr std::string_view kDefaultColour = "\033[39m";

std::string_view ColourOf(Tone tone)
{
    switch (tone) {
    case Tone::kPlain:
        return kDefaultColour;
    case Tone::kWarning:
        return "\033[33m";
    case Tone::kAdded:
        return "\033[32m";
    case Tone::kBroken:
    case Tone::kRemoved:
        break;
    }
    return "\033[31m";
}

/// Calls `styled` with each line, and puts what it gives in the line's place.
template <typename Styled>
std::string EachLine(std::string_view text, Styled styled)
{
    std::string out;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        out += styled(text.substr(0, end));
        if (end == std::string_view::npos) break;
        out += '\n';
        text.remove_prefix(end + 1);
    }
    return out;
}

/// Where the word begins in a line whose label is that; npos if the line has another one.
std::size_t WordBehind(std::string_view line, std::string_view label, std::string_view word)
{
    constexpr std::size_t kIndented = 2;
    const std::size_t at = line.find_first_not_of(' ');
    if (at != kIndented || !line.substr(at).starts_with(label)) return std::string_view::npos;
    const std::size_t text = line.find_first_not_of(' ', at + label.size());
    const std::size_t number = line.find_first_not_of("0123456789 ", at + label.size());
    if (text == std::string_view::npos || number == std::string_view::npos) return std::string_view::npos;
    return line.substr(number).starts_with(word) ? text : std::string_view::npos;
}

}  // namespace

std::string Style::Toned(Tone tone, std::string_view text) const
{
    if (!m_colours || text.empty()) return std::string(text);
    return std::string(ColourOf(tone)).append(text).append(kDefaultColour);
}

std::string Style::Message(std::string_view line) const
{
    static constexpr std::array<std::pair<std::string_view, Tone>, 2> kKinds = {
        {{"error:", Tone::kBroken}, {"warning:", Tone::kWarning}}};
    for (const auto& [word, tone] : kKinds)
        if (line.starts_with(word)) return Toned(tone, word).append(line.substr(word.size()));
    return std::string(line);
}

std::string Style::Differences(const std::string& text) const
{
    if (!m_colours) return text;
    return EachLine(text, [this](std::string_view line) {
        if (line.starts_with("+ ")) return Toned(Tone::kAdded, line);
        if (line.starts_with("- ")) return Toned(Tone::kRemoved, line);
        return std::string(line);
    });
}

std::string Style::Causes(const std::string& text) const
{
    if (!m_colours) return text;
    return EachLine(text, [this](std::string_view line) {
        if (line == "Broken") return Toned(Tone::kBroken, line);
        for (const auto& [label, word] :
             {std::pair{"Problems ", "broken"}, std::pair{"Problem ", "broken:"}}) {
            const std::size_t at = WordBehind(line, label, word);
            if (at == std::string_view::npos) continue;
            const std::size_t end = line.find("broken") + std::string_view("broken").size();
            return std::string(line.substr(0, at)) + Toned(Tone::kBroken, line.substr(at, end - at)) +
                   std::string(line.substr(end));
        }
        return std::string(line);
    });
}

}  // namespace cli
