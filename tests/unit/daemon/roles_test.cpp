// SPDX-License-Identifier: Apache-2.0
// The node's role does not change what the daemon does: every list of calls and every line is the same in
// both roles.

#include "support.h"

namespace daemon_tests {
namespace {

using Roles = std::vector<int>;  // the transitions, 1 active, 2 standby

class RolesTest : public DaemonTest {
protected:
    RolesTest()
    {
        cdb.Create("/config/oam/sflow/collector{c1}");
        cdb.Set("/config/oam/sflow/collector{c1}/ip", Address("192.0.2.1"));
        cdb.Create("/config/oam/sflow/interface{eth1}");
        cdb.Create("/config/oam/sflow/interface{eth1}/flow-sampling-collector{c1}");
        cdb.Set("/config/oam/sflow/agent/ipv4", Address("192.0.2.9"));
    }

    void Enter(const Roles& roles)
    {
        for (const int role : roles)
            EXPECT_TRUE((role == 1 ? platform.callbacks.goActive : platform.callbacks.goStandby)->Invoke());
    }

    // A commit of a new rate, as the framework delivers it.
    void Commit()
    {
        qxconfd::ConfigHandler& handler = *platform.framework.configHandlers.at(0);
        const auto walk = [&handler](const char* path, confd_iter_op op) {
            Keypath keypath(path);
            handler.GetSubscriptionPoints().at(1).callback(keypath.Get(), op, nullptr, nullptr);
        };
        handler.StartCommit();
        walk("/config/oam/sflow/interface{eth1}", MOP_MODIFIED);
        walk("/config/oam/sflow/interface{eth1}/sampling-rate", MOP_VALUE_SET);
        walk("/config/oam/sflow/collector{c1}/port", MOP_VALUE_SET);
        handler.ApplyCommitConfig();
    }

    int CreateInterface()
    {
        Keypath keypath("/config/oam/sflow/interface{ten-gigabit-ethernet-1}");
        confd_daemon_ctx registration{static_cast<QxConfdInterface*>(&platform.confd)};
        confd_trans_ctx transaction{&registration, 1};
        return platform.framework.dataHandlers.at(0)->GetCallpoints().at(0)->CreateCallback(&transaction,
                                                                                            keypath.Get());
    }

    // What a process does that takes these roles before the load and those after it, without the service
    // object's address.
    std::vector<std::string> Handled(const Roles& before, const Roles& after)
    {
        std::vector<std::string> journal;
        SFlowApp app;
        app.Init();
        ForgetRecords();
        Enter(before);
        platform.ManagerFound();
        Enter(after);
        Commit();
        EXPECT_EQ(CreateInterface(), CONFD_OK);
        for (const std::string& entry : platform.recorder.journal)
            journal.push_back(entry.substr(0, entry.find(" (svc: ")));
        calls = platform.recorder.calls;
        return journal;
    }

    std::vector<ServiceCall> calls;
};

TEST_F(RolesTest, ConfigurationIsHandledAlikeInBoth)
{
    const std::vector<ServiceCall> expected = {
        Call("SetAgentAddress", "192.0.2.9"),
        Call("AddCollector", "c1", "192.0.2.1", 6343, 1400),
        Call("UpdateInterface", "eth1", "c1", "", 4096, 2, 128, 20),
        Call("AddCollector", "c1", "192.0.2.1", 6343, 1400),
        Call("UpdateInterface", "eth1", "", "", 4096, 2, 128, 20),
    };
    const std::vector<std::string> without = Handled({}, {});
    EXPECT_EQ(calls, expected);
    const std::vector<std::pair<Roles, Roles>> turns = {{{1}, {}},  {{2}, {}},  {{}, {1}},          {{}, {2}},
                                                        {{1}, {2}}, {{2}, {1}}, {{2, 1, 2}, {1, 2}}};
    for (const auto& [before, after] : turns) {
        EXPECT_EQ(Handled(before, after), without)
            << testing::PrintToString(before) << testing::PrintToString(after);
        EXPECT_EQ(calls, expected);
    }
}

}  // namespace
}  // namespace daemon_tests
