// SPDX-License-Identifier: Apache-2.0
// Bytes as hexadecimal text and back, for vectors that stand in the tests as data.

#ifndef TESTS_SUPPORT_HEX_H
#define TESTS_SUPPORT_HEX_H

#include <cctype>
#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<std::byte>;

/// Blanks between the digits mean nothing.
inline Bytes FromHex(std::string_view text)
{
    std::string digits;
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0) digits += c;
    }
    if (digits.size() % 2 != 0) throw std::invalid_argument("half a byte in: " + digits);
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::byte>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

/// Lines of eight words as string literals, ready to be pasted into a table.
inline std::string ToPaste(std::span<const std::byte> bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % 32 == 0) text += i == 0 ? "\"" : "\"\n\"";
        text += kDigits[std::to_integer<unsigned>(bytes[i]) / 16];
        text += kDigits[std::to_integer<unsigned>(bytes[i]) % 16];
        if (i % 4 == 3) text += ' ';
    }
    return text.empty() ? "\"\"" : text + "\"";
}

#endif
