// SPDX-License-Identifier: Apache-2.0
// A peer of cdb.sock, manager.sock or netconf.sock that a test plays itself: whole protobuf frames, or
// any bytes. Blocking, with deadlines.

#ifndef SUPPORT_FRAMES_H
#define SUPPORT_FRAMES_H

#include <sys/un.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "support/poll.h"

namespace google::protobuf {
class MessageLite;
}

namespace support {

class FrameClient {
public:
    /// Connects. Throws std::runtime_error.
    explicit FrameClient(const std::filesystem::path& socket);
    /// Takes over a connected socket.
    explicit FrameClient(int descriptor) : m_descriptor(descriptor) {}
    ~FrameClient();
    FrameClient(const FrameClient&) = delete;
    FrameClient& operator=(const FrameClient&) = delete;

    void Send(const google::protobuf::MessageLite& message);

    /// Bytes as they are. False if the other side has gone before it took them all.
    bool SendBytes(std::string_view bytes);

    /// The next frame; false at the connection's end. Throws TimedOut.
    bool Receive(google::protobuf::MessageLite& message);

    /// Reads and drops until the other side ends the connection; false if it does not in time.
    bool AwaitEnd(std::chrono::milliseconds within = kPatience);

private:
    bool ReadBytes(char* into, std::size_t count);
    bool AwaitReadable(std::chrono::milliseconds within) const;
    int m_descriptor = -1;
};

/// Where a Unix socket is. Throws std::runtime_error if the path is too long for one.
sockaddr_un UnixAddress(const std::filesystem::path& socket);

/// The 4 bytes before a frame's content.
std::string FrameLength(std::uint32_t length);

}  // namespace support

#endif
