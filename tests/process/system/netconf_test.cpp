// SPDX-License-Identifier: Apache-2.0
// NETCONF against the real switch: what is refused, with which tag, and what stays as it was. The
// agent's unit tests cover sessions in detail.

#include "system/system_test.h"

namespace system_tests {

namespace {

using netconf::EditConfig;
using netconf::GetConfig;
using scenario::SflowXml;

class Netconf : public SystemTest {
protected:
    Netconf() { TheWorld().Start(scenario::Usual()); }

    // The edit is refused with this tag, and the candidate is as before.
    netconf::RpcError RefusedEdit(const std::string& config, const std::string& tag)
    {
        auto client = Connect();
        const auto before = client.Call(GetConfig("candidate")).data;
        auto error = Refused(client, EditConfig(config), tag);
        EXPECT_EQ(before, client.Call(GetConfig("candidate")).data);
        return error;
    }
};

TEST_F(Netconf, RefusesAValueOutOfRange)
{
    const auto error = RefusedEdit(Rate("eth1", 0), "invalid-value");
    EXPECT_THAT(error.path, HasSubstr("sampling-rate"));
    EXPECT_THAT(error.message, HasSubstr("0"));
    RefusedEdit(Rate("eth1", 16777216), "invalid-value");
    RefusedEdit(SflowXml("<collector><name>c1</name><port>0</port></collector>"), "invalid-value");
    RefusedEdit(SflowXml("<collector><name>c1</name><port>65536</port></collector>"), "invalid-value");
    RefusedEdit(SflowXml("<collector><name>c1</name><datagram-size>199</datagram-size></collector>"),
                "invalid-value");
    RefusedEdit(SflowXml("<collector><name>c1</name><ip>192.0.2.256</ip></collector>"), "invalid-value");
    RefusedEdit(SflowXml("<collector><name>a b</name><ip>192.0.2.1</ip></collector>"), "invalid-value");
    RefusedEdit(SflowXml("<collector><name>100%</name><ip>192.0.2.1</ip></collector>"), "invalid-value");
}

TEST_F(Netconf, RefusesAnUnknownLeaf)
{
    const auto error =
        RefusedEdit(SflowXml("<interface><name>eth1</name><sampling-speed>1</sampling-speed></interface>"),
                    "unknown-element");
    EXPECT_THAT(error.info, testing::Contains(testing::Pair("bad-element", "sampling-speed")));
}

TEST_F(Netconf, RefusesAnUnknownNamespace)
{
    RefusedEdit("<config xmlns=\"urn:example:elsewhere\"/>", "unknown-namespace");
}

TEST_F(Netconf, RefusesAnEntryWithoutItsKey)
{
    RefusedEdit(SflowXml("<interface><sampling-rate>1</sampling-rate></interface>"), "missing-element");
}

TEST_F(Netconf, RefusesToCreateWhatIsThereAndToDeleteWhatIsNot)
{
    RefusedEdit(SflowXml(R"(<collector nc:operation="create"><name>c1</name><ip>192.0.2.1</ip></collector>)"),
                "data-exists");
    RefusedEdit(SflowXml(R"(<collector nc:operation="delete"><name>c9</name></collector>)"), "data-missing");
    auto client = Connect();
    Do(client, EditConfig(SflowXml(R"(<collector nc:operation="remove"><name>c9</name></collector>)")));
}

TEST_F(Netconf, RefusesACommitWithADanglingReferenceAndLeavesRunningAsItWas)
{
    auto client = Connect();
    const auto before = client.Call(GetConfig("running")).data;
    Do(client, EditConfig(SflowXml(R"(<collector nc:operation="delete"><name>c1</name></collector>)"),
                          {.defaultOperation = {}, .testOption = "set", .errorOption = {}}));
    auto error = Refused(client, netconf::Validate(), "data-missing");
    EXPECT_EQ("instance-required", error.appTag);
    EXPECT_THAT(error.path, HasSubstr("eth1"));
    EXPECT_THAT(error.path, HasSubstr("-sampling-collector[switch-oam-sflow:name='c1']"));
    Refused(client, netconf::Commit(), "data-missing");
    EXPECT_EQ(before, client.Call(GetConfig("running")).data);
    Do(client, netconf::DiscardChanges());
    EXPECT_EQ(before, client.Call(GetConfig("candidate")).data);
}

TEST_F(Netconf, RefusesACommitWithoutAMandatoryLeaf)
{
    auto client = Connect();
    Do(client, EditConfig(SflowXml("<collector><name>c9</name></collector>"),
                          {.defaultOperation = {}, .testOption = "set", .errorOption = {}}));
    const auto reply = client.Call(netconf::Commit());
    ASSERT_FALSE(reply.ok);
    EXPECT_THAT(reply.xml, HasSubstr("c9"));
    EXPECT_THAT(reply.errors.at(0).message, HasSubstr("ip"));
}

TEST_F(Netconf, RefusesAnUnknownOperation)
{
    auto client = Connect();
    for (const auto* operation : {"<make-coffee xmlns=\"urn:example:kitchen\"/>", "<make-coffee/>"}) {
        const auto reply = client.Call(operation);
        EXPECT_FALSE(reply.ok);
        ASSERT_FALSE(reply.errors.empty());
        EXPECT_THAT(reply.errors[0].tag,
                    testing::AnyOf("operation-not-supported", "unknown-element", "unknown-namespace"))
            << reply.xml;
        EXPECT_THAT(reply.xml, HasSubstr("make-coffee"));
    }
    Do(client, netconf::Commit());
}

TEST_F(Netconf, RefusesToCommitWhileAnotherHoldsTheLock)
{
    auto holder = Connect();
    auto other = Connect();
    Do(holder, netconf::Lock("candidate"));
    const auto denied = Refused(other, netconf::Lock("candidate"), "lock-denied");
    EXPECT_THAT(denied.info,
                testing::Contains(testing::Pair("session-id", std::to_string(holder.SessionId()))));
    Refused(other, netconf::Commit(), "in-use");
    Refused(other, EditConfig(Rate("eth1", 1)), "in-use");
    const auto shell = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 2; commit");
    EXPECT_EQ(1, shell.status);
    EXPECT_THAT(shell.errors, HasSubstr(std::to_string(holder.SessionId())));

    Do(holder, EditConfig(Rate("eth1", 3)));
    Do(holder, netconf::Commit());
    Do(holder, netconf::Unlock("candidate"));
    Do(other, netconf::Commit());
    AwaitSettled();
}

TEST_F(Netconf, LockOfRunningKeepsOthersFromCommitting)
{
    auto holder = Connect();
    auto other = Connect();
    Do(holder, netconf::Lock("running"));
    Do(other, EditConfig(Rate("eth1", 4)));
    Refused(other, netconf::Commit(), "in-use");
    Do(holder, netconf::Unlock("running"));
    Do(other, netconf::Commit());
}

TEST_F(Netconf, LockGoesWithItsSession)
{
    auto other = Connect();
    {
        auto holder = Connect();
        Do(holder, netconf::Lock("candidate"));
        Do(holder, EditConfig(Rate("eth1", 5)));
    }
    Await("the lock to go", [&] { return other.Call(netconf::Lock("candidate")).ok; });
    // The lock holder's uncommitted changes are discarded with the lock.
    EXPECT_THAT(other.Call(GetConfig("candidate")).data, HasSubstr("<sampling-rate>1024</sampling-rate>"));

    auto killer = Connect();
    Do(killer, netconf::KillSession(other.SessionId()));
    Await("the killed session's lock to go", [&] { return killer.Call(netconf::Lock("candidate")).ok; });
    EXPECT_THROW(other.Call(netconf::Commit()), netconf::ConnectionError);
    Refused(killer, netconf::KillSession(killer.SessionId()), "invalid-value");
}

TEST_F(Netconf, CommitOfNothingSucceedsAndReachesNobody)
{
    auto client = Connect();
    Do(client, netconf::Commit());
    Commit(SflowXml("<agent><ipv4>203.0.113.77</ipv4></agent>"));
    EXPECT_THAT(TheWorld().ManagerJournal().Until("SetAgentAddress 203.0.113.77"),
                ElementsAre("SetAgentAddress 203.0.113.77"));
}

TEST_F(Netconf, FilterSelectsAndOneThatMatchesNothingGivesAnEmptyData)
{
    auto client = Connect();
    const auto all = client.Call(GetConfig("running")).data;
    const auto one =
        client.Call(GetConfig("running", SflowXml("<interface><name>eth2</name></interface>").c_str())).data;
    EXPECT_THAT(one, HasSubstr("<name>eth2</name>"));
    EXPECT_THAT(one, Not(HasSubstr("<name>eth1</name>")));
    EXPECT_THAT(one, Not(HasSubstr("<agent>")));
    const auto none =
        client.Call(GetConfig("running", SflowXml("<interface><name>eth99</name></interface>").c_str()));
    EXPECT_TRUE(none.ok);
    EXPECT_EQ("", none.data);
    EXPECT_THAT(none.xml, HasSubstr("<data/>"));
    EXPECT_EQ("", client.Call(GetConfig("running", "")).data);
    EXPECT_GT(all.size(), one.size());
}

TEST_F(Netconf, RequestsSentAtOnceAreAnsweredInOrder)
{
    auto client = Connect();
    for (unsigned rate = 2000; rate < 2020; ++rate) {
        client.Send(EditConfig(Rate("eth1", rate)));
        client.Send(netconf::Commit());
    }
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(client.Receive().ok);
    Calls expected;
    for (unsigned rate = 2000; rate < 2020; ++rate)
        expected.push_back("UpdateInterface eth1 - - " + std::to_string(rate) + " 2 128 20");
    EXPECT_THAT(TheWorld().ManagerJournal().Until(expected.back()), ElementsAreArray(expected));
}

TEST_F(Netconf, OldFramingWorksToo)
{
    auto client = netconf::Client::Connect(
        TheWorld().NetconfSocket(),
        {.connectTimeout = support::kPatience, .callTimeout = support::kPatience, .offerChunked = false});
    Do(client, EditConfig(Rate("eth1", 6)));
    Do(client, netconf::Commit());
    AwaitSettled();
}

TEST_F(Netconf, StateShowsWhatTheManagerHas)
{
    auto client = Connect();
    const auto reply = client.Call(netconf::Get(R"(<state xmlns="urn:switch:yang:switch-state"/>)"));
    ASSERT_TRUE(reply.ok) << reply.xml;
    EXPECT_THAT(reply.data, HasSubstr("198.51.100.2"));
    EXPECT_THAT(reply.data, HasSubstr("eth1"));
    EXPECT_THAT(reply.data, HasSubstr("sflow-app"));
}

TEST_F(Netconf, StateWithoutAManagerSaysSoAndTheRestIsThere)
{
    TheWorld().Manager().Kill();
    auto client = Connect();
    Await("the manager's absence", [&] {
        const auto reply = client.Call(netconf::Get(R"(<state xmlns="urn:switch:yang:switch-state"/>)"));
        EXPECT_TRUE(reply.ok) << reply.xml;
        EXPECT_EQ(1U, reply.errors.size()) << reply.xml;
        return reply.errors.front().message.starts_with("sflow-mgr is not connected; start sflow-mgr") &&
               reply.data.find("198.51.100.2") == std::string::npos &&
               reply.data.find("sflow-app") != std::string::npos;
    });
}

}  // namespace

}  // namespace system_tests
