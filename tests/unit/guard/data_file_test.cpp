// SPDX-License-Identifier: Apache-2.0
// Files of configuration: what is refused before libyang reads it, where, and in which words.

#include "guard/data_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <memory>
#include <ostream>
#include <string>

#include "base/text.h"
#include "cdb/schema/schema.h"

namespace {

using testing::HasSubstr;

const guard::SchemaIndex& Index()
{
    static const std::unique_ptr<cdb::Schema> schema = cdb::Schema::Load(GUARD_TEST_YANG);
    static const guard::SchemaIndex index(schema->Context());
    return index;
}

/// "line 1, column 2: what is wrong"; empty for a good file.
std::string ProblemOf(const std::string& text, const guard::Limits& limits = {})
{
    const auto format = guard::FormatOf(text);
    if (!format) return "no format";
    const auto problem = guard::CheckFile(Index(), text, *format, limits);
    return problem ? netconf::PlaceInText(text, problem->offset) + ": " + problem->text : "";
}

std::string Xml(const std::string& content)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\" "
           "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\">"
           "<oam xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow>\n" +
           content + "</sflow></oam></config>";
}

std::string Json(const std::string& content)
{
    return "{\"switch-config:config\":{\"switch-oam-sflow:oam\":{\"sflow\":{\n" + content + "}}}}";
}

std::string Times(std::size_t count, const std::string& text)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i) all += text;
    return all;
}

struct Case {
    const char* name;
    std::string text;
    const char* place;
    const char* reason;
};

void PrintTo(const Case& each, std::ostream* out) { *out << each.name; }

class BadFile : public testing::TestWithParam<Case> {};

TEST_P(BadFile, IsRefusedWithItsPlace)
{
    const std::string problem = ProblemOf(GetParam().text);
    EXPECT_THAT(problem, testing::StartsWith(std::string(GetParam().place) + ": "));
    EXPECT_THAT(problem, HasSubstr(GetParam().reason));
}

