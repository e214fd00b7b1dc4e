// SPDX-License-Identifier: Apache-2.0
// Cutting received bytes into frames, and queueing frames to be written.

#include "ipc/frame_impl.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <google/protobuf/message_lite.h>

namespace ipc {
namespace {

constexpr std::size_t kReadSize = std::size_t{64} << 10;

/// A buffer that a large message has grown beyond this is freed when it is empty.
constexpr std::size_t kKeptSize = std::size_t{1} << 20;

}  // namespace

FrameReader::FrameReader() : m_buffer(kReadSize) {}

std::size_t FrameReader::NextLength() const
{
    std::uint32_t length = 0;
    std::memcpy(&length, m_buffer.data() + m_begin, sizeof length);
    return ntohl(length);
}

bool FrameReader::Oversized() const { return Available() >= kFrameHeader && NextLength() > kMaxFrame; }

std::optional<std::string_view> FrameReader::Next()
{
    if (Available() < kFrameHeader) return std::nullopt;
    const std::size_t length = NextLength();
    if (length > kMaxFrame || Available() - kFrameHeader < length) return std::nullopt;
    const std::string_view frame(m_buffer.data() + m_begin + kFrameHeader, length);
    m_begin += kFrameHeader + length;
    return frame;
}

void FrameReader::MakeRoom()
{
    if (m_begin > 0) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, Available());
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end == m_buffer.size()) {
        m_buffer.resize(m_buffer.size() * 2);
    } else if (m_end == 0 && m_buffer.size() > kKeptSize) {
        m_buffer = std::vector<char>(kReadSize);
    }
}

bool FrameWriter::Append(const google::protobuf::MessageLite& message)
{
    const std::size_t length = message.ByteSizeLong();
    const std::size_t queued = Queued();
    // An empty queue takes any legal frame, so that the largest one can be sent at all.
    if (length > kMaxFrame || (queued > 0 && queued + kFrameHeader + length > kMaxQueue)) return false;
    const std::size_t start = m_pending.size();
    m_pending.resize(start + kFrameHeader + length);
    const std::uint32_t header = htonl(static_cast<std::uint32_t>(length));
    std::memcpy(m_pending.data() + start, &header, sizeof header);
    message.SerializeWithCachedSizesToArray(
        reinterpret_cast<std::uint8_t*>(m_pending.data() + start + kFrameHeader));
    return true;
}

std::string_view FrameWriter::Chunk()
{
    if (m_written == m_writing.size()) {
        m_written = 0;
        m_writing.clear();
        if (m_writing.capacity() > kKeptSize) m_writing = {};
        m_writing.swap(m_pending);
    }
    return {m_writing.data() + m_written, m_writing.size() - m_written};
}

void FrameWriter::Written(std::size_t bytes) { m_written += std::min(bytes, m_writing.size() - m_written); }

void FrameWriter::Clear()
{
    m_pending = {};
    m_writing = {};
    m_written = 0;
}

}  // namespace ipc
