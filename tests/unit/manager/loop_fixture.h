// SPDX-License-Identifier: Apache-2.0
// A directory and a loop of the test's own, and protobuf peers on that loop.

#ifndef TESTS_UNIT_MANAGER_LOOP_FIXTURE_H
#define TESTS_UNIT_MANAGER_LOOP_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "ipc/frame.h"
#include "support/manual_timers.h"
#include "support/run_until.h"

class LoopFixture : public testing::Test {
protected:
    LoopFixture()
    {
        std::string name = (std::filesystem::temp_directory_path() / "manager-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        m_dir = name;
    }
    ~LoopFixture() override { std::filesystem::remove_all(m_dir); }

    /// Runs the loop until the condition holds; false when it never does.
    template <typename Condition>
    [[nodiscard]] bool RunUntil(Condition condition)
    {
        return support::RunUntil(m_loop, condition);
    }

    [[nodiscard]] static std::string Content(const std::filesystem::path& path)
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    std::filesystem::path m_dir;
    boost::asio::io_context m_loop;
    support::ManualTimers m_timers;
};

/// One end of a connection that speaks whole messages and records what comes.
template <typename Received>
class Peer {
public:
    explicit Peer(std::shared_ptr<ipc::Channel> channel) : m_channel(std::move(channel))
    {
        m_channel->Start(
            {[this](std::string_view frame) {
                 m_received.emplace_back();
                 EXPECT_TRUE(m_received.back().ParseFromArray(frame.data(), static_cast<int>(frame.size())));
             },
             [this](std::string_view reason) { m_closed = std::string(reason); }});
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { m_channel->Close(true); }

    template <typename Message>
    void Send(const Message& message)
    {
        m_channel->Send(message);
    }
    void Close() { m_channel->Close(); }

    [[nodiscard]] const std::vector<Received>& All() const { return m_received; }
    [[nodiscard]] bool Ended() const { return m_closed.has_value(); }

private:
    std::shared_ptr<ipc::Channel> m_channel;
    std::vector<Received> m_received;
    std::optional<std::string> m_closed;
};

#endif
