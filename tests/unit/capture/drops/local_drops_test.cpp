// SPDX-License-Identifier: Apache-2.0
// Drops of packets that this machine sends or that are for it, and what is none: what sockets have and what
// they leave.

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <string>

#include "base/unique_fd.h"
#include "capture/drops/code.h"
#include "capture/drops_world.h"

namespace {

using support::Network;
using wire::DropReason;

constexpr std::uint32_t kLoopback = 1;

sockaddr_in Address(const char* text, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

base::UniqueFd Socket(int family, int type)
{
    return base::UniqueFd(::socket(family, type | SOCK_CLOEXEC, 0));
}

void SendTo(int socket, const char* address, std::uint16_t port)
{
    const sockaddr_in to = Address(address, port);
    (void)::sendto(socket, "text", 4, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

void Bind(int socket, const char* address, std::uint16_t port)
{
    const sockaddr_in at = Address(address, port);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
}

class LocalDropsTest : public DropsWorld {
protected:
    void SetUp() override
    {
        DropsWorld::SetUp();
        if (IsSkipped()) return;
        Network::Ip("addr add 10.0.0.1/24 dev near0\nneigh add 10.0.0.2 lladdr 02:00:00:00:00:01 dev near0");
        SetKernel("net/ipv4/neigh/near0/retrans_time_ms", "20");
        source->Change({.limit = 1000, .everyInterface = true});
    }

    // Drops one packet at the loopback interface: all before it has been counted.
    void ExpectNothingButOne()
    {
        SendTo(Socket(AF_INET, SOCK_DGRAM).Get(), "127.0.0.1", 9);
        Await(kLoopback, 1);
        EXPECT_EQ(source->ReadAll().size(), 1U) << Everything();
    }
};

TEST_F(LocalDropsTest, APacketWithoutALinkHeaderBeginsWithIp)
{
    SendTo(Socket(AF_INET, SOCK_DGRAM).Get(), "10.0.0.77", 9);
    Await(near0, 1);
    ASSERT_EQ(sink.drops.size(), 1U);
    const auto& kept = sink.drops[0];
    EXPECT_EQ(kept.reason, "NEIGH_FAILED");
    EXPECT_EQ(kept.drop.input, 0U);
    EXPECT_EQ(kept.drop.output, near0);
    EXPECT_EQ(kept.drop.start, capture::HeaderStart::kIpv4);
    EXPECT_EQ(kept.drop.length, 32U);
    ASSERT_EQ(kept.header.size(), 32U);
    EXPECT_EQ(kept.header[0], std::byte{0x45});
}

TEST_F(LocalDropsTest, APacketThatComesToNoDeviceCountsWhereItsRouteLeads)
{
    if (const auto why = WhyNoFirewall(); !why.empty()) GTEST_SKIP() << why;
    Network::Run(
        {"nft", "table ip t { chain c { type filter hook output priority 0; udp dport 99 drop; }; }"});
    SendTo(Socket(AF_INET, SOCK_DGRAM).Get(), "10.0.0.2", 99);
    Await(near0, 1);
    ASSERT_EQ(sink.drops.size(), 1U);
    EXPECT_EQ(CodeOf(Told(sink.drops[0])), DropReason::kAcl);
    EXPECT_EQ(sink.drops[0].drop.input, 0U);
    EXPECT_EQ(sink.drops[0].drop.output, near0);
}

TEST_F(LocalDropsTest, EachThatFindsAFullSocketIsCountedAndTold)
{
    const auto in = Socket(AF_INET, SOCK_DGRAM);
    const int least = 1;
    ASSERT_EQ(::setsockopt(in.Get(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
    Bind(in.Get(), "10.0.0.1", 2000);
    constexpr std::uint64_t kSent = 30;
    std::vector<support::Bytes> frames;
    for (std::uint64_t i = 0; i < kSent; ++i)
        frames.push_back(support::UdpFrame({.from = 1,
                                            .to = 0x10,
                                            .source = "10.0.0.2",
                                            .destination = "10.0.0.1",
                                            .size = 900,
                                            .number = i}));
    Send(frames);
    std::uint64_t received = 0;
    std::array<char, 2000> buffer{};
    EXPECT_TRUE(support::Becomes([&] {
        while (::recv(in.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT) > 0) ++received;
        return received + DropsFor(near0, "SOCKET_RCVBUFF") == kSent;
    })) << received
        << Everything();
    EXPECT_GT(received, 0U);
    source->Drain();
    EXPECT_EQ(sink.drops.size(), kSent - received);
    for (const auto& kept : sink.drops) EXPECT_EQ(CodeOf(Told(kept)), DropReason::kNoBufferSpace);
}

TEST_F(LocalDropsTest, TheProcessesOwnPacketsAreCountedButNotTold)
{
    Start({.ownMark = 0x5f});
    source->Change({.limit = 1000, .everyInterface = true});
    const auto out = Socket(AF_INET, SOCK_DGRAM);
    SendTo(out.Get(), "127.0.0.1", 9);
    const int mark = 0x5f;
    ASSERT_EQ(::setsockopt(out.Get(), SOL_SOCKET, SO_MARK, &mark, sizeof mark), 0);
    const auto marked = Socket(AF_INET, SOCK_DGRAM);
    ASSERT_EQ(::setsockopt(marked.Get(), SOL_SOCKET, SO_MARK, &mark, sizeof mark), 0);
    for (int i = 0; i < 3; ++i) SendTo(marked.Get(), "127.0.0.1", 9);
    Await(kLoopback, 4);
    EXPECT_EQ(Read(kLoopback).counts, (capture::DropCounts{.drops = 4, .untold = 0, .own = 3}));
    EXPECT_EQ(sink.drops.size(), 1U);
}

TEST_F(LocalDropsTest, WhatASocketsOwnerLeavesIsNone)
{
    auto in = Socket(AF_INET, SOCK_DGRAM);
    Bind(in.Get(), "127.0.0.1", 2000);
    const auto out = Socket(AF_INET, SOCK_DGRAM);
    for (int i = 0; i < 5; ++i) SendTo(out.Get(), "127.0.0.1", 2000);
    in.Close();
    ExpectNothingButOne();
}

TEST_F(LocalDropsTest, AConnectionIsNone)
{
    const auto listener = Socket(AF_INET, SOCK_STREAM);
    Bind(listener.Get(), "127.0.0.1", 2000);
    ASSERT_EQ(::listen(listener.Get(), 1), 0);
    auto out = Socket(AF_INET, SOCK_STREAM);
    const sockaddr_in to = Address("127.0.0.1", 2000);
    ASSERT_EQ(::connect(out.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    auto in = base::UniqueFd(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    const std::string text(100000, 'x');
    ASSERT_EQ(::send(out.Get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    std::array<char, 4096> buffer{};
    ASSERT_GT(::recv(in.Get(), buffer.data(), buffer.size(), 0), 0);
    in.Close();  // with the rest unread
    out.Close();
    ExpectNothingButOne();
}

TEST_F(LocalDropsTest, WhatUnixSocketsDropIsNone)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(::send(ends[0], "text", 4, 0), 4);
    ::close(ends[0]);
    ::close(ends[1]);
    ExpectNothingButOne();
}

TEST_F(LocalDropsTest, ACopyThatAPacketSocketDidNotTakeIsNone)
{
    const auto tap = base::UniqueFd(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(3)));  // all protocols
    const int least = 1;
    ASSERT_EQ(::setsockopt(tap.Get(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least), 0);
    const auto in = Socket(AF_INET, SOCK_DGRAM);
    Bind(in.Get(), "10.0.0.1", 2000);
    std::vector<support::Bytes> frames;
    for (std::uint64_t i = 0; i < 50; ++i)
        frames.push_back(support::UdpFrame({.from = 1,
                                            .to = 0x10,
                                            .source = "10.0.0.2",
                                            .destination = "10.0.0.1",
                                            .size = 900,
                                            .number = i}));
    Send(frames);
    std::array<char, 2000> buffer{};
    std::size_t received = 0;
    EXPECT_TRUE(support::Becomes([&] {
        while (::recv(in.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT) > 0) ++received;
        return received == frames.size();
    }));
    tpacket_stats lost{};
    socklen_t size = sizeof lost;
    ASSERT_EQ(::getsockopt(tap.Get(), SOL_PACKET, PACKET_STATISTICS, &lost, &size), 0);
    EXPECT_GT(lost.tp_drops, 0U);
    ExpectNothingButOne();
}

}  // namespace
