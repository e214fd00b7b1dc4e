// SPDX-License-Identifier: Apache-2.0
// The records that a commit stages, and their order.

#include "support.h"

namespace daemon_tests {
namespace {

class RecordsTest : public HandlerTest {};

TEST_F(RecordsTest, NamesThatDifferInCaseAreTwoCollectors)
{
    AddCollector("Noc", "192.0.2.1");
    AddCollector("noc", "192.0.2.2");
    inside::GetCollectors(handler, Session());
    EXPECT_EQ(Staged(), (Collectors{{"Noc", {true, Word("192.0.2.1"), 1400, 6343, true}},
                                    {"noc", {true, Word("192.0.2.2"), 1400, 6343, true}}}));
}

TEST_F(RecordsTest, ShorterNameComesFirstAndBytesDecide)
{
    for (const char* name : {"b", "abc", "ab", "Z"}) Staged()[name].send = true;
    handler.ApplyCommitConfig();
    ExpectCalls({Call("AddCollector", "Z", "0.0.0.0", 0, 0), Call("AddCollector", "ab", "0.0.0.0", 0, 0),
                 Call("AddCollector", "abc", "0.0.0.0", 0, 0), Call("AddCollector", "b", "0.0.0.0", 0, 0)});
}

TEST_F(RecordsTest, NewRecordsAreAllZero)
{
    const collector_st& collector = Staged()["new"];
    EXPECT_FALSE(collector.enabled);
    EXPECT_EQ(collector.ip, 0U);
    EXPECT_EQ(collector.dgsize, 0);
    EXPECT_EQ(collector.port, 0);
    EXPECT_FALSE(collector.send);
    const interface_st& interface = StagedInterfaces()["new"];
    EXPECT_EQ(interface.rate, 0U);
    EXPECT_EQ(interface.max_header_size, 0);
    EXPECT_EQ(interface.interval, 0);
    for (const ECollector kind : {Sample, Counter}) {
        EXPECT_THAT(interface.collectors[kind], IsEmpty());
        EXPECT_THAT(interface.removedCollectors[kind], IsEmpty());
    }
    EXPECT_FALSE(interface.update);
}

TEST_F(RecordsTest, InterfaceWhoseUnusedValueHasAnyTypeIsAccepted)
{
    AddInterface("eth1");
    const std::string unused = "/config/oam/sflow/interface{eth1}/default-sampling-rate";
    const std::vector<fakes::Value> any = {fakes::Value(),
                                           std::string("text"),
                                           true,
                                           std::uint16_t{1},
                                           std::uint32_t{1},
                                           Address("192.0.2.1"),
                                           AddressAndLength("192.0.2.1/24")};
    for (const fakes::Value& value : any) {
        cdb.Deliver(unused, value);
        cdb.Deliver("/config/oam/sflow/interface{eth1}/sampling-rate", std::uint32_t{9});
        handler.StartCommit();
        inside::GetInterfaces(handler, Session(), true, "", "");
        EXPECT_EQ(StagedInterfaces(), (Interfaces{{"eth1", {9, 128, 20, {}, {}, false}}})) << value.index();
    }
    // The value is not released either: the one string among them is still out.
    EXPECT_EQ(platform.unreleased.size(), 1U);
}

TEST_F(RecordsTest, StringsEndAtTheirFirstNul)
{
    AddCollector("c1", "192.0.2.1");
    cdb.Deliver("/config/oam/sflow/collector{c1}/name", std::string("c1\0tail", 7));
    inside::GetCollectors(handler, Session());
    EXPECT_THAT(Staged(), ElementsAre(testing::Key("c1")));
}

TEST_F(RecordsTest, ZeroFlagIsFalseAndAnyOtherIsTrue)
{
    AddCollector("c1", "192.0.2.1", false);
    AddCollector("c2", "192.0.2.2", true);
    inside::GetCollectors(handler, Session());
    EXPECT_FALSE(Staged()["c1"].enabled);
    EXPECT_TRUE(Staged()["c2"].enabled);
}

}  // namespace
}  // namespace daemon_tests
