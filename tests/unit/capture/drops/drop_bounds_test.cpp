// SPDX-License-Identifier: Apache-2.0
// What the counts do not hold is counted as well: interfaces and reasons beyond the bounds.

#include <algorithm>
#include <string>
#include <vector>

#include "capture/drops_world.h"

namespace {

using support::UdpFrame;

class DropBoundsTest : public DropsWorld {
protected:
    void SendUnhandled(std::size_t count)
    {
        Send(std::vector<support::Bytes>(count, support::EthernetFrame(1, 0x10, 0x9999, 100)));
    }
    void SendForeignTo1(std::size_t count)
    {
        host1->Within([&] {
            support::Injector("far1").Send(
                std::vector<support::Bytes>(count, UdpFrame({.from = 1, .to = 0x99, .size = 100})));
        });
    }
};

TEST_F(DropBoundsTest, AnInterfaceCountsWhatItsReasonsDoNot)
{
    Start({.maxReasons = 1});
    source->Change({.limit = 1000});
    source->Add(near0);
    SendForeign(4);
    SendUnhandled(3);
    Await(near0, 7);
    EXPECT_EQ(sink.drops.size(), 7U);
    const auto drops = Read(near0);
    ASSERT_EQ(drops.reasons.size(), 1U);
    EXPECT_EQ(drops.reasons[0].drops, 4U);
    EXPECT_EQ(drops.nameless, 3U);
    EXPECT_EQ(source->ReadAll(), std::vector{drops});
}

TEST_F(DropBoundsTest, InterfacesBeyondTheBoundAreCountedTogether)
{
    Start({.maxInterfaces = 1});
    source->Change({.limit = 6});
    source->Add(near0);
    source->Add(near1);
    SendForeign(4);
    Await(near0, 4);
    SendForeignTo1(5);
    EXPECT_TRUE(support::Becomes([&] { return source->ReadUncounted().beyond == 5; }));
    source->Drain();
    EXPECT_FALSE(source->Read(near1));
    EXPECT_EQ(sink.At(near1), 2U);
    EXPECT_EQ(source->ReadUncounted().beyond, 5U);
    EXPECT_EQ(source->ReadUncounted().beyondUntold, 3U);

    source->Remove(near0);  // makes room
    SendForeignTo1(5);
    Await(near1, 5);
    EXPECT_EQ(source->ReadUncounted().beyond, 5U);
}

TEST_F(DropBoundsTest, AllInterfacesAreReadTogether)
{
    source->Change({.limit = 0, .everyInterface = true});
    std::string lines;
    constexpr int kCables = 150;
    for (int i = 0; i < kCables; ++i) {
        const auto number = std::to_string(i);
        lines += "link add many" + number + " type veth peer name other" + number + "\nlink set many" +
                 number + " up\nlink set other" + number + " up\n";
    }
    support::Network::Ip(lines);
    std::vector<std::uint32_t> wanted;
    for (int i = 0; i < kCables; ++i) {
        support::Network::AwaitSending("many" + std::to_string(i));
        const std::string other = "other" + std::to_string(i);
        support::Network::AwaitSending(other);
        const auto before = DropsAt(support::Network::Index(other));
        support::Injector("many" + std::to_string(i)).Send(UdpFrame({.from = 1, .to = 0x99, .size = 100}));
        wanted.push_back(support::Network::Index(other));
        Await(wanted.back(), before + 1);
    }
    std::uint64_t found = 0;
    std::uint32_t last = 0;
    for (const auto& each : source->ReadAll()) {
        EXPECT_GT(each.ifIndex, last);
        last = each.ifIndex;
        EXPECT_EQ(each, Read(each.ifIndex));
        std::uint64_t named = 0;
        for (const auto& count : each.reasons) named += count.drops;
        EXPECT_EQ(named, each.counts.drops);
        found += static_cast<std::uint64_t>(std::ranges::count(wanted, each.ifIndex));
    }
    EXPECT_EQ(found, wanted.size());
}

}  // namespace
