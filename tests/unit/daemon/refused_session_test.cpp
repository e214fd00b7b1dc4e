// SPDX-License-Identifier: Apache-2.0
// A read session that can't be opened: the exception leaves through every route that reads, and nothing is
// staged or sent.

#include "support.h"

namespace daemon_tests {
namespace {

struct Route {
    const char* name;
    const char* path;
    confd_iter_op op;
    bool reads;  // opens a session
};

void PrintTo(const Route& route, std::ostream* out) { *out << route.name; }

class RefusedSessionTest : public HandlerTest, public testing::WithParamInterface<Route> {
protected:
    RefusedSessionTest()
    {
        AddCollector("c1", "192.0.2.1");
        AddInterface("eth1", {"c1"}, {"c1"});
        OpenGate();
        platform.confd.refusal = "database is gone";
    }
    confd_iter_ret Walk()
    {
        Keypath keypath(GetParam().path);
        confd_value_t value{};
        value.type = C_BOOL;
        value.val.boolean = 1;
        return Change(keypath, GetParam().op, &value);
    }
};

TEST_P(RefusedSessionTest, IsPassedOnByWhatReadsAndNotMissedByTheRest)
{
    if (!GetParam().reads) {
        EXPECT_NO_THROW(Walk());
        return;
    }
    EXPECT_THROW(Walk(), QxConfdSessionError);
    EXPECT_THAT(Staged(), IsEmpty());
    EXPECT_THAT(StagedDeletions(), IsEmpty());
    EXPECT_THAT(StagedInterfaces(), IsEmpty());
    EXPECT_THAT(Journal({"cdb", "session", "service", "fault", "backtrace"}), IsEmpty());
    EXPECT_TRUE(inside::MgrAvailable(handler));

    // The next change is handled as ever.
    platform.confd.refusal.clear();
    EXPECT_NO_THROW(Walk());
    EXPECT_EQ(cdb.OpenSessions(), 0U);
    EXPECT_EQ(Journal({"session"}), (std::vector<std::string>{"session open 1 true", "session close"}));
}

#define ENTRY_C1 "/config/oam/sflow/collector{c1}"
#define ENTRY_ETH1 "/config/oam/sflow/interface{eth1}"

INSTANTIATE_TEST_SUITE_P(
    Routes, RefusedSessionTest,
    testing::Values(
        Route{"agent_address", "/config/oam/sflow/agent/ipv4", MOP_VALUE_SET, true},
        Route{"agent_address_deleted", "/config/oam/sflow/agent/ipv4", MOP_DELETED, true},
        Route{"management_address", "/config/interface/mgmt{m0}/ipv4/address/ip", MOP_VALUE_SET, true},
        Route{"collector_address", ENTRY_C1 "/ip", MOP_VALUE_SET, true},
        Route{"collector_datagram_size", ENTRY_C1 "/datagram-size", MOP_VALUE_SET, true},
        Route{"collector_port", ENTRY_C1 "/port", MOP_VALUE_SET, true},
        Route{"collector_enabled", ENTRY_C1 "/enabled", MOP_VALUE_SET, true},
        Route{"interface_created", ENTRY_ETH1, MOP_CREATED, true},
        Route{"interface_modified", ENTRY_ETH1, MOP_MODIFIED, true},
        Route{"flow_collector_added", ENTRY_ETH1 "/flow-sampling-collector{c1}", MOP_CREATED, true},
        Route{"counter_collector_added", ENTRY_ETH1 "/counter-sampling-collector{c1}", MOP_CREATED, true},
        Route{"collector_deleted", ENTRY_C1, MOP_DELETED, false},
        Route{"interface_deleted", ENTRY_ETH1, MOP_DELETED, false},
        Route{"interface_leaf", ENTRY_ETH1 "/sampling-rate", MOP_VALUE_SET, false},
        Route{"flow_collector_removed", ENTRY_ETH1 "/flow-sampling-collector{c1}", MOP_DELETED, false}),
    [](const auto& row) { return row.param.name; });

// In the process: a fault of kind 0, a normal teardown, status 1.
TEST_F(DaemonTest, RefusedSessionEndsTheRunWithAFault)
{
    platform.confd.refusal = "database is gone";
    platform.loop = [this] {
        platform.ManagerFound();
        return 0;
    };
    EXPECT_EQ(SFlowApp().Execute(), 1);
    EXPECT_THAT(platform.recorder.faults, ElementsAre(Fault{0, "Run", "src/daemon/sflow_app",
                                                            "Exception caught!\n'database is gone'.\n"}));
    EXPECT_EQ(platform.recorder.journal.back(), "context delete");
}

}  // namespace
}  // namespace daemon_tests
