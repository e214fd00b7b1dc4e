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

}  // namespace
}  // namespace manager
