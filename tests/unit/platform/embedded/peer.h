// SPDX-License-Identifier: Apache-2.0
// A test's own cdbd or sflow-mgr: listens at a path on the loop of the process under test, keeps what
// it receives, and says what the test tells it to.

#ifndef TESTS_UNIT_PLATFORM_EMBEDDED_PEER_H
#define TESTS_UNIT_PLATFORM_EMBEDDED_PEER_H

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "ipc/frame.h"

template <typename Received, typename Sent>
class Peer {
public:
    Peer(boost::asio::io_context& loop, std::string path) : m_loop(loop), m_path(std::move(path)) {}
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { Die(); }

    void Listen()
    {
        m_acceptor = std::make_unique<Acceptor>(ipc::Listen(m_loop, m_path, 0600));
        Accept();
    }

    /// Ends the connection and listens no more.
    void Die()
    {
        m_acceptor.reset();
        Hangup();
    }

    void Hangup()
    {
        if (const auto channel = std::exchange(m_channel, nullptr)) channel->Close();
    }

    [[nodiscard]] bool IsConnected() const { return m_channel != nullptr; }
    void Send(const Sent& message) { m_channel->Send(message); }

    /// Everything received since the last call, in order, over all connections.
    std::vector<Received> Take() { return std::exchange(m_received, {}); }

    int connections = 0;
    std::function<void(const Received&)> onMessage;  // to answer by itself

private:
    using Acceptor = boost::asio::local::stream_protocol::acceptor;

    void Accept()
    {
        m_acceptor->async_accept([this](const boost::system::error_code& error, ipc::Channel::Socket socket) {
            if (error) return;
            ++connections;
            m_channel = ipc::Channel::Create(std::move(socket), *m_timers);
            m_channel->Start({[this](std::string_view frame) {
                                  Received message;
                                  message.ParseFromArray(frame.data(), static_cast<int>(frame.size()));
                                  m_received.push_back(message);
                                  if (onMessage) onMessage(message);
                              },
                              [this](std::string_view) { m_channel.reset(); }});
            Accept();
        });
    }

    boost::asio::io_context& m_loop;
    const std::unique_ptr<base::Timers> m_timers = base::MakeTimers(m_loop);
    const std::string m_path;
    std::unique_ptr<Acceptor> m_acceptor;
    std::shared_ptr<ipc::Channel> m_channel;
    std::vector<Received> m_received;
};

#endif
