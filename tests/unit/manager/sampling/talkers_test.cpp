// SPDX-License-Identifier: Apache-2.0
// Which flows carry most: told from sampled headers, whatever stands in them, and counted while they are
// looked at.

#include "manager/sampling/talkers.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/process/talkers_output.h"
#include "support/hex.h"
#include "support/manual_timers.h"

namespace manager {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr auto kEthernet = wire::HeaderProtocol::kEthernet;

const std::string kLink =
    "020000000002"
    "020000000001";
const std::string kIpv4Head =
    "45000064"
    "00000000"
    "40";

std::string Ipv4(const std::string& protocol, const std::string& rest)
{
    return kIpv4Head + protocol +
           "0000"
           "c0000201"
           "c0000202" +
           rest;
}

std::string Ipv6(const std::string& next, const std::string& rest)
{
    return "60000000"
           "0028" +
           next +
           "40"
           "20010db8000000000000000000000001"
           "20010db8000000000000000000000002" +
           rest;
}

/// "source destination protocol[ source-port>destination-port]"
std::string Flow(const std::string& hex, wire::HeaderProtocol protocol = kEthernet)
{
    const ::Bytes header = FromHex(hex);
    const auto key = FlowKeyOf(protocol, header);
    if (!key) return "none";
    std::string text = SourceText(*key) + " " + DestinationText(*key) + " " + ProtocolText(*key);
    if (key->hasPorts)
        text += " " + std::to_string(key->sourcePort) + ">" + std::to_string(key->destinationPort);
    return text;
}

TEST(FlowKey, OfIpHasAddressesProtocolAndPorts)
{
    const std::string ports = "1f9001bb";
    EXPECT_EQ(Flow(kLink + "0800" + Ipv4("06", ports)), "192.0.2.1 192.0.2.2 tcp 8080>443");
    EXPECT_EQ(Flow(kLink + "86dd" + Ipv6("11", ports)), "2001:db8::1 2001:db8::2 udp 8080>443");
    EXPECT_EQ(Flow(kLink + "0800" + Ipv4("01", ports)), "192.0.2.1 192.0.2.2 icmp");
    EXPECT_EQ(Flow(kLink + "0800" + Ipv4("c8", ports)), "192.0.2.1 192.0.2.2 proto-200");
    EXPECT_EQ(Flow(Ipv4("84", ports), wire::HeaderProtocol::kIpv4), "192.0.2.1 192.0.2.2 sctp 8080>443");
    EXPECT_EQ(Flow(Ipv6("3a", ports), wire::HeaderProtocol::kIpv6), "2001:db8::1 2001:db8::2 icmp6");
}

TEST(FlowKey, OfOtherFramesHasLinkAddressesAndTheEtherType)
{
    const std::string from = "02:00:00:00:00:01 02:00:00:00:00:02 ";
    EXPECT_EQ(Flow(kLink + "0806"), from + "arp");
    EXPECT_EQ(Flow(kLink + "88b5"), from + "0x88b5");
    EXPECT_EQ(Flow(kLink + "0040"), from + "llc");
}

TEST(FlowKey, LiesBehindTagsAndExtensionHeaders)
{
    const std::string ports = "1f9001bb";
    EXPECT_EQ(Flow(kLink +
                   "88a80064"
                   "8100000a"
                   "0800" +
                   Ipv4("06", ports)),
              "192.0.2.1 192.0.2.2 tcp 8080>443");
    const std::string options = "0600000000000000";
    EXPECT_EQ(Flow(kLink + "86dd" + Ipv6("00", options + ports)), "2001:db8::1 2001:db8::2 tcp 8080>443");
    const std::string authentication = "1104" + std::string(44, '0');
    EXPECT_EQ(Flow(kLink + "86dd" + Ipv6("33", authentication + ports)),
              "2001:db8::1 2001:db8::2 udp 8080>443");
    EXPECT_EQ(Flow(kLink + "0800" +
                   "46000064"
                   "00000000"
                   "4006"
                   "0000"
                   "c0000201"
                   "c0000202"
                   "01010101" +
                   ports),
              "192.0.2.1 192.0.2.2 tcp 8080>443");
}

TEST(FlowKey, OfLaterFragmentsHasNoPorts)
{
    const std::string ports = "1f9001bb";
    EXPECT_EQ(Flow(kLink + "0800" +
                   "45000064"
                   "00000001"
                   "4006"
                   "0000"
                   "c0000201"
                   "c0000202" +
                   ports),
              "192.0.2.1 192.0.2.2 tcp");
    EXPECT_EQ(Flow(kLink + "86dd" +
                   Ipv6("2c",
                        "0600"
                        "0008"
                        "00000000" +
                            ports)),
              "2001:db8::1 2001:db8::2 tcp");
    EXPECT_EQ(Flow(kLink + "86dd" +
                   Ipv6("2c",
                        "0600"
                        "0001"
                        "00000000" +
                            ports)),
              "2001:db8::1 2001:db8::2 tcp 8080>443");
}

TEST(FlowKey, OfACutHeaderIsWhatStandsBefore)
{
    const std::string whole = kLink +
                              "8100000a"
                              "0800" +
                              Ipv4("06", "1f9001bb");
    EXPECT_EQ(Flow(""), "none");
    EXPECT_EQ(Flow(kLink.substr(0, 22)), "none");
    EXPECT_EQ(Flow(whole.substr(0, 24)), "02:00:00:00:00:01 02:00:00:00:00:02 llc");
    EXPECT_EQ(Flow(whole.substr(0, 28)), "02:00:00:00:00:01 02:00:00:00:00:02 llc");
    EXPECT_EQ(Flow(whole.substr(0, whole.size() - 10)), "02:00:00:00:00:01 02:00:00:00:00:02 ipv4");
    EXPECT_EQ(Flow(whole.substr(0, whole.size() - 2)), "192.0.2.1 192.0.2.2 tcp");
    EXPECT_EQ(Flow(kLink + "0800" + "60" + Ipv4("06", "").substr(2)),
              "02:00:00:00:00:01 02:00:00:00:00:02 ipv4");
    EXPECT_EQ(Flow("", wire::HeaderProtocol::kIpv4), "none");
    EXPECT_EQ(Flow("01020304", wire::HeaderProtocol::kPpp), "none");
}

TEST(FlowKey, OfWhateverIsInAHeaderEnds)
{
    std::mt19937 random(1);
    for (int round = 0; round < 20'000; ++round) {
        ::Bytes header(random() % 129);
        for (std::byte& each : header) each = static_cast<std::byte>(random());
        // Mostly nested: tags, or IPv6 with extension headers that lead on.
        for (std::size_t at = 12; round % 2 == 0 && at + 4 <= header.size(); at += 4) {
            header[at] = std::byte{0x81};
            header[at + 1] = std::byte{0};
        }
        const auto key = FlowKeyOf(round % 3 == 0 ? wire::HeaderProtocol::kIpv6 : kEthernet, header);
        if (key) {
            EXPECT_FALSE(SourceText(*key).empty());
            EXPECT_FALSE(ProtocolText(*key).empty());
        }
    }
    EXPECT_EQ(Flow(Ipv6("00", std::string(400, '0')), wire::HeaderProtocol::kIpv6),
              "2001:db8::1 2001:db8::2 proto-0");  // a chain that has no end
}

class TalkersTest : public testing::Test {
protected:
    /// A packet from 10.0.x.x, of that many bytes, without FCS.
    void Sample(std::uint16_t from, std::uint32_t length, std::uint32_t rate = 10)
    {
        static ::Bytes header = FromHex(kLink + "0800" + Ipv4("06", "1f9001bb"));
        header[26] = std::byte{10};
        header[28] = static_cast<std::byte>(from >> 8);
        header[29] = static_cast<std::byte>(from);
        capture::Sample sample;
        sample.length = length;
        sample.rate = rate;
        sample.header = header;
        sources.at(7).talkers->Count(sample, kEthernet);
    }

