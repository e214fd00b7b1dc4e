// Keypaths as text.

#include <switch_schema.h>

#include "contract/contract_suite.h"

namespace {

using contract::KeypathBuilder;
namespace s = switch_schema;

constexpr std::int32_t kNsSFlow = s::ns_switch_oam_sflow;
constexpr std::int32_t kNsInterfaces = s::ns_switch_interfaces;

KeypathBuilder& BelowSFlow(KeypathBuilder& keypath)
{
    return keypath.Element(s::tag_sflow, kNsSFlow)
        .Element(s::tag_oam, kNsSFlow)
        .Element(s::tag_config, s::ns_switch_config);
}

std::string Printed(const confd_hkeypath_t* keypath)
{
    char text[8192];
    const int length = confd_pp_kpath(text, sizeof text, keypath);
    return length == static_cast<int>(std::string(text).size()) ? text : "wrong length";
}

TEST_P(ContractTest, LeafOfAnEntryIsPrinted)
{
    ConfigureSFlow("");
    KeypathBuilder keypath;
    BelowSFlow(keypath.Element(s::tag_port, kNsSFlow).Key("c1").Element(s::tag_collector, kNsSFlow));
    EXPECT_EQ(Printed(keypath.Get()), "/config/oam/sflow/collector{c1}/port");
}

TEST_P(ContractTest, EntryOfAListInAnEntryIsPrinted)
{
    ConfigureSFlow("");
    KeypathBuilder keypath;
    BelowSFlow(keypath.Key("noc%s")
                   .Element(s::tag_flow_sampling_collector, kNsSFlow)
                   .Key("gigabit-ethernet-1/1/1")
                   .Element(s::tag_interface, kNsSFlow));
    EXPECT_EQ(Printed(keypath.Get()),
              "/config/oam/sflow/interface{gigabit-ethernet-1/1/1}/flow-sampling-collector{noc%s}");
}

TEST_P(ContractTest, ManagementAddressIsPrinted)
{
    ConfigureSFlow("");
    KeypathBuilder keypath;
    keypath.Element(s::tag_ip, kNsInterfaces)
        .Element(s::tag_address, kNsInterfaces)
        .Element(s::tag_ipv4, kNsInterfaces)
        .Key("m0")
        .Element(s::tag_mgmt, kNsInterfaces)
        .Element(s::tag_interface, kNsInterfaces)
        .Element(s::tag_config, s::ns_switch_config);
    EXPECT_EQ(Printed(keypath.Get()), "/config/interface/mgmt{m0}/ipv4/address/ip");
}

TEST_P(ContractTest, PrintedPathIsAcceptedByReads)
{
    ConfigureSFlow(R"("interface": [{"name": "gigabit-ethernet-1/1/1", "sampling-rate": 9}])");
    KeypathBuilder keypath;
    BelowSFlow(keypath.Element(s::tag_sampling_rate, kNsSFlow)
                   .Key("gigabit-ethernet-1/1/1")
                   .Element(s::tag_interface, kNsSFlow));
    const auto session = Session();
    EXPECT_EQ(Leaf(session->Socket(), Printed(keypath.Get())), "u32 9");
}

TEST_P(ContractTest, LongPathIsCutAndItsWholeLengthReturned)
{
    ConfigureSFlow("");
    KeypathBuilder keypath;
    BelowSFlow(keypath.Key("c1").Element(s::tag_collector, kNsSFlow));
    const std::string whole = "/config/oam/sflow/collector{c1}";
    for (const std::size_t size : {std::size_t{1}, std::size_t{8}, whole.size(), whole.size() + 1}) {
        std::string buffer(whole.size() + 8, '#');
        EXPECT_EQ(confd_pp_kpath(buffer.data(), static_cast<int>(size), keypath.Get()),
                  static_cast<int>(whole.size()));
        EXPECT_STREQ(buffer.c_str(), whole.substr(0, size - 1).c_str());
        EXPECT_EQ(buffer[size], '#') << "written behind " << size << " bytes";
    }
}

TEST_P(ContractTest, UnknownTagFailsAndPrintsNothing)
{
    ConfigureSFlow("");
    KeypathBuilder keypath;
    BelowSFlow(keypath.Element(1, kNsSFlow));
    char text[64] = "something";
    EXPECT_EQ(confd_pp_kpath(text, sizeof text, keypath.Get()), CONFD_ERR);
    EXPECT_STREQ(text, "");
    EXPECT_STRNE(confd_lasterr(), "");
}

}  // namespace
