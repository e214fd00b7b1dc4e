// SPDX-License-Identifier: Apache-2.0
#include "cli/data/schema_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/data/data_tree.h"
#include "cli/data/edit_xml.h"
#include "cli/data/error.h"
#include "cli/data/words.h"
#include "cli/yang.h"

namespace {

using cli_test::Yang;
using testing::HasSubstr;
using PlaceOf = std::vector<cli::Place> (*)(const ly_ctx*, std::span<const std::string>);

constexpr const char* kConfig = "<config xmlns=\"urn:switch:yang:switch-config\">";
constexpr const char* kOam = "<oam xmlns=\"urn:switch:yang:switch-oam-sflow\">";
constexpr const char* kInterfaces = "<interface xmlns=\"urn:switch:yang:switch-interfaces\">";
constexpr const char* kDelete =
    " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"delete\"";

std::vector<std::string> Words(const std::string& path)
{
    std::vector<std::string> words;
    for (const cli::Word& word : cli::SplitWords(path)) words.push_back(word.text);
    return words;
}

std::string ErrorOf(PlaceOf placeOf, const std::string& path)
{
    try {
        placeOf(Yang(), Words(path));
    } catch (const cli::Error& error) {
        return error.what();
    }
    return "no error";
}

/// Replaces C, O, I and D, each in braces, by the long texts.
std::string Long(std::string text)
{
    const std::pair<std::string, const char*> names[] = {
        {"{C}", kConfig}, {"{O}", kOam}, {"{I}", kInterfaces}, {"{D}", kDelete}};
    for (const auto& [name, value] : names)
        for (std::size_t at = 0; (at = text.find(name)) != std::string::npos;)
            text.replace(at, name.size(), value);
    return text;
}

TEST(Set, BecomesTheElementsOfItsPath)
{
    const struct {
        const char* name;
        const char* words;
        const char* xml;
    } rows[] = {
        {"leaf of an entry", "oam sflow interface eth1 sampling-rate 512",
         "{C}{O}<sflow><interface><name>eth1</name><sampling-rate>512</sampling-rate></interface></sflow></"
         "oam></config>"},
        {"entry", "oam sflow collector c1",
         "{C}{O}<sflow><collector><name>c1</name></collector></sflow></oam></config>"},
        {"entry in an entry", "oam sflow interface eth1 flow-sampling-collector c1",
         "{C}{O}<sflow><interface><name>eth1</name><flow-sampling-collector><name>c1</name></"
         "flow-sampling-collector>"
         "</interface></sflow></oam></config>"},
        {"leaf of a container", "oam sflow agent ipv4 10.0.0.1",
         "{C}{O}<sflow><agent><ipv4>10.0.0.1</ipv4></agent></sflow></oam></config>"},
        {"another module", "interface mgmt mgmt0 ipv4 address ip 10.0.0.5/24",
         "{C}{I}<mgmt><name>mgmt0</name><ipv4><address><ip>10.0.0.5/24</ip></address></ipv4></mgmt></"
         "interface></config>"},
        {"name with slashes", "oam sflow interface gigabit-ethernet-1/1/1",
         "{C}{O}<sflow><interface><name>gigabit-ethernet-1/1/1</name></interface></sflow></oam></config>"},
        {"name like a node", "oam sflow interface interface sampling-rate 1",
         "{C}{O}<sflow><interface><name>interface</name><sampling-rate>1</sampling-rate></interface></"
         "sflow></oam></config>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(cli::SetXml(cli::PlacesToSet(Yang(), Words(row.words))), Long(row.xml)) << row.name;
}

TEST(Delete, MarksTheLastElementOfItsPath)
{
    const struct {
        const char* name;
        const char* words;
        const char* xml;
    } rows[] = {
        {"leaf", "oam sflow interface eth1 sampling-rate",
         "{C}{O}<sflow><interface><name>eth1</name><sampling-rate{D}></sampling-rate></interface></sflow></"
         "oam></config>"},
        {"entry", "oam sflow interface eth1",
         "{C}{O}<sflow><interface{D}><name>eth1</name></interface></sflow></oam></config>"},
        {"container", "oam sflow", "{C}{O}<sflow{D}></sflow></oam></config>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(cli::DeleteXml(cli::PlacesToDelete(Yang(), Words(row.words))), Long(row.xml)) << row.name;
}

TEST(Show, FiltersByItsPath)
{
    const struct {
        const char* name;
        const char* words;
        const char* xml;
    } rows[] = {
        {"everything", "", ""},
        {"list", "oam sflow interface", "{C}{O}<sflow><interface></interface></sflow></oam></config>"},
        {"entry", "oam sflow interface eth1",
         "{C}{O}<sflow><interface><name>eth1</name></interface></sflow></oam></config>"},
        {"leaf", "oam sflow agent ipv4", "{C}{O}<sflow><agent><ipv4></ipv4></agent></sflow></oam></config>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(cli::FilterXml(cli::PlacesToShow(Yang(), Words(row.words))), Long(row.xml)) << row.name;
}

TEST(Set, RefusesWithTheReasonAndTheRemedy)
{
    const struct {
        const char* name;
        const char* words;
        const char* message;
    } rows[] = {
        {"unknown at the beginning", "config oam", "\"config\" is unknown as a path's beginning; possible: "},
        {"unknown further on", "oam sflow interfaces eth1",
         "\"interfaces\" is unknown after oam sflow; possible: agent, collector, interface"},
        {"unknown in an entry", "oam sflow collector c1 rate 5",
         "\"rate\" is unknown after oam sflow collector c1; possible: enabled, ip, datagram-size, port"},
        {"out of range", "oam sflow interface eth1 sampling-rate 0",
         "\"0\" is out of range; write 1..16777215 packets"},
        {"no number", "oam sflow interface eth1 sampling-rate fast",
         "\"fast\" is no number; write 1..16777215 packets"},
        {"no boolean", "oam sflow collector c1 enabled yes", "\"yes\" is neither true nor false"},
        {"no address", "oam sflow agent ipv4 1.2.3",
         "\"1.2.3\" is no IPv4 address; write four numbers, as in 192.0.2.1"},
        {"not enumerated", "oam sflow-manager direction up", "\"up\" is not among the values; write one of "},
        {"value missing", "oam sflow collector c1 port",
         "oam sflow collector c1 port needs a value: 1..65535"},
        {"two values", "oam sflow collector c1 port 5 6",
         "\"6\" is one word too many after oam sflow collector c1 port; put a value with blanks in double "
         "quotes"},
        {"entry without its key", "oam sflow interface",
         "oam sflow interface has several entries: add the name of one"},
        {"container", "oam sflow agent", "oam sflow agent has no value of its own; possible below it: ipv4"},
        {"key", "oam sflow interface eth1 name eth2",
         "name is the key of oam sflow interface eth1 and does not change"},
        {"bad key", "oam sflow collector a%b",
         "\"a%b\" is not allowed: a collector's name has no percent sign"},
        {"bad key of a reference", "oam sflow interface eth1 flow-sampling-collector a%b",
         "a collector's name has no percent sign"},
        {"bad address with length", "interface mgmt mgmt0 ipv4 address ip 10.0.0.5",
         "an address with its prefix length is written like 192.0.2.1/24"},
        {"too long a name",
         "oam sflow interface 12345678901234567890123456789012345678901234567890123456789012345",
         "a name has 1 to 64 characters"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(ErrorOf(&cli::PlacesToSet, row.words), HasSubstr(row.message)) << row.name;
}

TEST(Set, TakesSeveralLeavesAndRangesInOneEdit)
{
    EXPECT_EQ(cli::SetXml(cli::PlacesToSet(
                  Yang(), Words("oam sflow interface 1/[1-2] sampling-rate 100 polling-interval 30"))),
              Long("{C}{O}<sflow><interface><name>1/1</name><sampling-rate>100</sampling-rate>"
                   "<polling-interval>30</polling-interval></interface><interface><name>1/2</name>"
                   "<sampling-rate>100</sampling-rate><polling-interval>30</polling-interval></interface>"
                   "</sflow></oam></config>"));
    EXPECT_EQ(
        cli::SetXml(cli::PlacesToSet(Yang(), Words("oam sflow interface a[1-2]b[3-4]"))),
        Long("{C}{O}<sflow><interface><name>a1b3</name></interface><interface><name>a1b4</name></interface>"
             "<interface><name>a2b3</name></interface><interface><name>a2b4</name></interface>"
             "</sflow></oam></config>"));
    EXPECT_EQ(
        cli::SetXml(
            cli::PlacesToSet(Yang(), Words("oam sflow interface e[1-2] flow-sampling-collector c[1-2]"))),
        Long("{C}{O}<sflow><interface><name>e1</name><flow-sampling-collector><name>c1</name>"
             "</flow-sampling-collector><flow-sampling-collector><name>c2</name></flow-sampling-collector>"
             "</interface><interface><name>e2</name><flow-sampling-collector><name>c1</name>"
             "</flow-sampling-collector><flow-sampling-collector><name>c2</name></flow-sampling-collector>"
             "</interface></sflow></oam></config>"));
}

TEST(Delete, TakesSeveralLeavesAndRangesInOneEdit)
{
    EXPECT_EQ(cli::DeleteXml(cli::PlacesToDelete(
                  Yang(), Words("oam sflow interface 1/[1-2] sampling-rate polling-interval"))),
              Long("{C}{O}<sflow><interface><name>1/1</name><sampling-rate{D}></sampling-rate>"
                   "<polling-interval{D}></polling-interval></interface><interface><name>1/2</name>"
                   "<sampling-rate{D}></sampling-rate><polling-interval{D}></polling-interval></interface>"
                   "</sflow></oam></config>"));
    EXPECT_EQ(cli::DeleteXml(cli::PlacesToDelete(Yang(), Words("oam sflow collector c[1-2]"))),
              Long("{C}{O}<sflow><collector{D}><name>c1</name></collector><collector{D}><name>c2</name>"
                   "</collector></sflow></oam></config>"));
}

TEST(Set, RefusesARangeThatTheKeysTypeWouldNotTake)
{
    EXPECT_THAT(ErrorOf(&cli::PlacesToSet, "oam sflow interface p[2-1] sampling-rate 5"),
                HasSubstr("2-1 runs backwards"));
    EXPECT_THAT(ErrorOf(&cli::PlacesToSet, "oam sflow interface [1-100]/[1-40]/[1-2] sampling-rate 5"),
                HasSubstr("means more than 4096 names"));
    EXPECT_THAT(ErrorOf(&cli::PlacesToSet, "oam sflow collector c[1-2] port [1-2]"),
                HasSubstr("\"[1-2]\" is no number"));
}

TEST(Delete, RefusesWithTheReasonAndTheRemedy)
{
    const struct {
        const char* name;
        const char* words;
        const char* message;
    } rows[] = {
        {"whole list", "oam sflow interface", "oam sflow interface has several entries: add the name of one"},
        {"value behind a leaf", "oam sflow agent ipv4 10.0.0.1",
         "\"10.0.0.1\" is one word too many after oam sflow agent ipv4"},
        {"unknown", "oam netflow", "\"netflow\" is unknown after oam; possible: sflow"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(ErrorOf(&cli::PlacesToDelete, row.words), HasSubstr(row.message)) << row.name;
}

TEST(Set, TakesAReferenceWhoseTargetMayComeLater)
{
    EXPECT_EQ(ErrorOf(&cli::PlacesToSet, "oam sflow interface eth1 flow-sampling-collector nobody"),
              "no error");
}

TEST(WordsOf, LeaveOutTheRootAndQuoteKeys)
{
    EXPECT_EQ(cli::WordsOf(cli::PlacesToShow(Yang(), Words("oam sflow interface #1")).front()),
              "oam sflow interface \"#1\"");
    EXPECT_EQ(cli::WordsOf(cli::Place{}), "");
}

TEST(ReplaceXml, ReplacesTheRootEvenWithoutIt)
{
    EXPECT_EQ(cli::ReplaceXml(Yang(), nullptr),
              "<config xmlns=\"urn:switch:yang:switch-config\" "
              "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
              "nc:operation=\"replace\"></config>");
}

TEST(ReplaceXml, MarksTheRootOfTheFile)
{
    const cli::Tree tree = cli_test::Sflow(R"("collector":[{"name":"c1","ip":"192.0.2.1"}])");
    EXPECT_EQ(cli::ReplaceXml(Yang(), tree.get()),
              "<config xmlns=\"urn:switch:yang:switch-config\" "
              "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
              "nc:operation=\"replace\"><oam xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow><collector>"
              "<name>c1</name><ip>192.0.2.1</ip></collector></sflow></oam></config>");
}

}  // namespace
