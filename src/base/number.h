// SPDX-License-Identifier: Apache-2.0
// A number of a text, all of it: of an option, an environment variable, a message.

#ifndef BASE_NUMBER_H
#define BASE_NUMBER_H

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace base {

/// Nullopt if the text is more or less than one number that the type holds. No space, no plus sign; a minus
/// sign only of signed types.
template <typename Number>
std::optional<Number> ToNumber(std::string_view text, int base = 10)
{
    Number number{};
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number, base);
    return error == std::errc{} && end == last ? std::optional(number) : std::nullopt;
}

}  // namespace base

#endif
