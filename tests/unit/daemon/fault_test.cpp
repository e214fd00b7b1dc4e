// SPDX-License-Identifier: Apache-2.0
// Failures of the database that end the process: the report, what came before, the exit status.

#include "support.h"

namespace daemon_tests {
namespace {

constexpr char kCollectors[] = "/config/oam/sflow/collector";
constexpr char kInterfaces[] = "/config/oam/sflow/interface";
constexpr char kFlowOfEth1[] = "/config/oam/sflow/interface{eth1}/flow-sampling-collector";
constexpr char kCounterOfEth1[] = "/config/oam/sflow/interface{eth1}/counter-sampling-collector";

const std::string kLongReason(400, 'r');

// One failing call, the function that has to report it, and the text.
struct Failure {
    const char* name;
    const char* call;
    const char* path;
    int result;
    std::string reason;
    const char* reporter;
    int nth;  // of the reporter's reports
    std::string text;
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

class ReadFailureTest : public HandlerTest, public testing::WithParamInterface<Failure> {
protected:
    ReadFailureTest()
    {
        AddCollector("c1", "192.0.2.1");
        AddInterface("eth1", {"c1"}, {"c1"});
        OpenGate();
    }
};

TEST_P(ReadFailureTest, EndsTheProcess)
{
    const Failure& failure = GetParam();
    cdb.Return(failure.call, failure.path, failure.result, failure.reason);
    EXPECT_EXIT(handler.LoadInitialConfig(Session()), testing::ExitedWithCode(1),
                testing::Eq(Report(kHandlerSource, failure.reporter, failure.nth, failure.text)));
}

INSTANTIATE_TEST_SUITE_P(
    Load, ReadFailureTest,
    testing::Values(
        Failure{"collectors_not_counted", "cdb_num_instances", kCollectors, -1, "no", "GetCollectors", 1, ""},
        Failure{"collectors_not_read", "cdb_get_objects", kCollectors, -1, "no", "GetCollectors", 2, ""},
        Failure{"collectors_without_values", "cdb_get_objects", kCollectors, 0, "", "GetCollectors", 2, ""},
        Failure{"interfaces_not_counted", "cdb_num_instances", kInterfaces, -1, "no", "GetInterfaces", 1,
                "no"},
        Failure{"interfaces_not_read", "cdb_get_objects", kInterfaces, -1, "why", "GetInterfaces", 2, "why"},
        Failure{"interfaces_reason_cut", "cdb_get_objects", kInterfaces, -1, kLongReason, "GetInterfaces", 2,
                std::string(349, 'r')},
        Failure{"flow_list_not_counted", "cdb_num_instances", kFlowOfEth1, -1, "no", "GetInterfaceCollectors",
                1, "no"},
        Failure{"flow_list_not_read", "cdb_get_objects", kFlowOfEth1, -1, "no", "GetInterfaceCollectors", 2,
                "no"},
        Failure{"counter_list_not_counted", "cdb_num_instances", kCounterOfEth1, -1, "no",
                "GetInterfaceCollectors", 1, "no"},
        Failure{"counter_list_not_read", "cdb_get_objects", kCounterOfEth1, -1, "no",
                "GetInterfaceCollectors", 2, "no"}),
    [](const auto& row) { return row.param.name; });

class FaultTest : public HandlerTest {
protected:
    FaultTest() { OpenGate(); }
};

// A read that delivers no values is as bad as one that fails; its reason is then that of an earlier failure.
TEST_F(FaultTest, ReadWithoutValuesIsReportedWithTheLastReason)
{
    AddInterface("eth1", {"c1"}, {"c1"});
    struct {
        const char* call;
        const char* path;
        const char* reporter;
        int nth;
        std::string interface;
    } const rows[] = {
        {"cdb_get_objects", kInterfaces, "GetInterfaces", 2, ""},
        {"cdb_get_object", "/config/oam/sflow/interface{eth1}", "GetInterfaces", 3, "eth1"},
        {"cdb_get_objects", kFlowOfEth1, "GetInterfaceCollectors", 2, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EXIT(
            {
                cdb.Return(row.call, row.path, 0, "");
                platform.lastError = "from before";
                inside::GetInterfaces(handler, Session(), true, "", row.interface);
            },
            testing::ExitedWithCode(1),
            testing::Eq(Report(kHandlerSource, row.reporter, row.nth, "from before")))
            << row.call << " " << row.path;
    }
}

TEST_F(FaultTest, BacktraceComesFirstAndNothingFollows)
{
    cdb.Return("cdb_num_instances", kCollectors, -1, "no");
    EXPECT_EXIT(
        {
            DumpJournalAtExit();
            inside::GetCollectors(handler, Session());
        },
        testing::ExitedWithCode(1),
        FaultReport(
            kHandlerSource, "GetCollectors", 1, "",
            {"log 10 GetCollectors: Entry Point", "cdb cdb_num_instances /config/oam/sflow/collector"}));
}

TEST_F(FaultTest, CollectorWithAnotherKeyThanAskedFor)
{
    AddCollector("c1", "192.0.2.1");
    cdb.Deliver("/config/oam/sflow/collector{c1}/name", std::string("c2"));
    platform.lastError = "from before";  // not reported
    collector_st record;
    EXPECT_EXIT(
        {
            DumpJournalAtExit();
            inside::GetCollector(handler, Session(), "c1", record);
        },
        testing::ExitedWithCode(1),
        FaultReport(kHandlerSource, "GetCollector", 1, "",
                    {"log 10 GetCollector: Get data for collector c1",
                     "cdb cdb_get_object /config/oam/sflow/collector{c1}"}));
}

TEST_F(FaultTest, NamedInterfaceThatCannotBeRead)
{
    EXPECT_EXIT(
        {
            DumpJournalAtExit();
            Change("/config/oam/sflow/interface{eth9}", MOP_CREATED);
        },
        testing::ExitedWithCode(1),
        FaultReport(
            kHandlerSource, "GetInterfaces", 3, "/config/oam/sflow/interface{eth9} does not exist",
            {"kpath", "log 10 HandleCfg: keypath: /config/oam/sflow/interface{eth9}, op = 1",
             "log 10 HandleCfg: Found tag in pos = 1",
             "log 10 HandleCfgInterface: /config/oam/sflow/interface{eth9} (op = 1)",
             "log 10 HandleCfgInterface: Set interface eth9", "session open 1 true",
             "log 10 GetInterfaces: Entry Point", "cdb cdb_get_object /config/oam/sflow/interface{eth9}"}));
}

TEST_F(FaultTest, ListedCollectorThatDoesNotExist)
{
    AddInterface("eth1", {"gone"});
    const std::string reason = "/config/oam/sflow/collector{gone} does not exist";
    EXPECT_EXIT(
        {
            DumpJournalAtExit();
            inside::GetInterfaceCollectors(handler, Session(), Sample, true, "", "eth1");
        },
        testing::ExitedWithCode(1),
        FaultReport(kHandlerSource, "GetInterfaceCollectors", 3, reason,
                    {std::string("log 10 GetInterfaceCollectors: ") + kFlowOfEth1,
                     std::string("cdb cdb_num_instances ") + kFlowOfEth1,
                     "log 11 GetInterfaceCollectors: Get 1 collector(s) for interface eth1",
                     std::string("cdb cdb_get_objects ") + kFlowOfEth1,
                     "log 10 GetCollector: Get data for collector gone",
                     "cdb cdb_get_object /config/oam/sflow/collector{gone}",
                     "log 12 GetCollector: Could not find collector 'gone' (" + reason + ")"}));
}

// Changed nodes that name a collector which the database does not have.
struct MissingCollector {
    const char* name;
    const char* path;
    const char* reporter;
};

void PrintTo(const MissingCollector& row, std::ostream* out) { *out << row.name; }

class MissingCollectorTest : public FaultTest, public testing::WithParamInterface<MissingCollector> {};

TEST_P(MissingCollectorTest, EndsTheProcessWithEmptyText)
{
    Keypath keypath(GetParam().path);
    confd_value_t value{};
    value.type = C_BOOL;
    EXPECT_EXIT(Change(keypath, MOP_CREATED, &value), testing::ExitedWithCode(1),
                testing::Eq(Report(kHandlerSource, GetParam().reporter, 1, "")));
}

INSTANTIATE_TEST_SUITE_P(
    Changes, MissingCollectorTest,
    testing::Values(
        MissingCollector{"address", "/config/oam/sflow/collector{c9}/ip", "HandleCfg"},
        MissingCollector{"datagram_size", "/config/oam/sflow/collector{c9}/datagram-size", "HandleCfg"},
        MissingCollector{"port", "/config/oam/sflow/collector{c9}/port", "HandleCfg"},
        MissingCollector{"enabled", "/config/oam/sflow/collector{c9}/enabled", "HandleCfgEnabled"},
        MissingCollector{"flow_list", "/config/oam/sflow/interface{eth1}/flow-sampling-collector{c9}",
                         "HandleCfgInterfaceCollector"},
        MissingCollector{"counter_list", "/config/oam/sflow/interface{eth1}/counter-sampling-collector{c9}",
                         "HandleCfgInterfaceCollector"}),
    [](const auto& row) { return row.param.name; });

// An empty name reads all interfaces: with none configured the read says so, which an entry's
// handler takes for a fault.
TEST_F(FaultTest, InterfaceEntryWithoutANameAmongNoInterfaces)
{
    platform.lastError = "from before";  // not reported
    EXPECT_EXIT(Change("/config/oam/sflow/interface{}", MOP_CREATED), testing::ExitedWithCode(1),
                testing::Eq(Report(kHandlerSource, "HandleCfgInterface", 1, "")));
}

TEST_F(FaultTest, NothingIsSentBeforeTheEnd)
{
    AddCollector("c1", "192.0.2.1");
    cdb.Return("cdb_num_instances", kInterfaces, -1, "no");
    platform.onServiceCall = [] { std::fprintf(stderr, "sent\n"); };
    EXPECT_EXIT(ChangeEnabled("c1", true), testing::ExitedWithCode(1),
                testing::Not(testing::HasSubstr("sent")));
}

}  // namespace
}  // namespace daemon_tests
