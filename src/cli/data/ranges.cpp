// SPDX-License-Identifier: Apache-2.0
#include "cli/data/ranges.h"

#include <algorithm>
#include <cstdint>
#include <set>

#include <boost/algorithm/string/split.hpp>

#include "base/number.h"
#include "cli/data/error.h"

namespace cli {
namespace {

[[noreturn]] void Refuse(const std::string& word, const std::string& what)
{
    throw Error("\"" + word + "\": " + what + "; write a range as in 1/1/[1-48,52]");
}

[[noreturn]] void RefuseTooMany(const std::string& word)
{
    throw Error("\"" + word + "\" means more than " + std::to_string(kMostNames) +
                " names; use several commands");
}

std::uint32_t NumberIn(const std::string& word, std::string_view digits)
{
    const auto number = base::ToNumber<std::uint32_t>(digits);
    if (!number)
        Refuse(word, digits.empty() ? "a number is missing in the brackets"
                                    : "\"" + std::string(digits) + "\" is no number");
    return *number;
}

/// "1-48" or "52".
void AppendNumbers(const std::string& word, std::string_view part, std::vector<std::string>& numbers)
{
    const std::size_t dash = part.find('-');
    const std::string_view low = part.substr(0, dash);
    const std::string_view high = dash == std::string_view::npos ? low : part.substr(dash + 1);
    const std::uint32_t first = NumberIn(word, low);
    const std::uint32_t last = NumberIn(word, high);
    if (last < first) Refuse(word, std::string(part) + " runs backwards");
    if (last - first >= kMostNames) RefuseTooMany(word);
    const std::size_t width = low.starts_with('0') ? low.size() : 0;
    for (std::uint64_t number = first; number <= last; ++number) {
        std::string text = std::to_string(number);
        text.insert(0, width - std::min(width, text.size()), '0');
        numbers.push_back(std::move(text));
    }
}

}  // namespace

std::vector<std::string> NamesOf(const std::string& word)
{
    std::vector<std::string> names{""};
    for (std::string_view rest = word; !rest.empty();) {
        const std::size_t open = rest.find_first_of("[]");
        for (std::string& name : names) name += rest.substr(0, open);
        if (open == std::string_view::npos) break;
        const std::size_t close = rest.find_first_of("[]", open + 1);
        if (rest[open] == ']' || close == std::string_view::npos || rest[close] == '[')
            Refuse(word, "a bracket has no counterpart");
        std::vector<std::string> numbers;
        std::vector<std::string> parts;
        boost::split(parts, rest.substr(open + 1, close - open - 1), [](char c) { return c == ','; });
        for (const std::string& part : parts) AppendNumbers(word, part, numbers);
        if (numbers.size() * names.size() > kMostNames) RefuseTooMany(word);
        std::vector<std::string> longer;
        for (const std::string& name : names)
            for (const std::string& number : numbers) longer.push_back(name + number);
        names = std::move(longer);
        rest.remove_prefix(close + 1);
    }
    std::set<std::string> seen;
    std::erase_if(names, [&](const std::string& name) { return !seen.insert(name).second; });
    return names;
}

}  // namespace cli
