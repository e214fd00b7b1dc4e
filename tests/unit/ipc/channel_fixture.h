// SPDX-License-Identifier: Apache-2.0
// A Channel on one end of a socket pair, its events recorded, and the bare descriptor of the other.

#ifndef TESTS_UNIT_IPC_CHANNEL_FIXTURE_H
#define TESTS_UNIT_IPC_CHANNEL_FIXTURE_H

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "ipc/cdb.pb.h"
#include "ipc/frame.h"
#include "support/manual_timers.h"

inline std::string FrameOf(std::string_view content)
{
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(content.size()));
    std::string frame(reinterpret_cast<const char*>(&length), sizeof length);
    return frame.append(content);
}

/// A message whose content is `text`, more or less.
inline ipc::cdb::RegisterCallpoint Named(std::string text)
{
    ipc::cdb::RegisterCallpoint message;
    message.set_name(std::move(text));
    return message;
}

class ChannelFixture : public testing::Test {
protected:
    using Frames = std::vector<std::string>;

    ChannelFixture()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
        m_peer = ends[1];
        ipc::Channel::Socket socket(m_loop);
        socket.assign(boost::asio::local::stream_protocol(), ends[0]);
        m_channel = ipc::Channel::Create(std::move(socket), m_timers);
    }
    ~ChannelFixture() override { ClosePeer(); }

    void Start()
    {
        m_channel->Start({[this](std::string_view frame) { m_frames.emplace_back(frame); },
                          [this](std::string_view reason) { m_reasons.emplace_back(reason); }});
    }

    void ClosePeer()
    {
        if (m_peer >= 0) ::close(std::exchange(m_peer, -1));
    }

    void PeerWrites(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t written = ::send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            ASSERT_GT(written, 0) << std::strerror(errno);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    /// What has arrived at the other end so far.
    [[nodiscard]] std::string PeerReads() const
    {
        std::string all;
        char part[65536];
        for (ssize_t got; (got = ::recv(m_peer, part, sizeof part, MSG_DONTWAIT)) > 0;)
            all.append(part, static_cast<std::size_t>(got));
        return all;
    }

    /// Runs everything that can run now.
    void Settle()
    {
        m_loop.restart();
        m_loop.poll();
    }

    template <typename Condition>
    [[nodiscard]] bool RunUntil(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            m_loop.restart();
            m_loop.run_one_for(std::chrono::milliseconds(5));
        }
        return condition();
    }

    boost::asio::io_context m_loop;
    support::ManualTimers m_timers;
    std::shared_ptr<ipc::Channel> m_channel;
    int m_peer = -1;
    Frames m_frames;
    Frames m_reasons;
};

#endif
