// SPDX-License-Identifier: Apache-2.0
// The two halves of a Channel: what has been received and is not yet a whole frame, and what is
// queued and not yet written. Plain buffers; they know no socket. Used by frame_channel.cpp only.

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

inline constexpr std::size_t kFrameHeader = 4;

/// Bytes received, cut into frames. Grows with what has arrived, never with what a length promises.
class FrameReader {
public:
    FrameReader();

    /// Where the next bytes are to be received; never empty.
    [[nodiscard]] char* FreeSpace() { return m_buffer.data() + m_end; }
    [[nodiscard]] std::size_t FreeSize() const { return m_buffer.size() - m_end; }

    void Received(std::size_t bytes) { m_end += bytes; }

    /// The next whole frame's content, valid until MakeRoom; nullopt when none is complete or one is
    /// over the limit.
    std::optional<std::string_view> Next();

    /// Whether the frame that comes next is longer than a frame may be.
    [[nodiscard]] bool Oversized() const;

    /// To be called when Next has nothing more, before receiving again.
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
    /// False, and nothing queued, when the frame or the queue would be over its limit.
    bool Append(const google::protobuf::MessageLite& message);

    [[nodiscard]] std::size_t Queued() const { return m_pending.size() + m_writing.size() - m_written; }

    /// What to write next; empty when nothing is queued. Stays in place until Written has covered it.
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
