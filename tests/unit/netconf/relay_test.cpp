// SPDX-License-Identifier: Apache-2.0
// The relay: bytes both ways, however the sides end.

#include "netconf/relay.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <thread>
#include <utility>

namespace {

/// Two connected sockets.
struct Pair {
    Pair()
    {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) std::abort();
        ours = ends[0];
        theirs = ends[1];
    }
    ~Pair()
    {
        CloseOurs();
        ::close(theirs);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    void CloseOurs()
    {
        if (ours >= 0) ::close(std::exchange(ours, -1));
    }
    int ours = -1;
    int theirs = -1;
};

/// Reads until the end.
std::string ReadAll(int descriptor)
{
    std::string text;
    std::array<char, 4096> buffer;
    for (ssize_t count; (count = ::read(descriptor, buffer.data(), buffer.size())) > 0;)
        text.append(buffer.data(), static_cast<std::size_t>(count));
    return text;
}

void Write(int descriptor, const std::string& text)
{
    EXPECT_EQ(::write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

class Relay : public testing::Test {
protected:
    Relay() { std::signal(SIGPIPE, SIG_IGN); }

    void Start()
    {
        m_thread = std::thread([this] {
            m_result = netconf::Relay(m_input.theirs, m_output.theirs, m_server.theirs);
            ::shutdown(m_output.theirs, SHUT_RDWR);
        });
    }
    bool Result()
    {
        m_thread.join();
        return m_result;
    }

    Pair m_input;
    Pair m_output;
    Pair m_server;

private:
    std::thread m_thread;
    bool m_result = false;
};

TEST_F(Relay, CarriesTheAnswerAfterTheEndOfTheInput)
{
    Start();
    Write(m_input.ours, "question");
    m_input.CloseOurs();
    EXPECT_EQ(ReadAll(m_server.ours), "question");
    Write(m_server.ours, "answer");
    m_server.CloseOurs();
    EXPECT_EQ(ReadAll(m_output.ours), "answer");
    EXPECT_TRUE(Result());
}

TEST_F(Relay, EndsWithTheServerWhileTheInputIsOpen)
{
    Start();
    Write(m_server.ours, "goodbye");
    m_server.CloseOurs();
    EXPECT_EQ(ReadAll(m_output.ours), "goodbye");
    EXPECT_TRUE(Result());
}

TEST_F(Relay, CarriesMuchBothWaysAtOnce)
{
    const std::string much(3'000'000, 'x');
    Start();
    std::thread up([&] {
        Write(m_input.ours, much);
        m_input.CloseOurs();
    });
    std::thread down([&] { Write(m_server.ours, much); });
    std::string received;
    std::thread reader([&] { received = ReadAll(m_output.ours); });
    EXPECT_EQ(ReadAll(m_server.ours), much);
    up.join();
    down.join();
    m_server.CloseOurs();
    reader.join();
    EXPECT_EQ(received, much);
    EXPECT_TRUE(Result());
}

TEST_F(Relay, EndsWhenNobodyTakesTheOutput)
{
    Start();
    m_output.CloseOurs();
    Write(m_server.ours, "answer");
    EXPECT_FALSE(Result());
}

}  // namespace
