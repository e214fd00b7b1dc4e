// SPDX-License-Identifier: Apache-2.0
// Messages that look hostile and are valid: each is read as a whole.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <cstdlib>
#include <string>
#include <variant>

#include "agent/agent_world.h"
#include "agent/rpc_text.h"

namespace agent_tests {
namespace {

struct HarmlessRpc {
    const char* name;
    std::string message;
};

class Harmless : public testing::TestWithParam<HarmlessRpc> {};

TEST_P(Harmless, IsRead)
{
    const auto result = agent::ReadRpc(Index(), GetParam().message, true);
    const auto* bad = std::get_if<agent::BadRpc>(&result);
    EXPECT_EQ(bad, nullptr) << bad->error.tag << ": " << bad->error.message;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Harmless,
    testing::Values(
        HarmlessRpc{"LanguageOfText",
                    InSflow("<agent xml:lang=\"en\" xml:space='preserve'><ipv4 xml:lang='a>b' "
                            "nc:operation='remove'/></agent>")},
        HarmlessRpc{"LanguageOfRpc", InRpc("<commit xml:lang='en'/>", "message-id='1' xml:lang='en'")},
        HarmlessRpc{"AnyAttributesOfRpc", InRpc("<commit/>", "message-id='1' a='b' xmlns:p='urn:p' p:c='d'")},
        HarmlessRpc{"CharacterData", InSflow(Collector("c1", "<ip><![CDATA[192.0.2.1]]></ip>"))},
        HarmlessRpc{"CharacterReferences", InSflow(Collector("c&#x31;", "<ip>192.0.2.&#49;</ip>"))},
        HarmlessRpc{"Comments", InSflow("<!-- a --><agent><!-- b --></agent><!-- c -->")},
        HarmlessRpc{"ProcessingInstructions", InSflow("<?a b?><agent><?c?></agent>")},
        HarmlessRpc{"Prefixes", InConfig("<c:config xmlns:c=\"" + kConfigNamespace + "\"><s:oam xmlns:s=\"" +
                                         kSflowNamespace + "\"><s:sflow/></s:oam></c:config>")},
        HarmlessRpc{"Declaration", "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + InSflow("")},
        HarmlessRpc{"EntriesOfOneList", InSflow(Collector("c1") + Collector("c2"))},
        HarmlessRpc{
            "EntryDeletedAndMadeAnew",
            InSflow("<collector nc:operation='delete'><name>c1</name></collector>" + Collector("c1"))},
        HarmlessRpc{"FilterOfNoNamespace", InFilter("<a xmlns=''/><a xmlns='urn:x' b='c'/><a/>")}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(HarmlessMessage, KeepsItsDataWhereTheLanguageIsCutOut)
{
    const auto result = agent::ReadRpc(
        Index(), InSflow("<agent xml:lang=\"en\"><ipv4 xml:lang='a>b' >192.0.2.7</ipv4></agent>"), true);
    const auto& rpc = std::get<agent::Rpc>(result);
    char* text = nullptr;
    ASSERT_EQ(lyd_print_mem(&text, rpc.operation.get(), LYD_XML, LYD_PRINT_SHRINK), LY_SUCCESS);
    EXPECT_THAT(std::string(text), testing::HasSubstr("<agent><ipv4>192.0.2.7</ipv4></agent>"));
    std::free(text);
}

}  // namespace
}  // namespace agent_tests
