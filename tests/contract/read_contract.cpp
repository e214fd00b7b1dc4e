// SPDX-License-Identifier: Apache-2.0
// Reads: counts, entries, leaves, defaults, order, paths and failures.

#include "contract/contract_suite.h"

namespace {

using testing::ElementsAre;

constexpr char kCollectors[] = "/config/oam/sflow/collector";
constexpr char kInterfaces[] = "/config/oam/sflow/interface";

constexpr char kTwoCollectors[] = R"("collector": [
    {"name": "c2", "ip": "192.0.2.2"},
    {"name": "c1", "enabled": false, "ip": "192.0.2.1", "datagram-size": 9000, "port": 7000}])";

TEST_P(ContractTest, EntriesAreCounted)
{
    ConfigureSFlow(
        std::string(kTwoCollectors) +
        R"(, "interface": [{"name": "eth1", "flow-sampling-collector": [{"name": "c1"}, {"name": "c2"}]},
                                      {"name": "eth2"}])");
    const auto session = Session();
    const int sock = session->Socket();
    EXPECT_EQ(cdb_num_instances(sock, kCollectors), 2);
    EXPECT_EQ(cdb_num_instances(sock, "/config/oam/sflow/interface{%s}/flow-sampling-collector", "eth1"), 2);
    EXPECT_EQ(cdb_num_instances(sock, "/config/oam/sflow/interface{%s}/flow-sampling-collector", "eth2"), 0);
    EXPECT_EQ(cdb_num_instances(sock, "/config/oam/sflow/interface{%s}/counter-sampling-collector", "eth1"),
              0);
}

TEST_P(ContractTest, EmptyListHasNoEntries)
{
    ConfigureSFlow("");
    const auto session = Session();
    EXPECT_EQ(cdb_num_instances(session->Socket(), kCollectors), 0);
    EXPECT_EQ(cdb_num_instances(session->Socket(), kInterfaces), 0);
}

TEST_P(ContractTest, CountOfWhatIsNoListFailsWithAReason)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    for (const char* path :
         {"/config/oam/sflow/nothing", "/config/oam/sflow", "/config/oam/sflow/collector{c1}",
          "/config/oam/sflow/collector{c1}/port", "/elsewhere", "no path", ""}) {
        EXPECT_LT(cdb_num_instances(session->Socket(), "%s", path), 0) << path;
        EXPECT_STRNE(confd_lasterr(), "") << path;
    }
}

TEST_P(ContractTest, CountBelowAMissingEntryFails)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    EXPECT_LT(
        cdb_num_instances(session->Socket(), "/config/oam/sflow/interface{%s}/flow-sampling-collector", "x"),
        0);
    EXPECT_STRNE(confd_lasterr(), "");
}

TEST_P(ContractTest, EntryIsReadInSchemaOrderWithItsTypes)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/collector{c1}"),
                ElementsAre("\"c1\"", "false", "192.0.2.1", "u16 9000", "u16 7000"));
}

TEST_P(ContractTest, DefaultsAreFilledIn)
{
    ConfigureSFlow(std::string(kTwoCollectors) + R"(, "interface": [{"name": "eth1"}])");
    const auto session = Session();
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/collector{c2}"),
                ElementsAre("\"c2\"", "true", "192.0.2.2", "u16 1400", "u16 6343"));
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/interface{eth1}"),
                ElementsAre("\"eth1\"", "u32 4096", "u32 4096", "u16 128", "u16 20"));
}

TEST_P(ContractTest, SamplingRateFollowsItsDefaultUntilItHasAValueOfItsOwn)
{
    ConfigureSFlow(R"("interface": [
        {"name": "eth1", "default-sampling-rate": 8192},
        {"name": "eth2", "default-sampling-rate": 8192, "sampling-rate": 512, "max-header-size": 64,
         "polling-interval": 0}])");
    const auto session = Session();
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/interface{eth1}"),
                ElementsAre("\"eth1\"", "u32 8192", "u32 8192", "u16 128", "u16 20"));
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/interface{eth2}"),
                ElementsAre("\"eth2\"", "u32 512", "u32 8192", "u16 64", "u16 0"));
    EXPECT_EQ(Leaf(session->Socket(), "/config/oam/sflow/interface{eth1}/sampling-rate"), "u32 8192");
}

