// SPDX-License-Identifier: Apache-2.0
// The order of virtual operations and of members, which a platform built elsewhere relies on.

#include <cstring>
#include <type_traits>

#include "support.h"

namespace daemon_tests {
namespace {

// The slot of a virtual operation, destructors being 0 and 1. The Itanium C++ ABI, as x86-64 has it,
// keeps one plus the slot's offset in the pointer to the member.
template <typename Class, typename Result, typename... Args>
std::ptrdiff_t Slot(Result (Class::*operation)(Args...))
{
    std::ptrdiff_t words[2];
    static_assert(sizeof operation == sizeof words);
    std::memcpy(words, &operation, sizeof words);
    return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}
template <typename Class, typename Result, typename... Args>
std::ptrdiff_t Slot(Result (Class::*operation)(Args...) const)
{
    std::ptrdiff_t words[2];
    std::memcpy(words, &operation, sizeof words);
    return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

class SlotTest : public testing::Test {
protected:
    void SetUp() override
    {
#if !defined(__x86_64__) || !defined(__GXX_ABI_VERSION)
        GTEST_SKIP() << "pointers to members have another form here";
#endif
    }
};

TEST_F(SlotTest, Application)
{
    static_assert(std::has_virtual_destructor_v<HAStateHandlerInterface>);
    EXPECT_EQ(Slot(&HAStateHandlerInterface::SetHaState), 2);
    EXPECT_EQ(Slot(&SFlowApp::SetHaState), 2);
    EXPECT_EQ(Slot(&SFlowApp::Listen), 3);
}

TEST_F(SlotTest, Callback)
{
    static_assert(std::has_virtual_destructor_v<qxos::Callback>);
    EXPECT_EQ(Slot(&qxos::Callback::Invoke), 2);
    EXPECT_EQ(Slot(&SFlowApp::GoActive::Invoke), 2);
    EXPECT_EQ(Slot(&SFlowApp::GoStandby::Invoke), 2);
}

TEST_F(SlotTest, ConfigHandler)
{
    EXPECT_EQ(Slot(&SFlowConfigHandler::ConfdConnected), 2);
    EXPECT_EQ(Slot(&SFlowConfigHandler::ConfdDisconnected), 3);
    EXPECT_EQ(Slot(&SFlowConfigHandler::LoadInitialConfig), 4);
    EXPECT_EQ(Slot(&SFlowConfigHandler::ApplyInitialConfig), 5);
    EXPECT_EQ(Slot(&SFlowConfigHandler::StartCommit), 6);
    EXPECT_EQ(Slot(&SFlowConfigHandler::ApplyCommitConfig), 7);
    EXPECT_EQ(Slot(&SFlowConfigHandler::GetSubscriptionPoints), 8);
    EXPECT_EQ(Slot(&qxconfd::ConfigHandler::GetSubscriptionPoints), 8);
}

TEST_F(SlotTest, DataHandler)
{
    EXPECT_EQ(Slot(&SFlowSetDefault::ConfdConnected), 2);
    EXPECT_EQ(Slot(&SFlowSetDefault::ConfdDisconnected), 3);
    EXPECT_EQ(Slot(&SFlowSetDefault::TransactionInit), 4);
    EXPECT_EQ(Slot(&SFlowSetDefault::TransactionFinish), 5);
    EXPECT_EQ(Slot(&SFlowSetDefault::GetCallpoints), 6);
}

TEST_F(SlotTest, Callpoint)
{
    using Callpoint = SFlowSetDefault::SetRateCallpoint;
    EXPECT_EQ(Slot(&Callpoint::ExistsOptionalCallback), 2);
    EXPECT_EQ(Slot(&Callpoint::GetNextCallback), 3);
    EXPECT_EQ(Slot(&Callpoint::GetElemCallback), 4);
    EXPECT_EQ(Slot(&Callpoint::SetElemCallback), 5);
    EXPECT_EQ(Slot(&Callpoint::CreateCallback), 6);
    EXPECT_EQ(Slot(&Callpoint::RemoveCallback), 7);
    EXPECT_EQ(Slot(&Callpoint::NumInstancesCallback), 8);
    EXPECT_EQ(Slot(&Callpoint::GetObjectCallback), 9);
    EXPECT_EQ(Slot(&Callpoint::GetNextObjectCallback), 10);
    EXPECT_EQ(Slot(&Callpoint::FindNextObjectCallback), 11);
    EXPECT_EQ(Slot(&Callpoint::WriteAllCallback), 12);
    EXPECT_EQ(Slot(&Callpoint::GetCallpointName), 13);
}

TEST(Callpoint, WhatItDoesNotOverrideIsNotServed)
{
    struct Plain : qxconfd::DataHandler::Callpoint {
        const char* GetCallpointName() override { return "plain"; }
    } plain;
    EXPECT_EQ(plain.ExistsOptionalCallback(nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.GetNextCallback(nullptr, nullptr, -1), CONFD_ERR);
    EXPECT_EQ(plain.GetElemCallback(nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.SetElemCallback(nullptr, nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.CreateCallback(nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.RemoveCallback(nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.NumInstancesCallback(nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.GetObjectCallback(nullptr, nullptr), CONFD_ERR);
    EXPECT_EQ(plain.GetNextObjectCallback(nullptr, nullptr, -1), CONFD_ERR);
    EXPECT_EQ(plain.FindNextObjectCallback(nullptr, nullptr, {}, nullptr, 0), CONFD_ERR);
    EXPECT_EQ(plain.WriteAllCallback(nullptr, nullptr), CONFD_ERR);
}

TEST_F(SlotTest, Service)
{
    EXPECT_EQ(Slot(&sflow::IService::IsConnected), 2);
    EXPECT_EQ(Slot(&sflow::IService::AddCollector), 3);
    EXPECT_EQ(Slot(&sflow::IService::DeleteCollector), 4);
    EXPECT_EQ(Slot(&sflow::IService::UpdateInterface), 5);
    EXPECT_EQ(Slot(&sflow::IService::AddSampleCollector), 6);
    EXPECT_EQ(Slot(&sflow::IService::RemoveSampleCollector), 7);
    EXPECT_EQ(Slot(&sflow::IService::AddCounterCollector), 8);
    EXPECT_EQ(Slot(&sflow::IService::RemoveCounterCollector), 9);
    EXPECT_EQ(Slot(&sflow::IService::UnsetInterface), 10);
    EXPECT_EQ(Slot(&sflow::IService::SetAgentAddress), 11);
}

// What the daemon only calls.
TEST_F(SlotTest, Framework)
{
    static_assert(std::has_virtual_destructor_v<qxconfd::AppInterface>);
    EXPECT_EQ(Slot(&qxconfd::AppInterface::Dispose), 2);
}

TEST_F(SlotTest, Context)
{
    static_assert(std::has_virtual_destructor_v<qxos::Context>);
    static_assert(std::has_virtual_destructor_v<qxos::Server>);
    EXPECT_EQ(Slot(&qxos::Server::Run), 2);
}

TEST_F(SlotTest, Connection)
{
    static_assert(std::has_virtual_destructor_v<QxConfdInterface>);
    EXPECT_EQ(Slot(&QxConfdInterface::IsConnected), 2);
    EXPECT_EQ(Slot(&QxConfdInterface::MaapiSocket), 3);
    EXPECT_EQ(Slot(&QxConfdInterface::OpenCdbSession), 4);
    EXPECT_EQ(Slot(&QxConfdInterface::CloseCdbSession), 5);
    static_assert(std::has_virtual_destructor_v<QxConfdCdbSessionBase>);
    static_assert(!std::is_polymorphic_v<SubscriptionPoint>);
}

TEST_F(SlotTest, Address)
{
    static_assert(std::has_virtual_destructor_v<nettypes::IPv4Addr>);
    EXPECT_EQ(Slot(&nettypes::IPv4Addr::to_string), 2);
}

// The members' places within the object, in the order given.
template <typename Class, typename... Members>
std::vector<std::ptrdiff_t> Places(const Class& object, const Members&... members)
{
    const auto* base = reinterpret_cast<const char*>(&object);
    return {(reinterpret_cast<const char*>(&members) - base)...};
}

testing::AssertionResult Ascend(const std::vector<std::ptrdiff_t>& places)
{
    for (std::size_t i = 1; i < places.size(); ++i) {
        if (places[i - 1] >= places[i])
            return testing::AssertionFailure() << "member " << i << " is not in order";
    }
    return testing::AssertionSuccess();
}

class MemberOrderTest : public HandlerTest {};

TEST_F(MemberOrderTest, ConfigHandler)
{
    EXPECT_TRUE(
        Ascend(Places(handler, inside::Category(handler), inside::SubscriptionPoints(handler),
                      inside::MgrAvailable(handler), inside::Service(handler), inside::Collectors(handler),
                      inside::DeletedCollectors(handler), inside::Interfaces(handler))));
}

TEST_F(MemberOrderTest, Application)
{
    SFlowApp app;
    app.Init();
    EXPECT_TRUE(Ascend(Places(app, inside::AppCategory(app), inside::AppInterface(app),
                              inside::ConfigHandler(app), inside::SetDefault(app), inside::HaState(app),
                              inside::GoActive(app), inside::GoStandby(app))));
}

TEST_F(MemberOrderTest, DataHandler)
{
    SFlowSetDefault setDefault(category);
    EXPECT_TRUE(Ascend(Places(setDefault, inside::Callpoints(setDefault), inside::SetRate(setDefault))));
}

TEST_F(MemberOrderTest, Records)
{
    const collector_st c;
    EXPECT_TRUE(Ascend(Places(c, c.enabled, c.ip, c.dgsize, c.port, c.send)));
    const interface_st i;
    EXPECT_TRUE(Ascend(
        Places(i, i.rate, i.max_header_size, i.interval, i.collectors, i.removedCollectors, i.update)));
    EXPECT_EQ(Sample, 0);
    EXPECT_EQ(Counter, 1);
}

TEST(MemberTypes, AreThoseOfTheRecords)
{
    static_assert(std::is_same_v<decltype(collector_st::ip), std::uint32_t>);
    static_assert(std::is_same_v<decltype(collector_st::dgsize), std::uint16_t>);
    static_assert(std::is_same_v<decltype(collector_st::port), std::uint16_t>);
    static_assert(std::is_same_v<decltype(interface_st::rate), std::uint32_t>);
    static_assert(std::is_same_v<decltype(interface_st::max_header_size), std::uint16_t>);
    static_assert(std::is_same_v<decltype(interface_st::interval), std::uint16_t>);
    static_assert(std::is_base_of_v<QxConfdCdbSessionBase, QxConfdCdbSession>);
    static_assert(sizeof(QxConfdCdbSession) == sizeof(QxConfdCdbSessionBase));
}

}  // namespace
}  // namespace daemon_tests
