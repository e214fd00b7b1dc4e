// SPDX-License-Identifier: Apache-2.0
// The readers of collectors.

#include "support.h"

namespace daemon_tests {
namespace {

class CollectorReadersTest : public HandlerTest {
protected:
    bool Get(const std::string& name)
    {
        record = {};
        return inside::GetCollector(handler, Session(), name, record);
    }
    collector_st record;
};

TEST_F(CollectorReadersTest, EmptyListStagesNothing)
{
    inside::GetCollectors(handler, Session());
    ExpectLogs({Line(10, "GetCollectors", "Entry Point"),
                Line(10, "GetCollectors", "No collectors available, nothing to do")});
    EXPECT_THAT(Staged(), IsEmpty());
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_num_instances /config/oam/sflow/collector"));
}

TEST_F(CollectorReadersTest, StagesEnabledAndDisabledAndSendsTheEnabledOnly)
{
    AddCollector("off", "192.0.2.2", false, 9000, 7000);
    AddCollector("on", "192.0.2.1", true, 200, 6343);
    inside::GetCollectors(handler, Session());
    EXPECT_EQ(Staged(), (Collectors{{"off", {false, Word("192.0.2.2"), 9000, 7000, false}},
                                    {"on", {true, Word("192.0.2.1"), 200, 6343, true}}}));
    ExpectLogs({Line(10, "GetCollectors", "Entry Point"),
                Line(10, "GetCollectors", "Add collector off (ip = 0x20200c0, dgsize = 9000, port = 7000)"),
                Line(10, "GetCollectors", "Add collector on (ip = 0x10200c0, dgsize = 200, port = 6343)")});
    EXPECT_THAT(platform.unreleased, IsEmpty());
    ExpectCalls({});
}

TEST_F(CollectorReadersTest, ReadsTheWholeListWithTwoRequests)
{
    for (int i = 0; i < 300; ++i) AddCollector("c" + std::to_string(i), "192.0.2.1");
    inside::GetCollectors(handler, Session());
    EXPECT_EQ(Staged().size(), 300U);
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_num_instances /config/oam/sflow/collector",
                                              "cdb cdb_get_objects /config/oam/sflow/collector"));
}

TEST_F(CollectorReadersTest, LogsTheAddressAsTheWordThatTheDatabaseDelivers)
{
    AddCollector("c1", "192.0.2.1");
    inside::GetCollectors(handler, Session());
    EXPECT_EQ(platform.recorder.logs.at(1).text,
              "Add collector c1 (ip = 0x10200c0, dgsize = 1400, port = 6343)");
    EXPECT_EQ(Staged()["c1"].ip, inet_addr("192.0.2.1"));
}

TEST_F(CollectorReadersTest, WholeReadOverwritesWhatIsStaged)
{
    AddCollector("c1", "192.0.2.1", false);
    Staged()["c1"] = {true, 1, 2, 3, true};
    inside::GetCollectors(handler, Session());
    EXPECT_EQ(Staged(), (Collectors{{"c1", {false, Word("192.0.2.1"), 1400, 6343, false}}}));
}

TEST_F(CollectorReadersTest, StagedCollectorIsReturnedWholeWithoutARead)
{
    AddCollector("c1", "192.0.2.1");
    Staged()["c1"] = {false, 9, 8, 7, true};
    EXPECT_TRUE(Get("c1"));
    EXPECT_EQ(record, (collector_st{false, 9, 8, 7, true}));
    ExpectLogs({Line(10, "GetCollector", "Get data for collector c1"),
                Line(11, "GetCollector", "Data for collector c1 already available")});
    EXPECT_THAT(Journal({"cdb"}), IsEmpty());
}

TEST_F(CollectorReadersTest, MissingCollectorIsLoggedAndStagesNothing)
{
    record = {true, 1, 2, 3, true};
    EXPECT_FALSE(inside::GetCollector(handler, Session(), "c9", record));
    EXPECT_EQ(record, (collector_st{true, 1, 2, 3, true}));
    ExpectLogs({Line(10, "GetCollector", "Get data for collector c9"),
                Line(12, "GetCollector",
                     "Could not find collector 'c9' (/config/oam/sflow/collector{c9} does not exist)")});
    EXPECT_THAT(Staged(), IsEmpty());
}

TEST_F(CollectorReadersTest, ReadWithoutValuesCountsAsMissing)
{
    AddCollector("c1", "192.0.2.1");
    cdb.Return("cdb_get_object", "/config/oam/sflow/collector{c1}", 0, "");
    EXPECT_FALSE(Get("c1"));
    EXPECT_THAT(Staged(), IsEmpty());
}

TEST_F(CollectorReadersTest, OnDemandReadNeverStagesForSending)
{
    AddCollector("c1", "192.0.2.1", true, 1000, 2000);
    record.send = true;  // the caller's own
    EXPECT_TRUE(inside::GetCollector(handler, Session(), "c1", record));
    EXPECT_EQ(record, (collector_st{true, Word("192.0.2.1"), 1000, 2000, false}));
    EXPECT_EQ(Staged(), (Collectors{{"c1", record}}));
    ExpectLogs({Line(10, "GetCollector", "Get data for collector c1")});
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_get_object /config/oam/sflow/collector{c1}"));
    EXPECT_THAT(platform.unreleased, IsEmpty());
}

TEST_F(CollectorReadersTest, StagedCollectorIsNotReadAgainWhateverTheDatabaseHolds)
{
    AddCollector("c1", "192.0.2.1");
    EXPECT_TRUE(Get("c1"));
    cdb.Delete("/config/oam/sflow/collector{c1}");
    EXPECT_TRUE(Get("c1"));
    EXPECT_EQ(record.ip, Word("192.0.2.1"));
}

TEST_F(CollectorReadersTest, NameIsPartOfTheFormat)
{
    EXPECT_FALSE(Get("a%%b"));
    EXPECT_THAT(Journal({"cdb"}), ElementsAre("cdb cdb_get_object /config/oam/sflow/collector{a%b}"));
}

}  // namespace
}  // namespace daemon_tests
