// SPDX-License-Identifier: Apache-2.0
// What the source of drops counts and hands over: which interfaces, what of a packet, and how that changes
// while it runs.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "capture/drops_world.h"

namespace {

using support::Bytes;

class DropsSourceTest : public DropsWorld {};

TEST_F(DropsSourceTest, CountsNothingUntilAnInterfaceIsAdded)
{
    source->Change({.limit = 1000});
    SendForeign(3);
    source->Add(near0);
    SendForeign(5);
    Await(near0, 5);
    EXPECT_EQ(sink.drops.size(), 5U);
    EXPECT_EQ(source->ReadAll().size(), 1U);
}

TEST_F(DropsSourceTest, CountsWithoutTellingWhereTheLimitIsZero)
{
    source->Add(near0);
    SendForeign(5);
    Await(near0, 5);
    EXPECT_TRUE(sink.drops.empty());
    EXPECT_EQ(Read(near0).counts, (capture::DropCounts{.drops = 5, .untold = 5, .own = 0}));
}

TEST_F(DropsSourceTest, TellsTheBeginningOfThePacket)
{
    source->Change({.limit = 1000, .headerSize = 64});
    source->Add(near0);
    const Bytes frame = support::UdpFrame({.from = 1, .to = 0x99, .size = 300, .number = 7});
    Send({frame});
    Await(near0, 1);
    ASSERT_EQ(sink.drops.size(), 1U);
    const auto& [drop, reason, function, header] = sink.drops[0];
    EXPECT_EQ(reason, "OTHERHOST");
    EXPECT_EQ(source->NameOf(drop.reason), "OTHERHOST");
    EXPECT_NE(function, "");
    EXPECT_EQ(drop.ifIndex, near0);
    EXPECT_EQ(drop.input, near0);
    EXPECT_EQ(drop.output, 0U);
    EXPECT_EQ(drop.start, capture::HeaderStart::kEthernet);
    EXPECT_EQ(drop.length, 300U);
    EXPECT_EQ(drop.etherType, 0x0800);
    EXPECT_EQ(drop.tagProtocol, 0);
    EXPECT_EQ(drop.untold, 0U);
    EXPECT_TRUE(std::ranges::equal(header, std::span(frame).first(64)));
}

TEST_F(DropsSourceTest, TheHeaderIsAsLongAsIsWanted)
{
    source->Add(near0);
    for (const std::uint16_t size :
         {std::uint16_t{1}, std::uint16_t{200}, std::uint16_t{512}, std::uint16_t{9000}}) {
        source->Change({.limit = 1000, .headerSize = size});
        SendForeign(1, 1000);
    }
    source->Change({.limit = 1000, .headerSize = 128});
    SendForeign(1, 80);
    Await(near0, 5);
    std::vector<std::size_t> sizes;
    for (const auto& kept : sink.drops) sizes.push_back(kept.header.size());
    EXPECT_EQ(sizes, (std::vector<std::size_t>{1, 200, 512, 512, 80}));
}

TEST_F(DropsSourceTest, TellsATagThatTheKernelHasTaken)
{
    support::Network::MakeBridge("br0", {"near0"});
    source->Change({.limit = 1000});
    source->Add(near0);
    const Bytes plain = support::UdpFrame({.from = 1, .to = 0x99, .size = 100});
    const Bytes tagged = support::UdpFrame({.from = 1, .to = 0x99, .tags = {0x8100'6064}, .size = 104});
    Send({tagged});  // no other port is there to take it
    Await(near0, 1);
    ASSERT_EQ(sink.drops.size(), 1U);
    EXPECT_EQ(sink.drops[0].drop.tagProtocol, 0x8100);
    EXPECT_EQ(sink.drops[0].drop.tagControl, 0x6064);
    EXPECT_EQ(sink.drops[0].drop.length, 100U);
    ASSERT_EQ(sink.drops[0].header.size(), 100U);
    EXPECT_TRUE(std::equal(plain.begin(), plain.begin() + 14, sink.drops[0].header.begin()));
}

TEST_F(DropsSourceTest, InterfacesComeAndGoWhileItRuns)
{
    source->Change({.limit = 1000});
    source->Add(near0);
    SendForeign(4);
    Await(near0, 4);
    source->Remove(near0);
    SendForeign(4);
    EXPECT_FALSE(source->Read(near0));
    EXPECT_TRUE(source->ReadAll().empty());
    source->Add(near0);
    SendForeign(2);
    Await(near0, 2);
    EXPECT_EQ(DropsFor(near0, "OTHERHOST"), 2U);
    EXPECT_EQ(sink.drops.size(), 6U);
}

TEST_F(DropsSourceTest, RemoveHandsOverWhatWaits)
{
    source->Change({.limit = 1000});
    source->Add(near0);
    SendForeign(3);
    EXPECT_TRUE(support::Becomes([&] { return DropsAt(near0) == 3; }));
    source->Remove(near0);
    EXPECT_EQ(sink.drops.size(), 3U);
    EXPECT_EQ(sink.drained, 1);
}

TEST_F(DropsSourceTest, EveryInterfaceAndBack)
{
    source->Change({.limit = 1000, .everyInterface = true});
    SendForeign(3);
    Await(near0, 3);
    source->Change({.limit = 1000, .everyInterface = false});
    SendForeign(3);
    source->Add(near0);
    SendForeign(1);
    Await(near0, 4);
    EXPECT_EQ(sink.At(near0), 4U);
}

TEST_F(DropsSourceTest, TheLoopHandsOverALoneDropAtOnce)
{
    source->Change({.limit = 1000});
    source->Add(near0);
    loop.poll();
    SendForeign(1);
    EXPECT_TRUE(support::Becomes([&] {
        loop.restart();
        loop.poll();
        return !sink.drops.empty();
    }));
    EXPECT_EQ(sink.drops.size(), 1U);
    EXPECT_EQ(sink.drained, 1);
}

TEST_F(DropsSourceTest, SeesItsOwnNetworkNamespaceOnly)
{
    source->Change({.limit = 1000, .everyInterface = true});
    const auto drops = [] {
        // The first interface of each namespace has the number 1.
        const int out = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in nobody{};
        nobody.sin_family = AF_INET;
        nobody.sin_port = htons(9);
        nobody.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::sendto(out, "x", 1, 0, reinterpret_cast<const sockaddr*>(&nobody), sizeof nobody), 1);
        ::close(out);
    };
    host0->Within(drops);
    drops();
    Await(1, 1);
    EXPECT_EQ(sink.At(1), 1U);
}

TEST_F(DropsSourceTest, EndsWithItsObject)
{
    source->Add(near0);
    SendForeign(2);
    Await(near0, 2);
    Start();
    EXPECT_FALSE(source->Read(near0));
    source->Add(near0);
    SendForeign(1);
    Await(near0, 1);
}

}  // namespace
