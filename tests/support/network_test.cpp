// SPDX-License-Identifier: Apache-2.0
// The networks that other tests use.

#include "support/network.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include <gtest/gtest.h>

namespace support {
namespace {

class NetworkTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const std::string reason = Network::WhyNot(); !reason.empty()) GTEST_SKIP() << reason;
    }
};

int Listen(const std::string& device)
{
    const int socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(Network::Index(device));
    EXPECT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval patience{5, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return socket;
}

TEST_F(NetworkTest, AFrameThatIsPutOnOneEndComesOutOfTheOther)
{
    const Network network;
    Network::Veth("p1", "h1");
    const int socket = Listen("p1");
    const Bytes frame = UdpFrame({.size = 333, .number = 7});
    ASSERT_EQ(frame.size(), 333U);
    Injector("h1").Send(frame);
    Bytes got(2000);
    const ssize_t size = ::recv(socket, got.data(), got.size(), 0);
    ::close(socket);
    ASSERT_GT(size, 0);
    got.resize(static_cast<std::size_t>(size));
    EXPECT_EQ(got, frame);
}

TEST_F(NetworkTest, NothingSendsByItself)
{
    const Network network;
    Network::Veth("p1", "h1");
    Network::MakeBridge("br0", {"p1"});
    const int socket = Listen("p1");
    const timeval patience{0, 300000};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::array<char, 100> got{};
    EXPECT_EQ(::recv(socket, got.data(), got.size(), 0), -1);
    ::close(socket);
}

TEST_F(NetworkTest, AHostIsElsewhereUntilItIsLetGo)
{
    const Network network;
    Network::Veth("p1", "h1");
    const Network::Host host;
    Network::Ip("link set h1 netns " + std::to_string(host.Pid()));
    EXPECT_THROW(Network::Index("h1"), std::system_error);
    EXPECT_NE(host.Run({"ip", "link", "show", "h1"}).find("h1"), std::string::npos);
    host.Within([] { EXPECT_GT(Network::Index("h1"), 0U); });
    EXPECT_GT(Network::Index("p1"), 0U);
}

TEST_F(NetworkTest, AFailingCommandSaysWhy)
{
    const Network network;
    EXPECT_THROW(Network::Ip("link set nosuch up"), std::runtime_error);
}

}  // namespace
}  // namespace support
