// SPDX-License-Identifier: Apache-2.0
// Separates the messages in a stream of bytes (RFC 6242, section 4): by an end mark until both
// sides have said hello, and in chunks afterwards if both know base:1.1. Knows no XML.

#ifndef NETCONF_FRAMING_H
#define NETCONF_FRAMING_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "netconf/names.h"

namespace netconf {

enum class Framing { kEndOfMessage, kChunked };

/// Splits received bytes into messages.
class MessageReader {
public:
    explicit MessageReader(std::size_t limit = kMaxMessage) : m_limit(limit) {}

    /// Applies to everything behind the last message taken by Next.
    void SetFraming(Framing framing) { m_framing = framing; }

    /// The longest message that is taken from here on, in bytes.
    void SetLimit(std::size_t limit) { m_limit = limit; }

    void Append(std::string_view bytes);

    /// The next whole message; nullopt if more bytes are needed, or the framing is broken (see Problem).
    std::optional<std::string> Next();

    /// What is wrong with the bytes; empty if nothing. Nothing can be read behind a broken frame.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

private:
    enum class Step { kDone, kMore, kMessage };
    bool NextByMark();
    bool NextByChunks();
    Step ReadHeader();
    Step ReadChunk();
    Step Fail(std::string problem);
    std::string Take();

    std::size_t m_limit;
    Framing m_framing = Framing::kEndOfMessage;
    std::string m_input;  // received; consumed up to m_position
    std::size_t m_position = 0;
    std::string m_message;        // the next message, as far as received
    std::size_t m_chunkLeft = 0;  // bytes of the current chunk not yet received
    std::string m_problem;
};

/// What goes before and behind a message of `size` bytes.
std::string FrameHeader(Framing framing, std::size_t size);
std::string_view FrameTrailer(Framing framing);

}  // namespace netconf

#endif