    TopTalkers Look()
    {
        const auto top = talkers.Look("eth1", status);
        EXPECT_TRUE(top) << top.error();
        return top.value_or(TopTalkers{});
    }

    static InterfaceStatus Sampled(std::uint32_t ifIndex)
    {
        InterfaceStatus of;
        of.ifIndex = ifIndex;
        of.sampled = true;
        return of;
    }

    support::ManualTimers timers;
    DataSources sources;
    Talkers talkers{sources, timers};
    InterfaceStatus status = Sampled(7);
    DataSource& source = sources[7];
};

TEST_F(TalkersTest, BeginAtTheFirstLookAndTellRatesOfTheTimeSince)
{
    EXPECT_EQ(source.talkers, nullptr);
    EXPECT_EQ(Look().counted.count(), 0);
    ASSERT_NE(source.talkers, nullptr);
    for (int i = 0; i < 4; ++i) Sample(1, 96);
    Sample(2, 996);
    timers.Advance(seconds(2));
    const TopTalkers top = Look();
    EXPECT_EQ(top.counted, seconds(2));
    EXPECT_EQ(top.samples, 5U);
    ASSERT_EQ(top.talkers.size(), 2U);
    EXPECT_EQ(SourceText(top.talkers[0].flow), "10.0.0.2");
    const ActionResult result = TalkersOutput(top);
    ASSERT_EQ(result.output.size(), 4U);
    std::vector<std::string> first;
    for (const OutputNode& node : result.output[2].children) first.push_back(node.name + "=" + node.value);
    EXPECT_THAT(first, ElementsAre("source=10.0.0.2", "destination=192.0.2.2", "protocol=tcp",
                                   "source-port=8080", "destination-port=443", "samples=1",
                                   "packets-per-second=5", "bits-per-second=40000"));
}

TEST_F(TalkersTest, ForgetWhatIsOlderThanTenSeconds)
{
    Look();
    Sample(1, 100);
    for (int i = 0; i < 5; ++i) {
        timers.Advance(seconds(1));
        EXPECT_EQ(Look().samples, 1U);
    }
    for (int i = 0; i < 4; ++i) {
        timers.Advance(seconds(1));
        EXPECT_EQ(Look().samples, 1U);
    }
    timers.Advance(seconds(1));
    EXPECT_EQ(Look().counted, seconds(10));
    timers.Advance(seconds(1));
    const TopTalkers top = Look();
    EXPECT_EQ(top.samples, 0U);
    EXPECT_EQ(top.counted, seconds(6));
    EXPECT_TRUE(top.talkers.empty());
}

TEST_F(TalkersTest, EndFiveSecondsAfterTheLastLook)
{
    Look();
    for (int i = 0; i < 10; ++i) {
        timers.Advance(seconds(1));
        Look();
    }
    timers.Advance(seconds(4));
    EXPECT_NE(source.talkers, nullptr);
    timers.Advance(seconds(2));
    EXPECT_EQ(source.talkers, nullptr);
    EXPECT_EQ(Look().counted.count(), 0);
}

TEST_F(TalkersTest, AreNotOfAnInterfaceThatIsNotSampledOrHasGone)
{
    Look();
    status.sampled = false;
    const auto off = talkers.Look("eth1", status);
    ASSERT_FALSE(off);
    EXPECT_THAT(off.error(),
                HasSubstr("no packets are sampled at interface eth1; show sflow interface eth1 detail"));
    status.sampled = true;
    sources.erase(7);
    EXPECT_FALSE(talkers.Look("eth1", status));
    timers.Advance(seconds(10));  // nothing is left that could be touched
    sources[7];
    EXPECT_EQ(Look().counted.count(), 0);
}

TEST_F(TalkersTest, AreOfABoundedNumberOfInterfaces)
{
    for (std::uint32_t i = 1; i <= Talkers::kMaxInterfaces + 1; ++i) {
        sources[i];
        EXPECT_EQ(talkers.Look("eth", Sampled(i)).has_value(), i <= Talkers::kMaxInterfaces) << i;
    }
    EXPECT_TRUE(talkers.Look("eth", Sampled(1)));
    timers.Advance(seconds(6));
    EXPECT_TRUE(talkers.Look("eth", Sampled(Talkers::kMaxInterfaces + 1)));
}

TEST_F(TalkersTest, ThatCarryMostStayInAFloodOfFlows)
{
    Look();
    for (std::uint32_t i = 0; i < 60'000; ++i) {
        Sample(static_cast<std::uint16_t>(i), 60);
        if (i % 100 == 0) Sample(65'000, 1500);
        if (i % 100 == 50) Sample(65'001, 1000);
    }
    timers.Advance(seconds(1));
    const TopTalkers top = Look();
    EXPECT_EQ(top.samples, 61'200U);
    ASSERT_EQ(top.talkers.size(), TalkerTable::kMaxTalkers);
    EXPECT_EQ(SourceText(top.talkers[0].flow), "10.0.253.232");
    EXPECT_EQ(top.talkers[0].counts.samples, 600U);
    EXPECT_EQ(SourceText(top.talkers[1].flow), "10.0.253.233");
}

}  // namespace
}  // namespace manager
