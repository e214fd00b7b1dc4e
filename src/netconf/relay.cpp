// SPDX-License-Identifier: Apache-2.0
#include "netconf/relay.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace netconf {
namespace {

/// One direction: reads when its buffer is empty, writes when it is not.
class Stream {
public:
    Stream(int from, int to) : m_from(from), m_to(to) {}

    [[nodiscard]] bool WantsRead() const { return !m_ended && m_begin == m_end; }
    [[nodiscard]] bool WantsWrite() const { return m_begin != m_end; }
    /// The source has ended and all of it has been written.
    [[nodiscard]] bool Done() const { return m_ended && m_begin == m_end; }

    void Read()
    {
        const ssize_t count = ::read(m_from, m_buffer.data(), m_buffer.size());
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
        m_begin = 0;
        m_end = count > 0 ? static_cast<std::size_t>(count) : 0;
        m_ended = count <= 0;
    }

    /// Returns false if the receiver takes nothing any more.
    bool Write()
    {
        const ssize_t count = ::write(m_to, m_buffer.data() + m_begin, m_end - m_begin);
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        m_begin += static_cast<std::size_t>(count);
        return true;
    }

private:
    int m_from;
    int m_to;
    std::array<char, 65536> m_buffer{};
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_ended = false;
};

}  // namespace

bool Relay(int input, int output, int server)
{
    constexpr short kGone = POLLHUP | POLLERR;
    Stream up(input, server);
    Stream down(server, output);
    bool upOpen = true;
    while (!down.Done()) {
        std::array<pollfd, 4> waits{pollfd{up.WantsRead() ? input : -1, POLLIN, 0},
                                    pollfd{up.WantsWrite() ? server : -1, POLLOUT, 0},
                                    pollfd{down.WantsRead() ? server : -1, POLLIN, 0},
                                    pollfd{down.WantsWrite() ? output : -1, POLLOUT, 0}};
        if (::poll(waits.data(), waits.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if ((waits[0].revents & (POLLIN | kGone)) != 0) up.Read();
        if ((waits[1].revents & (POLLOUT | kGone)) != 0 && !up.Write()) return false;
        if ((waits[2].revents & (POLLIN | kGone)) != 0) down.Read();
        if ((waits[3].revents & (POLLOUT | kGone)) != 0 && !down.Write()) return false;
        if (upOpen && up.Done()) {
            // The server still answers what was asked, then closes.
            ::shutdown(server, SHUT_WR);
            upOpen = false;
        }
    }
    return true;
}

}  // namespace netconf
