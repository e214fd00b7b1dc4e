// SPDX-License-Identifier: Apache-2.0
// Configurations in the forms that people write.

#include "cli/data/config_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/data/config_text.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"
#include "cli/yang.h"

namespace {

using cli_test::Yang;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string EditOf(const std::string& text) { return cli::ReadConfigLines(Yang(), text, "f").xml; }

std::string RefusalOf(const std::string& text)
{
    try {
        cli::ReadConfigLines(Yang(), text, "f");
    } catch (const cli::Error& error) {
        return error.what();
    }
    return "no error";
}

/// Everything of sFlow, and names that need quotes.
cli::Tree Everything()
{
    return cli_test::Sflow(R"("agent":{"ipv4":"192.0.2.9"},
        "collector":[{"name":"c1","ip":"192.0.2.1","port":7,"enabled":false,"datagram-size":1200},
                     {"name":"#1","ip":"192.0.2.2"}],
        "interface":[{"name":"gigabit-ethernet-1/1/1","sampling-rate":100,"max-header-size":64,
                      "polling-interval":20,"flow-sampling-collector":[{"name":"c1"},{"name":"#1"}],
                      "counter-sampling-collector":[{"name":"c1"}]},
                     {"name":"a#b"},{"name":"set"},{"name":"running"}])");
}

TEST(ConfigForms, ComeBackAsTheyWerePrinted)
{
    const cli::Tree tree = Everything();
    const std::string json = cli::ToJson(tree.get());
    for (const std::string& form :
         {json, cli::ToXml(tree.get()), cli::ToSetLines(tree.get()), cli::ToBlocks(tree.get())}) {
        const cli::Tree again = cli::ParseConfigText(Yang(), form, "f");
        EXPECT_EQ(cli::ToJson(again.get()), json) << form;
    }
}

TEST(ConfigLines, OfOnePlaceStandTogetherWhereverTheyAre)
{
    const std::string xml = EditOf(
        "set oam sflow collector c1 port 7\n"
        "set interface mgmt mgmt0 ipv4 address ip 10.0.0.5/24\n\n# a comment\n"
        "set oam sflow collector c1 ip 192.0.2.1 # and one more\n");
    EXPECT_THAT(xml, HasSubstr("<collector><name>c1</name><port>7</port><ip>192.0.2.1</ip></collector>"));
    EXPECT_EQ(xml.find("<oam"), xml.rfind("<oam"));
}

TEST(ConfigLines, OfWhatIsSaidTwiceTheLaterHolds)
{
    EXPECT_THAT(EditOf("set oam sflow collector c1 port 7\nset oam sflow collector c1 port 8"),
                AllOf(HasSubstr("<port>8</port>"), Not(HasSubstr("<port>7"))));
    // An entry that was there loses what it had.
    EXPECT_THAT(EditOf("delete oam sflow collector c1\nset oam sflow collector c1 port 8"),
                HasSubstr("nc:operation=\"replace\"><name>c1</name><port>8</port></collector>"));
    // What was set only here is not there to be deleted.
    EXPECT_THAT(EditOf("set oam sflow collector c1 port 8\ndelete oam sflow collector c1"),
                HasSubstr("nc:operation=\"remove\"><name>c1</name></collector>"));
    EXPECT_THAT(EditOf("delete oam sflow collector c1 port"), HasSubstr("<port xmlns:nc="));
}

TEST(ConfigLines, CountWhatTheySay)
{
    const auto read = cli::ReadConfigLines(
        Yang(), "set oam sflow interface 1/[1-3] sampling-rate 5 polling-interval 6\ndelete oam sflow agent",
        "f");
    EXPECT_EQ(read.values, 7U);
    EXPECT_TRUE(read.deletes);
}

TEST(ConfigLines, AreRefusedWithTheLine)
{
    const struct {
        const char* text;
        const char* error;
    } rows[] = {
        {"set oam sflow agent ipv4 192.0.2.1\n\nset oam sflow agent ipv4 x",
         "f: line 3: \"x\" is no IPv4 address; write four numbers, as in 192.0.2.1"},
        {"set oam sflow collector c1\ncommit\n", "f: line 2: \"commit\" is neither set nor delete"},
        {"set oam sflow collector \"c1\n", "f: line 1: a double quote is not closed"},
        {"delete oam nothing", "f: line 1: \"nothing\" is unknown after oam"},
        {"oam {\n  sflow {\n    agent {\n      ipv4 x;\n", "f: line 4: \"x\" is no IPv4 address"},
        {"oam {\n  sflow {\n", "a { has no counterpart"},
        {"oam {\n}\n}\n", "f: line 3: a } has no counterpart"},
        {"oam {\n sflow {\n agent {\n ipv4 192.0.2.1 }\n", "f: line 4: a ; is missing behind 192.0.2.1"},
        {"oam sflow agent ipv4 192.0.2.1", "f: line 1: a ; is missing behind 192.0.2.1"},
        {"{}", "a name is missing before {"},
    };
    for (const auto& row : rows) EXPECT_THAT(RefusalOf(row.text), HasSubstr(row.error)) << row.text;
}

TEST(ConfigLines, ThatDeleteAreNoConfiguration)
{
    try {
        cli::ParseConfigText(Yang(), "delete oam sflow agent", "f");
        ADD_FAILURE();
    } catch (const cli::Error& error) {
        EXPECT_THAT(error.what(), StartsWith("f has delete; use load set"));
    }
}

TEST(ConfigLines, MayHaveCommentsInBothForms)
{
    const std::string blocks =
        "# ours; {\noam { # in \"it\n  sflow {\n    collector c#1 { ip 192.0.2.1;# c\n }\n  # }\n  }\n}\n";
    EXPECT_THAT(EditOf(blocks), HasSubstr("<name>c#1</name><ip>192.0.2.1</ip>"));
    EXPECT_THAT(RefusalOf("# one\n# two {\noam { # three\n  nothing; }"),
                StartsWith("f: line 4: \"nothing\" is unknown after oam"));
    EXPECT_THAT(EditOf("\n # ours\nset oam sflow agent ipv4 192.0.2.1"), HasSubstr("<ipv4>192.0.2.1<"));
    EXPECT_THAT(EditOf("set\toam sflow agent ipv4 192.0.2.1"), HasSubstr("<ipv4>192.0.2.1<"));
}

TEST(ConfigLines, ThatSayNothingAreRefused)
{
    // load replace would delete the whole configuration.
    for (const char* text : {"", " \n", "# a comment\n", "oam { }", "oam { sflow { } }\n"})
        EXPECT_EQ(RefusalOf(text), "f has no configuration in it") << text;
}

TEST(ConfigLines, TellWhereTheyDelete)
{
    const auto read = cli::ReadConfigLines(
        Yang(), "set oam sflow agent ipv4 192.0.2.1\n\ndelete oam sflow collector c1 port ip\n", "f");
    EXPECT_EQ(read.deletedAt.at("oam sflow collector c1 port"), 3U);
    EXPECT_EQ(read.deletedAt.at("oam sflow collector c1 ip"), 3U);
    EXPECT_FALSE(read.deletedAt.contains("oam sflow agent ipv4"));
}

TEST(ConfigLines, OfManyBracesEndInAnError)
{
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += "oam {";
    EXPECT_THAT(RefusalOf(text), HasSubstr("a { has no counterpart"));
}

}  // namespace
