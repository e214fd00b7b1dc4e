// SPDX-License-Identifier: Apache-2.0
#include "netconf/framing.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

namespace netconf {
namespace {

constexpr std::string_view kMark = "]]>]]>";
constexpr std::string_view kEndOfChunks = "\n##\n";

/// "\n#" and ten digits at most, and the line feed behind them.
constexpr std::size_t kLongestHeader = 13;

std::string TooLong(std::size_t limit)
{
    return "the message is longer than " + std::to_string(limit) + " bytes; send it in parts";
}

}  // namespace

void MessageReader::Append(std::string_view bytes)
{
    if (m_position == m_input.size()) {
        m_input.clear();
        m_position = 0;
    }
    m_input.append(bytes);
}

std::optional<std::string> MessageReader::Next()
{
    if (!m_problem.empty()) return std::nullopt;
    const bool whole = m_framing == Framing::kEndOfMessage ? NextByMark() : NextByChunks();
    if (!whole) return std::nullopt;
    return Take();
}

bool MessageReader::NextByMark()
{
    // What was moved to the message may end with the beginning of a mark.
    const std::size_t searchFrom = m_message.size() - std::min(m_message.size(), kMark.size() - 1);
    m_message.append(m_input, m_position);
    m_position = m_input.size();
    const std::size_t mark = m_message.find(kMark, searchFrom);
    if (mark == std::string::npos) {
        if (m_message.size() > m_limit + kMark.size()) Fail(TooLong(m_limit));
        return false;
    }
    if (mark > m_limit) {
        Fail(TooLong(m_limit));
        return false;
    }
    m_input.assign(m_message, mark + kMark.size());
    m_position = 0;
    m_message.resize(mark);
    return true;
}

bool MessageReader::NextByChunks()
{
    for (;;) {
        const Step step = m_chunkLeft != 0 ? ReadChunk() : ReadHeader();
        if (step == Step::kMessage) return true;
        if (step == Step::kMore) return false;
    }
}

MessageReader::Step MessageReader::ReadChunk()
{
    const std::size_t count = std::min(m_chunkLeft, m_input.size() - m_position);
    m_message.append(m_input, m_position, count);
    m_position += count;
    m_chunkLeft -= count;
    return m_chunkLeft == 0 ? Step::kDone : Step::kMore;
}

MessageReader::Step MessageReader::ReadHeader()
{
    const std::string_view rest = std::string_view(m_input).substr(m_position);
    const std::string_view head = rest.substr(0, kLongestHeader);
    if (!std::string_view("\n#").starts_with(head.substr(0, 2)))
        return Fail("a chunk does not begin with a line feed and '#'");
    if (head.size() < 3) return Step::kMore;
    if (head[2] == '#') {
        if (!kEndOfChunks.starts_with(head.substr(0, kEndOfChunks.size())))
            return Fail("'##' is not followed by a line feed");
        if (head.size() < kEndOfChunks.size()) return Step::kMore;
        if (m_message.empty()) return Fail("a message has no chunk");
        m_position += kEndOfChunks.size();
        return Step::kMessage;
    }
    std::uint32_t size = 0;
    const char* end = head.data() + head.size();
    const auto [stop, error] = std::from_chars(head.data() + 2, end, size);
    if (head[2] == '0' || error != std::errc{})
        return Fail("a chunk's size is no number from 1 to 4294967295");
    if (stop == end && head.size() < kLongestHeader) return Step::kMore;
    if (stop == end || *stop != '\n') return Fail("a chunk's size is not followed by a line feed");
    if (size > m_limit || m_message.size() > m_limit - size) return Fail(TooLong(m_limit));
    m_position += static_cast<std::size_t>(stop - head.data()) + 1;
    m_chunkLeft = size;
    return Step::kDone;
}

MessageReader::Step MessageReader::Fail(std::string problem)
{
    m_problem = std::move(problem);
    return Step::kMore;
}

std::string MessageReader::Take()
{
    if (m_position == m_input.size()) {
        m_input = std::string();  // a long message's memory is not kept
        m_position = 0;
    }
    return std::exchange(m_message, std::string());
}

std::string FrameHeader(Framing framing, std::size_t size)
{
    if (framing == Framing::kEndOfMessage) return {};
    return "\n#" + std::to_string(size) + "\n";
}

std::string_view FrameTrailer(Framing framing)
{
    return framing == Framing::kEndOfMessage ? kMark : kEndOfChunks;
}

}  // namespace netconf