TEST_P(ContractTest, WholeEntryReadReturnsTheNumberOfValuesOfTheSchema)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    confd_value_t values[8] = {};
    for (const int n : {1, 5, 8}) {
        EXPECT_EQ(cdb_get_object(session->Socket(), values, n, "/config/oam/sflow/collector{c1}"), 5);
        for (int i = 0; i < n; ++i) confd_free_value(&values[i]);
    }
    EXPECT_EQ(cdb_get_objects(session->Socket(), values, 1, 0, 2, kCollectors), 5);
    for (confd_value_t& value : values) confd_free_value(&value);
}

TEST_P(ContractTest, FewerValuesThanTheEntryHasMayBeRead)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    EXPECT_THAT(Object(session->Socket(), 2, "/config/oam/sflow/collector{c1}"),
                ElementsAre("\"c1\"", "false"));
    EXPECT_THAT(Objects(session->Socket(), 1, 0, 2, kCollectors), ElementsAre("\"c1\"", "\"c2\""));
}

TEST_P(ContractTest, ValuesBeyondTheEntrysLeavesAreEmpty)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    EXPECT_THAT(Object(session->Socket(), 7, "/config/oam/sflow/collector{c1}"),
                ElementsAre("\"c1\"", "false", "192.0.2.1", "u16 9000", "u16 7000", "none", "none"));
}

TEST_P(ContractTest, EntriesAscendByTheBytesOfTheirKeys)
{
    ConfigureSFlow(
        R"("interface": [{"name": "eth2"}, {"name": "eth10"}, {"name": "Eth3"}, {"name": "eth"}])");
    const auto session = Session();
    EXPECT_THAT(Objects(session->Socket(), 1, 0, 4, kInterfaces),
                ElementsAre("\"Eth3\"", "\"eth\"", "\"eth10\"", "\"eth2\""));
}

TEST_P(ContractTest, EntriesAreReadFromAnyPlaceOn)
{
    ConfigureSFlow(R"("interface": [{"name": "a"}, {"name": "b"}, {"name": "c"}])");
    const auto session = Session();
    EXPECT_THAT(Objects(session->Socket(), 2, 1, 2, kInterfaces),
                ElementsAre("\"b\" u32 4096", "\"c\" u32 4096"));
    EXPECT_THAT(Objects(session->Socket(), 1, 2, 1, kInterfaces), ElementsAre("\"c\""));
}

TEST_P(ContractTest, MoreEntriesThanThereAreFail)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    EXPECT_THAT(Objects(session->Socket(), 1, 0, 3, kCollectors), ElementsAre("error"));
    EXPECT_STRNE(confd_lasterr(), "");
    EXPECT_THAT(Objects(session->Socket(), 1, 2, 1, kCollectors), ElementsAre("error"));
}

TEST_P(ContractTest, MissingEntryFailsWithAReason)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/collector{c9}"), ElementsAre("error"));
    EXPECT_STRNE(confd_lasterr(), "");
    EXPECT_THAT(Object(session->Socket(), 5, "/config/oam/sflow/collector{C1}"), ElementsAre("error"));
}

TEST_P(ContractTest, ReasonIsNeverNull)
{
    EXPECT_NE(confd_lasterr(), nullptr);
    ConfigureSFlow("");
    EXPECT_NE(confd_lasterr(), nullptr);
}

TEST_P(ContractTest, LeafWithoutValueAndDefaultFailsAndLeavesTheValueAlone)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    confd_value_t value{};
    CONFD_SET_UINT32(&value, 77);
    EXPECT_EQ(cdb_get(session->Socket(), &value, "%s/agent/ipv4", "/config/oam/sflow"), CONFD_ERR);
    EXPECT_STRNE(confd_lasterr(), "");
    EXPECT_EQ(contract::ToText(value), "u32 77");
}

TEST_P(ContractTest, AddressIsTheWordOfTheWire)
{
    ConfigureSFlow(R"("agent": {"ipv4": "192.0.2.9"})");
    const auto session = Session();
    contract::Read value;
    ASSERT_EQ(cdb_get(session->Socket(), value.Get(), "%s/agent/ipv4", "/config/oam/sflow"), CONFD_OK);
    ASSERT_EQ(value->type, C_IPV4);
    EXPECT_EQ(value->val.ip.s_addr, htonl(0xc0000209));
}

