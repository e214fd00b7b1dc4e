// SPDX-License-Identifier: Apache-2.0
// A netlink socket against the kernel: what is refused, what is lost, and that the socket goes on after it.

#include "netlink/netlink.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include <linux/genetlink.h>
#include <linux/rtnetlink.h>

#include "support/network.h"

namespace net {
namespace {

using support::Network;

class NetlinkTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        Network::Ip("link add one type bridge\nlink set one up\nlink add two type bridge");
    }

    static NetlinkRequest LinkDump()
    {
        NetlinkRequest request(RTM_GETLINK, NLM_F_DUMP);
        request.AddHeader(ifinfomsg{});
        return request;
    }

    /// The links that a dump names, lo among them.
    static std::size_t CountLinks(NetlinkSocket& socket)
    {
        std::size_t links = 0;
        NetlinkRequest request = LinkDump();
        EXPECT_TRUE(socket.Request(
            request, [&](const nlmsghdr&) { ++links; }, [&] { links = 0; }));
        return links;
    }

    std::optional<Network> m_network;
};

TEST_F(NetlinkTest, AGroupThatTheKernelLacksIsRefused)
{
    NetlinkSocket socket(NETLINK_ROUTE);
    EXPECT_THROW(socket.Join(100'000), std::system_error);
    EXPECT_EQ(CountLinks(socket), 3U);
}

TEST_F(NetlinkTest, WhatTheAnswersHandlerThrowsComesAfterTheOtherAnswers)
{
    NetlinkSocket socket(NETLINK_ROUTE);
    NetlinkRequest request = LinkDump();
    int calls = 0;
    const auto handler = [&](const nlmsghdr&) {
        ++calls;
        throw std::runtime_error("enough");
    };
    EXPECT_THROW(socket.Request(request, handler), std::runtime_error);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(socket.Wait(0)) << "answers of the first request are left";
    EXPECT_EQ(CountLinks(socket), 3U);
}

TEST_F(NetlinkTest, ADumpIsRepeatedWhereMessagesWereLost)
{
    NetlinkSocket socket(NETLINK_ROUTE);
    socket.SetReceiveBuffer(32 * 1024);
    socket.Join(RTNLGRP_LINK);
    std::string lines;
    for (int i = 0; i < 200; ++i) lines += "link set one alias x" + std::to_string(i) + "\n";
    Network::Ip(lines);
    EXPECT_TRUE(socket.Wait(0));

    NetlinkRequest request = LinkDump();
    std::size_t links = 0;
    int restarts = 0;
    EXPECT_TRUE(socket.Request(
        request, [&](const nlmsghdr&) { ++links; },
        [&] {
            ++restarts;
            links = 0;
        }));
    EXPECT_EQ(links, 3U) << "notifications are no answers";
    EXPECT_EQ(restarts, 1);
}

TEST_F(NetlinkTest, AFamilysGroupsAreFoundByName)
{
    NetlinkSocket socket(NETLINK_GENERIC);
    const GenericFamily control = FindGenericFamily(socket, "nlctrl");
    EXPECT_EQ(control.id, GENL_ID_CTRL);
    EXPECT_TRUE(control.Group("notify").has_value());
    EXPECT_FALSE(control.Group("nothing").has_value());
    EXPECT_THROW((void)FindGenericFamily(socket, "no-such-family"), std::system_error);
}

}  // namespace
}  // namespace net