std::string Name(const testing::TestParamInfo<Case>& each) { return each.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Xml, BadFile,
    testing::Values(
        Case{"Malformed", "<config>\n <a>\n</config>", "line 3, column 3", "mismatched tag"},
        Case{"MalformedBehindSomethingUnknown", "<x xmlns='urn:x'>\n</y>", "line 2, column 3", "mismatched"},
        Case{"CutOff", "<config xmlns='urn:switch:yang:switch-config'>\n<o", "line 2, column 3",
             "not well-formed"},
        Case{"TwinsWithoutNamespace", "<a xmlns=''/><a xmlns='urn:x'/>", "line 1, column 1", "no namespace"},
        Case{"SecondElementUnknown", Xml("") + "\n<x xmlns='urn:x'/>", "line 3, column 1", "\"urn:x\""},
        Case{"ClosesWhatItDidNotOpen", "<a/></data><data>", "line 1, column 12", "junk"},
        Case{
            "KeyTwice", Xml("<collector><name>c7</name><name>c8</name></collector>"), "line 2, column 27",
            "collector \"c7\" is given twice; give it once (/switch-config:config/switch-oam-sflow:oam/sflow/"
            "collector[name='c7']/name)"},
        Case{"UnqualifiedOperation", Xml("<agent operation='delete'/>"), "line 2, column 1", "nc:operation"},
        Case{"DocumentType", "<!DOCTYPE a><a/>", "line 1, column 3", "not well-formed"},
        Case{"ManyUnknown", Times(2'000, "<a xmlns='urn:x'/>"), "line 1, column 1", "urn:x"},
        Case{"ConfigWithoutNamespace", "<config/>", "line 1, column 1",
             "element \"config\" has no namespace; give it the namespace \"urn:switch:yang:switch-config\""},
        Case{"State", "<state xmlns='urn:switch:yang:switch-state'/>", "line 1, column 1", "is state"}),
    Name);

INSTANTIATE_TEST_SUITE_P(
    Json, BadFile,
    testing::Values(
        Case{"Malformed", "{\n \"a\": ]\n}", "line 2, column 7", "syntax error"},
        Case{"MalformedBehindSomethingUnknown", "{\"a:b\": 1,\n ]}", "line 2, column 2", "syntax error"},
        Case{"Deep", "{\"a\":" + Times(10'000, "[") + Times(10'000, "]") + "}", "line 1, column 4",
             "element \"a\" has no namespace"},
        Case{"DeepInsideOfWhatIsKnown", Json("\"collector\":" + Times(10'000, "[") + Times(10'000, "]")),
             "line 2, column 14", "an array"},
        Case{"MemberTwice", Json("\"agent\":{},\n\"agent\":{}"), "line 3, column 7", "is given twice"},
        Case{"ListTwice", Json("\"collector\":[],\n\"collector\":[]"), "line 3, column 11", "is given twice"},
        Case{"KeyTwice", Json("\"collector\":[{\"name\":\"c7\",\n\"name\":\"c8\"}]"), "line 3, column 6",
             "\"c7\" is given twice"},
        Case{"NoKey", Json("\"collector\":[\n{}]"), "line 3, column 2", "needs its key \"name\""},
        Case{"UnknownMember", Json("\"colour\":1"), "line 2, column 8", "no element \"colour\""},
        Case{"UnknownModule", "{\"other:config\":{}}", "line 1, column 15", "\"other\""},
        Case{"NoModule", "{\"config\":{}}", "line 1, column 9", "no namespace"},
        Case{"LongText", Json("\"agent\":{\"ipv4\":\"" + std::string(70'000, '1') + "\"}"),
             "line 2, column 70018", "longer than 65536 bytes"},
        Case{"ListAsAnObject", Json("\"collector\":{\"name\":\"c1\"}"), "line 2, column 13", "an object"},
        Case{"ContainerAsAValue", Json("\"agent\":1"), "line 2, column 10", "a value"},
        Case{"ContainerAsAnArray", Json("\"agent\":[]"), "line 2, column 9", "an array"},
        Case{"ContainerAsNull", Json("\"agent\":null"), "line 2, column 12", "null"},
        Case{"LeafAsAnObject", Json("\"agent\":{\"ipv4\":{}}"), "line 2, column 17", "an object"},
        Case{"LeafAsNull", Json("\"agent\":{\"ipv4\":null}"), "line 2, column 20", "null"},
        Case{"ValueInAList", Json("\"collector\":[1]"), "line 2, column 15", "a value"},
        Case{"UnknownMetadata", Json("\"agent\":{\"@\":{\"a:b\":1}}"), "line 2, column 19", "\"a:b\""},
        Case{"BadOperation", Json("\"agent\":{\"@\":{\"ietf-netconf:operation\":\"melt\"}}"),
             "line 2, column 45", "no operation \"melt\""},
        Case{"MetadataOfTheDocument", "{\"@\":{\"ietf-netconf:operation\":\"delete\"}}", "line 1, column 4",
             "metadata"},
        Case{"MetadataManyTimes", Json(Times(10'000, "\"@\":{},") + "\"agent\":{}"), "line 2, column 451",
             "metadata more than once"},
        Case{"MetadataOfWhatIsUnknown", Json("\"@colour\":{}"), "line 2, column 9", "\"colour\""},
        Case{"TwoDocuments", "{}\n{}", "line 2, column 1", "end of input"},
        Case{"ZeroByte", std::string("{}\n\0{}", 6), "line 2, column 1", "a zero byte"},
        Case{"State", "{\"switch-state:state\":{}}", "line 1, column 21", "is state"}),
    Name);

TEST(File, IsGood)
{
    const std::string collector = "<collector><name>c1</name><ip>192.0.2.1</ip></collector>";
    EXPECT_EQ(ProblemOf(Xml(collector + collector)), "");
    EXPECT_EQ(ProblemOf("<?xml version=\"1.0\"?>\n" + Xml(collector)), "");
    EXPECT_EQ(ProblemOf(" \n<!-- a -->" + Xml("<agent nc:operation='replace'/>")), "");
    EXPECT_EQ(ProblemOf("{}"), "");
    EXPECT_EQ(ProblemOf("{}\n\n"), "");
    EXPECT_EQ(ProblemOf(Json(R"("collector":[{"name":"c1","ip":"192.0.2.1","port":7,"enabled":false},
        {"ip":"192.0.2.2","name":"c2","@port":{"ietf-netconf:operation":"remove"},"port":1}],
        "agent":{"@":{"ietf-netconf:operation":"replace"}},"interface":[])")),
              "");
}

TEST(File, ErrorsAreCutBetweenCharacters)
{
    for (std::size_t i = 0; i < 3; ++i) {
        const std::string operation = std::string(i, 'x') + Times(400, "\u20AC");
        const std::string problem = ProblemOf(Xml("<agent nc:operation='" + operation + "'/>"));
        EXPECT_THAT(problem, HasSubstr("there is no operation"));
        EXPECT_TRUE(base::IsPresentable(problem)) << problem;
    }
}

TEST(File, HasABoundOfElements)
{
    guard::Limits limits;
    limits.xml.elements = 5;
    EXPECT_EQ(ProblemOf(Xml("<agent/>"), limits), "");
    EXPECT_THAT(ProblemOf(Xml("<agent><ipv4>192.0.2.1</ipv4></agent><collector/>"), limits),
                HasSubstr("more than 6 elements"));
    EXPECT_EQ(ProblemOf(Json("\"agent\":{\"ipv4\":\"192.0.2.1\"}"), limits), "");
    EXPECT_THAT(ProblemOf(Json("\"agent\":{\"ipv4\":\"192.0.2.1\"},\"collector\":[]"), limits),
                HasSubstr("too many elements"));
}

TEST(File, FormatIsToldByTheFirstCharacter)
{
    EXPECT_EQ(guard::FormatOf(" \n{"), guard::Format::kJson);
    EXPECT_EQ(guard::FormatOf("\t<"), guard::Format::kXml);
    EXPECT_EQ(guard::FormatOf("x"), std::nullopt);
    EXPECT_EQ(guard::FormatOf(" "), std::nullopt);
}

}  // namespace
