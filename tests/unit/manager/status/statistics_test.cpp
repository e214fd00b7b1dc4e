// SPDX-License-Identifier: Apache-2.0
#include "manager/status/statistics.h"

#include <gtest/gtest.h>

#include "manager/shown.h"

namespace manager {
namespace {

TEST(StatisticsTest, CountFromWhereTheyWereCleared)
{
    ServiceTable table;
    OwnSettings own;
    ASSERT_EQ("", ReasonOf(table.Apply(Add("c1"))));
    ASSERT_EQ("", ReasonOf(table.Apply(Update("eth1", "c1"))));
    StreamStatus stream;
    stream.datagrams = 10;
    stream.lostSamples = 2;
    InterfaceStatus interface;
    interface.packetsSeen = 500;
    StatusSources sources{table, own};
    sources.collector = [&](const std::string&) { return &stream; };
    sources.interface = [&](const std::string&) { return interface; };

    Statistics statistics(kNow);
    EXPECT_EQ(kNow, statistics.Since());
    const auto datagrams = [&](std::uint64_t counted) {
        StreamStatus shown = stream;
        shown.datagrams = counted;
        statistics.Reduce("c1", shown);
        return shown.datagrams;
    };
    EXPECT_EQ(10U, datagrams(10));
    statistics.Clear(sources, kNow + std::chrono::seconds(5));
    EXPECT_EQ(kNow + std::chrono::seconds(5), statistics.Since());
    EXPECT_EQ(0U, datagrams(10));
    EXPECT_EQ(3U, datagrams(13));
    EXPECT_EQ(9U, datagrams(9)) << "another collector of that name";
    interface.packetsSeen = 501;
    statistics.Reduce("eth1", interface);
    EXPECT_EQ(1U, interface.packetsSeen);
    EXPECT_EQ(10U, stream.datagrams) << "what the manager counts goes on";

    statistics.Forget({.collectors = {"c1"}}, table);
    EXPECT_EQ(0U, datagrams(10)) << "it is still there";
    ASSERT_EQ("", ReasonOf(table.Apply(DeleteCollector{"c1"})));
    statistics.Forget({.collectors = {"c1"}}, table);
    EXPECT_EQ(10U, datagrams(10));
}

TEST(StatisticsTest, DropsCountFromWhereTheyWereCleared)
{
    const ServiceTable table;
    const OwnSettings own;
    std::vector<DropsAtInterface> counted{
        {"eth1", 3, 12, 2, {{.name = "NO_SOCKET", .packets = 5}, {.name = "OTHERHOST", .packets = 7}}},
        {"eth2", 4, 1, 0, {{.name = "OTHERHOST", .packets = 1}}}};
    StatusSources sources{table, own};
    sources.drops = [&] { return counted; };
    Statistics statistics(kNow);
    const auto shown = [&] {
        std::string text;
        std::vector<DropsAtInterface> drops = counted;
        statistics.Reduce(drops);
        for (const auto& at : drops) {
            text += at.name + " " + std::to_string(at.packets) + " " + std::to_string(at.untold) + ":";
            for (const auto& reason : at.reasons)
                text += " " + reason.name + " " + std::to_string(reason.packets);
            text += "\n";
        }
        return text;
    };
    const std::string all = "eth1 12 2: NO_SOCKET 5 OTHERHOST 7\neth2 1 0: OTHERHOST 1\n";
    EXPECT_EQ(all, shown());
    statistics.Clear(sources, kNow);
    EXPECT_EQ("", shown());
    counted[0].name = "uplink";
    counted[0].packets += 4;
    counted[0].untold += 1;
    counted[0].reasons[1].packets += 3;
    counted[0].reasons.push_back({.name = "SOCKET_FILTER", .packets = 1});
    EXPECT_EQ("uplink 4 1: OTHERHOST 3 SOCKET_FILTER 1\n", shown());
    counted = {{"eth1", 3, 2, 0, {{.name = "OTHERHOST", .packets = 2}}}};
    EXPECT_EQ("eth1 2 0: OTHERHOST 2\n", shown()) << "counted anew";
}

}  // namespace
}  // namespace manager