constexpr char kManagement[] = R"("switch-interfaces:interface": {"mgmt": [
    {"name": "m2", "ipv4": {"address": {"ip": "10.0.0.6/16"}}},
    {"name": "m1", "ipv4": {"address": {"ip": "10.0.0.5/24"}}},
    {"name": "m3"}]})";

TEST_P(ContractTest, ManagementAddressKeepsItsHostBitsAndLength)
{
    Configure(kManagement);
    const auto session = Session();
    EXPECT_EQ(Leaf(session->Socket(), "/config/interface/mgmt{m1}/ipv4/address/ip"), "10.0.0.5/24");
}

TEST_P(ContractTest, IndexCountsInTheOrderOfTheKeys)
{
    Configure(kManagement);
    const auto session = Session();
    const int sock = session->Socket();
    EXPECT_EQ(Leaf(sock, "/config/interface/mgmt[0]/ipv4/address/ip"), "10.0.0.5/24");
    EXPECT_EQ(Leaf(sock, "/config/interface/mgmt[1]/ipv4/address/ip"), "10.0.0.6/16");
    EXPECT_EQ(Leaf(sock, "/config/interface/mgmt[2]/name"), "\"m3\"");
    EXPECT_EQ(Leaf(sock, "/config/interface/mgmt[2]/ipv4/address/ip"), "error");
    EXPECT_EQ(Leaf(sock, "/config/interface/mgmt[3]/ipv4/address/ip"), "error");
}

TEST_P(ContractTest, IndexIntoAnEmptyListFails)
{
    ConfigureSFlow("");
    const auto session = Session();
    EXPECT_EQ(Leaf(session->Socket(), "/config/interface/mgmt[0]/ipv4/address/ip"), "error");
}

TEST_P(ContractTest, KeysMayHoldSlashesAndPercentSigns)
{
    ConfigureSFlow(R"("collector": [{"name": "noc/1", "ip": "192.0.2.1"}], "interface": [
        {"name": "gigabit-ethernet-1/1/1", "flow-sampling-collector": [{"name": "noc/1"}]},
        {"name": "odd%s%n", "sampling-rate": 7}])");
    const auto session = Session();
    const int sock = session->Socket();
    EXPECT_THAT(Object(sock, 2, "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}"),
                ElementsAre("\"gigabit-ethernet-1/1/1\"", "u32 4096"));
    EXPECT_THAT(Object(sock, 2, "/config/oam/sflow/interface{odd%s%n}"), ElementsAre("\"odd%s%n\"", "u32 7"));
    EXPECT_EQ(Leaf(sock, "/config/oam/sflow/collector{noc/1}/ip"), "192.0.2.1");
    EXPECT_THAT(
        Objects(sock, 1, 0, 1, "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}/flow-sampling-collector"),
        ElementsAre("\"noc/1\""));
}

TEST_P(ContractTest, PathIsAFormatWithItsArguments)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    contract::Read value;
    ASSERT_EQ(cdb_get(session->Socket(), value.Get(), "%s{%s%d}/port", kCollectors, "c", 1), CONFD_OK);
    EXPECT_EQ(contract::ToText(*value.Get()), "u16 7000");
}

TEST_P(ContractTest, StringsAreTerminatedBehindTheirSize)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    contract::Read value;
    ASSERT_EQ(cdb_get(session->Socket(), value.Get(), "/config/oam/sflow/collector{c1}/name"), CONFD_OK);
    ASSERT_EQ(value->type, C_BUF);
    EXPECT_EQ(value->val.buf.size, 2U);
    EXPECT_STREQ(reinterpret_cast<const char*>(value->val.buf.ptr), "c1");
}

TEST_P(ContractTest, ReleasedValueIsEmptyAndMayBeReleasedAgain)
{
    ConfigureSFlow(kTwoCollectors);
    const auto session = Session();
    confd_value_t value{};
    ASSERT_EQ(cdb_get(session->Socket(), &value, "/config/oam/sflow/collector{c1}/name"), CONFD_OK);
    confd_free_value(&value);
    EXPECT_EQ(value.type, C_NOEXISTS);
    confd_free_value(&value);
    EXPECT_EQ(value.type, C_NOEXISTS);
    CONFD_SET_UINT32(&value, 5);
    confd_free_value(&value);
    EXPECT_EQ(value.type, C_NOEXISTS);
}

}  // namespace
