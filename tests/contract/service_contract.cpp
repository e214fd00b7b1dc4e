// SPDX-License-Identifier: Apache-2.0
// The client of the sFlow service: notices, and what reaches the manager.

#include <sflow/i_service.h>

#include "contract/contract_suite.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A client that records its notices, as "found" and "lost", with the payload that it was given.
struct Client {
    std::vector<std::string> notices;
    std::function<void()> onFound;
    std::unique_ptr<sflow::IService> service;

    Client()
    {
        const auto note = [this](boost::any payload) {
            const auto text = boost::any_cast<std::string>(payload);
            notices.push_back(text);
            if (text == "found" && onFound) onFound();
        };
        service = sflow::IService::Build({note, boost::any(std::string("found"))},
                                         {note, boost::any(std::string("lost"))});
    }
};

TEST_P(ContractTest, FoundIsToldFromTheLoopAndNotFromInsideBuild)
{
    ConfigureSFlow("");
    platform->SetManager(true);
    Client client;
    EXPECT_THAT(client.notices, IsEmpty());
    EXPECT_TRUE(platform->RunUntil([&] { return !client.notices.empty(); }));
    EXPECT_THAT(client.notices, ElementsAre("found"));
    EXPECT_TRUE(client.service->IsConnected());
}

TEST_P(ContractTest, NothingIsToldWithoutAManager)
{
    ConfigureSFlow("");
    Client client;
    platform->Settle();
    EXPECT_THAT(client.notices, IsEmpty());
    EXPECT_FALSE(client.service->IsConnected());
}

TEST_P(ContractTest, LostIsToldWhenTheManagerGoesAndFoundWhenItIsBack)
{
    ConfigureSFlow("");
    platform->SetManager(true);
    Client client;
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 1; }));
    platform->SetManager(false);
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 2; }));
    EXPECT_FALSE(client.service->IsConnected());
    platform->SetManager(true);
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 3; }));
    EXPECT_THAT(client.notices, ElementsAre("found", "lost", "found"));
}

TEST_P(ContractTest, OperationsArriveInOrderWithTheirArguments)
{
    ConfigureSFlow("");
    platform->SetManager(true);
    Client client;
    client.onFound = [&] {
        sflow::IService& service = *client.service;
        in_addr address{};
        address.s_addr = htonl(0xc0000201);
        service.SetAgentAddress(nettypes::IPv4Addr(address.s_addr));
        service.AddCollector("c1", nettypes::IPv4Addr(address.s_addr), 6343, 1400);
        service.UpdateInterface("eth1", "c1", "", 4096, 2, 128, 20);
        service.AddSampleCollector("eth1", "c2");
        service.RemoveSampleCollector("eth1", "c3");
        service.AddCounterCollector("eth1", "c4");
        service.RemoveCounterCollector("eth1", "c5");
        service.UnsetInterface("gigabit-ethernet-1/1/1");
        service.DeleteCollector("c6");
    };
    ASSERT_TRUE(platform->RunUntil([&] { return platform->Received().size() == 9; }));
    EXPECT_THAT(
        platform->Received(),
        ElementsAre("SetAgentAddress(\"192.0.2.1\")", "AddCollector(\"c1\", \"192.0.2.1\", 6343, 1400)",
                    "UpdateInterface(\"eth1\", \"c1\", \"\", 4096, 2, 128, 20)",
                    "AddSampleCollector(\"eth1\", \"c2\")", "RemoveSampleCollector(\"eth1\", \"c3\")",
                    "AddCounterCollector(\"eth1\", \"c4\")", "RemoveCounterCollector(\"eth1\", \"c5\")",
                    "UnsetInterface(\"gigabit-ethernet-1/1/1\")", "DeleteCollector(\"c6\")"));
}

TEST_P(ContractTest, OperationsOutsideASessionHaveNoEffect)
{
    ConfigureSFlow("");
    Client client;
    client.service->DeleteCollector("before");
    platform->SetManager(true);
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 1; }));
    platform->SetManager(false);
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 2; }));
    client.service->DeleteCollector("between");
    platform->SetManager(true);
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 3; }));
    client.service->DeleteCollector("after");
    ASSERT_TRUE(platform->RunUntil([&] { return !platform->Received().empty(); }));
    platform->Settle();
    EXPECT_THAT(platform->Received(), ElementsAre("DeleteCollector(\"after\")"));
}

TEST_P(ContractTest, NobodyIsToldAfterTheClientIsGone)
{
    ConfigureSFlow("");
    platform->SetManager(true);
    Client client;
    ASSERT_TRUE(platform->RunUntil([&] { return client.notices.size() == 1; }));
    client.service.reset();
    platform->SetManager(false);
    platform->Settle();
    EXPECT_THAT(client.notices, ElementsAre("found"));
}

}  // namespace
