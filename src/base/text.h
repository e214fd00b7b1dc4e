// SPDX-License-Identifier: Apache-2.0
// Texts that peers send, made fit for everything that later shows them: XML, JSON, the log, a terminal.
// To be used where such a text comes in, once.

#ifndef BASE_TEXT_H
#define BASE_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

/// How much of one text of a peer is kept.
inline constexpr std::size_t kMaxPeerText = 4096;

/// Whether the text can be shown as it is, of any length: UTF-8 without control characters but tab and line
/// feed, and without the characters that XML (1.0, section 2.2) or YANG (RFC 7950, section 14) has no place
/// for.
bool IsPresentable(std::string_view text);

/// The text as such a one of at most `limit` bytes, cut between characters; '?' stands for each character,
/// or byte that is no UTF-8, which has no place there. So it never grows.
std::string Presentable(std::string_view text, std::size_t limit = kMaxPeerText);

/// The same, in place. A text that is fit already, as nearly all are, is not copied.
void MakePresentable(std::string& text, std::size_t limit = kMaxPeerText);

}  // namespace base

#endif
