// SPDX-License-Identifier: Apache-2.0
// The counters of interfaces, as the kernel keeps them for virtual Ethernet with known traffic.

#include "net/counters/counters.h"

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <libmnl/libmnl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "net/counters/kernel_counters.h"
#include "support/network.h"

namespace net {
namespace {

using support::Network;
using testing::ElementsAre;
using testing::IsEmpty;

/// /sys of the test's own network namespace. Files stay in the test's own mount namespace.
class OwnSys {
public:
    OwnSys()
    {
        std::string name = (std::filesystem::temp_directory_path() / "counters-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) return;
        m_directory = name;
        m_ready = ::unshare(CLONE_NEWNS) == 0 &&
                  ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                  ::mount("sysfs", name.c_str(), "sysfs", 0, nullptr) == 0;
    }
    OwnSys(const OwnSys&) = delete;
    OwnSys& operator=(const OwnSys&) = delete;
    ~OwnSys()
    {
        if (m_ready) ::umount2(m_directory.c_str(), MNT_DETACH);
        std::error_code ignored;  // a directory that stays behind fails no test
        std::filesystem::remove(m_directory, ignored);
    }
    [[nodiscard]] bool Ready() const { return m_ready; }
    [[nodiscard]] std::uint64_t Statistic(const std::string& device, const std::string& name) const
    {
        std::ifstream file(m_directory / "class/net" / device / "statistics" / name);
        std::uint64_t value = ~0ULL;
        EXPECT_TRUE(file >> value) << device << " " << name;
        return value;
    }

private:
    std::filesystem::path m_directory;
    bool m_ready = false;
};

class CountersTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
    }
    std::optional<Network> m_network;
};

std::vector<std::uint32_t> IndexesOf(std::span<const LinkCounters> counters)
{
    std::vector<std::uint32_t> indexes;
    for (const auto& each : counters) indexes.push_back(each.ifIndex);
    std::ranges::sort(indexes);
    return indexes;
}

void SendFrames(const std::string& device, int count)
{
    support::Injector injector(device);
    for (int i = 0; i < count; ++i) injector.Send(support::UdpFrame({.size = 200}));
}

// A dump that new links interrupt again and again lacks some; they are asked for by themselves.
TEST_F(CountersTest, AreWholeWhileLinksAppear)
{
    std::string lines;
    for (int i = 0; i < 100; ++i) lines += "link add w" + std::to_string(i) + " type bridge\n";
    Network::Ip(lines);
    std::vector<std::uint32_t> wanted;
    for (int i = 0; i < 100; ++i) wanted.push_back(Network::Index("w" + std::to_string(i)));
    std::string more;
    for (int i = 0; i < 300; ++i) more += "link add n" + std::to_string(i) + " type bridge\n";
    std::atomic<bool> ended = false;
    std::thread maker([&] {
        Network::Ip(more);
        ended = true;
    });
    int reads = 0;
    while (!ended) {
        const auto reader = MakeCounterReader();  // its first read is a dump
        ASSERT_EQ(IndexesOf(reader->Read(wanted)), wanted);
        ++reads;
    }
    maker.join();
    EXPECT_GT(reads, 0);
}

TEST_F(CountersTest, AgreeWithWhatWasSentAndWithTheFilesOfTheKernel)
{
    Network::Veth("p1", "h1");
    SendFrames("h1", 70);
    SendFrames("p1", 11);
    const auto reader = MakeCounterReader();
    const std::array devices{std::string("p1"), std::string("h1")};
    const std::array indexes{Network::Index("p1"), Network::Index("h1")};
    std::map<std::uint32_t, LinkCounters> found;
    for (const auto& counters : reader->Read(indexes)) found[counters.ifIndex] = counters;
    ASSERT_EQ(found.size(), 2U);
    const auto& p1 = found[indexes[0]];
    EXPECT_EQ(p1.rxPackets, 70U);
    EXPECT_EQ(p1.rxBytes, 14'000U);
    EXPECT_EQ(p1.txPackets, 11U);
    EXPECT_EQ(p1.txBytes, 2'200U);

    const OwnSys sys;
    if (!sys.Ready()) GTEST_SKIP() << "sysfs can't be mounted here: " << std::strerror(errno);
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const auto& counters = found[indexes[i]];
        const auto file = [&](const char* name) { return sys.Statistic(devices[i], name); };
        EXPECT_EQ(counters.rxPackets, file("rx_packets"));
        EXPECT_EQ(counters.txPackets, file("tx_packets"));
        EXPECT_EQ(counters.rxBytes, file("rx_bytes"));
        EXPECT_EQ(counters.txBytes, file("tx_bytes"));
        EXPECT_EQ(counters.rxErrors, file("rx_errors"));
        EXPECT_EQ(counters.txErrors, file("tx_errors"));
        EXPECT_EQ(counters.rxDropped, file("rx_dropped"));
        EXPECT_EQ(counters.txDropped, file("tx_dropped"));
        EXPECT_EQ(counters.rxMissed, file("rx_missed_errors"));
        EXPECT_EQ(counters.multicast, file("multicast"));
    }
}

TEST_F(CountersTest, WhatIsGoneOrNeverWasIsMissing)
{
    Network::Veth("p1", "h1");
    Network::Veth("p2", "h2");
    const std::uint32_t p1 = Network::Index("p1"), p2 = Network::Index("p2");
    const auto reader = MakeCounterReader();
    EXPECT_THAT(reader->Read({}), IsEmpty());
    EXPECT_THAT(IndexesOf(reader->Read(std::array{p2, 4711U, p1, p2})), ElementsAre(p1, p2));
    Network::Ip("link del p1");
    EXPECT_THAT(IndexesOf(reader->Read(std::array{p1, p2})), ElementsAre(p2));
    EXPECT_THAT(reader->Read(std::array{p1}), IsEmpty());
    EXPECT_FALSE(reader->ReadEthernet(p2));
}

TEST_F(CountersTest, ADumpAndRequestsFindTheSame)
{
    constexpr int kPairs = 75;  // 150 interfaces: batches of requests and one that is not full
    std::string lines;
    for (int i = 0; i < kPairs; ++i)
        lines += "link add p" + std::to_string(i) + " type veth peer name h" + std::to_string(i) + "\n";
    lines += "link set p7 up\nlink set h7 up\n";
    Network::Ip(lines);
    SendFrames("h7", 5);
    std::vector<std::uint32_t> wanted;
    for (int i = 0; i < kPairs; ++i) {
        wanted.push_back(Network::Index("p" + std::to_string(i)));
        wanted.push_back(Network::Index("h" + std::to_string(i)));
    }
    std::ranges::sort(wanted);
    auto withGone = wanted;
    withGone.push_back(wanted.back() + 1);

    LinkCountersReader reader;
    reader.Dump(withGone);
    const std::vector<LinkCounters> dumped(reader.Found().begin(), reader.Found().end());
    EXPECT_EQ(IndexesOf(dumped), wanted);
    reader.Ask(withGone);
    EXPECT_EQ(IndexesOf(reader.Found()), wanted);
    reader.Dump(std::span(wanted).first(3));
    EXPECT_EQ(reader.Found().size(), 3U);

    const std::uint32_t p7 = Network::Index("p7");
    reader.Ask(std::array{p7});
    ASSERT_EQ(reader.Found().size(), 1U);
    const auto same = std::ranges::find(dumped, p7, &LinkCounters::ifIndex);
    ASSERT_NE(same, dumped.end());
    EXPECT_EQ(reader.Found()[0].rxPackets, 5U);
    EXPECT_EQ(same->rxPackets, 5U);
    EXPECT_EQ(reader.Found()[0].rxBytes, same->rxBytes);
}

TEST_F(CountersTest, EachReadIsFreshWhicheverWayItGoes)
{
    std::string lines;
    for (int i = 0; i < 20; ++i) lines += "link add d" + std::to_string(i) + " type bridge\n";
    Network::Ip(lines);
    Network::Veth("p1", "h1");
    const std::uint32_t p1 = Network::Index("p1");
    const auto reader = MakeCounterReader();
    support::Injector injector("h1");
    // More often than the reader relies on the number of links that it has seen.
    for (std::uint64_t sent = 0; sent < 300; ++sent) {
        const auto found = reader->Read(std::array{p1});
        ASSERT_EQ(found.size(), 1U) << sent;
        ASSERT_EQ(found[0].rxPackets, sent);
        injector.Send(support::UdpFrame({.size = 200}));
    }
}

TEST(CountersChoice, ADumpServesFromAFifthOfAllLinksOn)
{
    EXPECT_TRUE(DumpIsCheaper(1, 0));  // nothing is known yet
    EXPECT_TRUE(DumpIsCheaper(1, 5));
    EXPECT_FALSE(DumpIsCheaper(1, 6));
    EXPECT_FALSE(DumpIsCheaper(26, 257));
    EXPECT_TRUE(DumpIsCheaper(256, 257));
    EXPECT_FALSE(DumpIsCheaper(410, 4097));
    EXPECT_TRUE(DumpIsCheaper(820, 4097));
}

/// An answer about interface 3, its statistics `size` bytes long.
struct Answer {
    explicit Answer(std::size_t size)
    {
        message = mnl_nlmsg_put_header(bytes.data());
        message->nlmsg_type = RTM_NEWSTATS;
        auto* header = static_cast<if_stats_msg*>(mnl_nlmsg_put_extra_header(message, sizeof(if_stats_msg)));
        header->ifindex = 3;
        rtnl_link_stats64 stats{};
        stats.rx_packets = 1;
        stats.tx_packets = 2;
        stats.rx_bytes = 3;
        stats.tx_bytes = 4;
        stats.rx_errors = 5;
        stats.tx_errors = 6;
        stats.rx_dropped = 7;
        stats.tx_dropped = 8;
        stats.multicast = 9;
        stats.rx_missed_errors = 10;
        if (size > 0) mnl_attr_put(message, IFLA_STATS_LINK_64, size, &stats);
    }
    alignas(nlmsghdr) std::array<char, 1024> bytes{};
    nlmsghdr* message = nullptr;
};

std::vector<LinkCounters> Take(const nlmsghdr& message, std::vector<std::uint32_t> wanted = {1, 3, 5})
{
    std::vector<LinkCounters> found;
    AddLinkCounters(message, wanted, found);
    return found;
}

TEST(CountersMessage, GivesWhatIsWantedOnly)
{
    const Answer answer(sizeof(rtnl_link_stats64));
    EXPECT_THAT(IndexesOf(Take(*answer.message)), ElementsAre(3));
    EXPECT_THAT(Take(*answer.message, {1, 5}), IsEmpty());
    answer.message->nlmsg_type = RTM_NEWLINK;
    EXPECT_THAT(Take(*answer.message), IsEmpty());
}

TEST(CountersMessage, EachStatisticGoesToItsCounter)
{
    const auto found = Take(*Answer(sizeof(rtnl_link_stats64)).message);
    ASSERT_EQ(found.size(), 1U);
    const LinkCounters& each = found[0];
    EXPECT_THAT((std::array{each.rxPackets, each.txPackets, each.rxBytes, each.txBytes, each.rxErrors,
                            each.txErrors, each.rxDropped, each.txDropped, each.multicast, each.rxMissed}),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST(CountersMessage, AnOlderKernelsStatisticsEndEarlier)
{
    const Answer answer(2 * sizeof(std::uint64_t));
    const auto found = Take(*answer.message);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].rxPackets, 1U);
    EXPECT_EQ(found[0].txPackets, 2U);
    EXPECT_EQ(found[0].rxMissed, 0U);
}

TEST(CountersMessage, WithoutStatisticsOrCutGivesNothing)
{
    EXPECT_THAT(Take(*Answer(0).message), IsEmpty());
    const Answer answer(sizeof(rtnl_link_stats64));
    for (std::uint32_t size = NLMSG_HDRLEN; size < answer.message->nlmsg_len; ++size) {
        const auto bytes = std::make_unique<char[]>(size);
        std::memcpy(bytes.get(), answer.message, size);
        auto* message = reinterpret_cast<nlmsghdr*>(bytes.get());
        message->nlmsg_len = size;
        EXPECT_THAT(Take(*message), IsEmpty()) << size;
    }
}

}  // namespace
}  // namespace net
