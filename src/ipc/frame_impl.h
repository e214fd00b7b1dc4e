// SPDX-License-Identifier: Apache-2.0
// The two halves of a Channel: bytes received that are not a whole frame yet, and frames queued to be
// written. Plain buffers; they know no socket. Used by Channel only.

#ifndef IPC_FRAME_IMPL_H
#define IPC_FRAME_IMPL_H

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace google::protobuf {
class MessageLite;
}

namespace ipc {

/// The bytes of a frame's content; a longer frame, sent or received, ends the connection.
inline constexpr std::size_t kMaxFrame = std::size_t{64} << 20;

/// The bytes that may wait unsent in one channel; one more frame ends the connection.
inline constexpr std::size_t kMaxQueue = std::size_t{64} << 20;

inline constexpr std::size_t kFrameHeader = 4;

/// Bytes received, cut into frames. Grows with the bytes that have arrived, never with an announced length.
class FrameReader {
public:
    FrameReader();

    /// The space for the next received bytes; never empty.
    [[nodiscard]] char* FreeSpace() { return m_buffer.data() + m_end; }
    [[nodiscard]] std::size_t FreeSize() const { return m_buffer.size() - m_end; }

    void Received(std::size_t bytes) { m_end += bytes; }

    /// The next whole frame's content, valid until MakeRoom; nullopt if none is complete or it is over the
    /// limit.
    std::optional<std::string_view> Next();

    /// Whether the next frame's announced length is over kMaxFrame.
    [[nodiscard]] bool Oversized() const;

    /// Call when Next returns nothing, before receiving again.
    void MakeRoom();

private:
    [[nodiscard]] std::size_t Available() const { return m_end - m_begin; }
    [[nodiscard]] std::size_t NextLength() const;

    std::vector<char> m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
};

/// Frames queued. Those queued while a write is under way go out together with the next.
class FrameWriter {
public:
    /// Returns false, and queues nothing, if the frame or the queue would be over its limit.
    bool Append(const google::protobuf::MessageLite& message);

    [[nodiscard]] std::size_t Queued() const { return m_pending.size() + m_writing.size() - m_written; }

    /// The bytes to write next; empty if nothing is queued. Valid until Written has covered them.
    [[nodiscard]] std::string_view Chunk();
    void Written(std::size_t bytes);

    void Clear();

private:
    std::vector<char> m_pending;
    std::vector<char> m_writing;
    std::size_t m_written = 0;
};

}  // namespace ipc

#endif
