// SPDX-License-Identifier: Apache-2.0
// Makes texts that peers send fit for XML, JSON, the log and a terminal: used once, where such a text comes
// in; and any text fit for one line.

#ifndef BASE_TEXT_H
#define BASE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

/// The bytes that are kept of one text of a peer.
inline constexpr std::size_t kMaxPeerText = 4096;

/// Whether the text can be shown as it is, of any length: UTF-8 without control characters except tab and
/// line feed, and without the characters that XML (1.0, section 2.2) or YANG (RFC 7950, section 14) excludes.
bool IsPresentable(std::string_view text);

/// A presentable copy of at most `limit` bytes, cut between characters. '?' replaces each character that is
/// not allowed and each byte that is not UTF-8, so the copy is never longer than the text.
std::string Presentable(std::string_view text, std::size_t limit = kMaxPeerText);

/// The same, in place. A text that is presentable already, as nearly all are, is not copied.
void MakePresentable(std::string& text, std::size_t limit = kMaxPeerText);

/// The text with control characters written as \n, \t or \xNN; a backslash stays as it is. Inline: the log
/// has none of this folder's sources.
inline std::string Printable(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f)
            out += c;
        else if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else
            out.append("\\x").append({kDigits[byte >> 4U], kDigits[byte & 0x0FU]});
    }
    return out;
}

}  // namespace base

#endif
