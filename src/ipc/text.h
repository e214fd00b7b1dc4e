// Texts that peers send, made fit for everything that later shows them: XML, JSON, the log, a terminal.
// To be used where such a text comes in, once.

#ifndef IPC_TEXT_H
#define IPC_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace ipc {

/// How much of one text of a peer is kept.
inline constexpr std::size_t kMaxPeerText = 4096;

/// The text as valid UTF-8 of at most `limit` bytes, cut between characters. Tab and line feed stay; other
/// control characters, bytes that are no UTF-8, and characters that XML or YANG have no place for (U+FFFE
/// and the other non-characters) become '?'.
std::string Presentable(std::string_view text, std::size_t limit = kMaxPeerText);

/// The same, in place. A text that is fit already, as nearly all are, is not copied.
void MakePresentable(std::string& text, std::size_t limit = kMaxPeerText);

}  // namespace ipc

#endif
