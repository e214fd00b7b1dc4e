// SPDX-License-Identifier: Apache-2.0
// The XML around the data: escaping, bounds, and what is never accepted.

#include "netconf/xml.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Nested(std::size_t depth)
{
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += "<a>";
    for (std::size_t i = 0; i < depth; ++i) text += "</a>";
    return text;
}

TEST(Xml, EscapesWhatHasAMeaning)
{
    EXPECT_EQ(netconf::Escaped("a<b>&\"c\"'\r\n"), "a&lt;b&gt;&amp;&quot;c&quot;'&#xD;\n");
    EXPECT_EQ(netconf::Escaped("]]>]]>"), "]]&gt;]]&gt;");
    EXPECT_EQ(netconf::Escaped(""), "");
}

TEST(Xml, AcceptsWhatIsWellFormed) { EXPECT_EQ(netconf::CheckXml("<a b='1'>&lt;<c/></a>"), std::nullopt); }

TEST(Xml, NamesLineAndColumn)
{
    EXPECT_EQ(netconf::CheckXml("<a>\n  <b></a>"), "line 2, column 8: mismatched tag");
}

TEST(Xml, RefusesADocumentType)
{
    const auto problem = netconf::CheckXml("<!DOCTYPE a [<!ENTITY x 'y'>]><a>&x;</a>");
    ASSERT_TRUE(problem);
    EXPECT_NE(problem->find("a document type declaration is not allowed"), std::string::npos) << *problem;
}

TEST(Xml, RefusesWhatIsNestedTooDeep)
{
    EXPECT_EQ(netconf::CheckXml(Nested(netconf::kMaxDepth)), std::nullopt);
    EXPECT_EQ(netconf::CheckXml(Nested(netconf::kMaxDepth + 1)),
              "line 1, column 388: more than 128 elements stand inside each other");
    EXPECT_TRUE(netconf::CheckXml(Nested(1'000'000)));
}

/// Writes down what it is told.
class Recorder : public netconf::XmlVisitor {
public:
    explicit Recorder(std::size_t stopAtDepth = 99) : m_stop(stopAtDepth) {}
    bool OnStart(const netconf::XmlElement& element) override
    {
        text += "<" + std::string(element.ns) + "|" + std::string(element.name) + " " +
                std::to_string(element.begin) + "-" + std::to_string(element.end) + ">";
        if (const auto id = element.Attribute("id")) text += "id=" + std::string(*id) + ";";
        return element.depth < m_stop;
    }
    bool OnEnd(std::size_t depth, std::size_t begin) override
    {
        text += "</" + std::to_string(depth) + " " + std::to_string(begin) + ">";
        return true;
    }
    bool OnText(std::size_t /*depth*/, std::string_view piece) override
    {
        text += piece;
        return true;
    }
    std::string text;

private:
    std::size_t m_stop;
};

struct Bound {
    const char* name;
    std::string inside;  // what no longer goes
    std::string outside;
    const char* reason;
};

TEST(Xml, HasABoundOfEverythingThatCanGrow)
{
    netconf::XmlLimits limits;
    limits.elements = 3;
    limits.attributes = 2;
    limits.nameLength = 10;
    limits.valueLength = 4;
    const Bound bounds[] = {
        {"elements", "<a><b/><b/></a>", "<a><b/><b/><b/></a>", "there are more than 3 elements"},
        {"attributes", "<a b='1' xmlns:p='u'/>", "<a b='1' c='2' xmlns:p='u'/>", "more than 2 attributes"},
        {"declarations", "<a xmlns='u' xmlns:p='u'/>", "<a xmlns='u' xmlns:p='u' xmlns:q='v'/>",
         "more than 2 attributes"},
        {"name", "<aaaaaaaaaa/>", "<aaaaaaaaaaa/>", "a name is longer than 10 bytes"},
        {"namespace", "<a xmlns='12345678'/>", "<a xmlns='123456789'/>", "a name is longer than 10 bytes"},
        {"attribute's name", "<a aaaaaaaaaa=''/>", "<a aaaaaaaaaaa=''/>", "a name is longer than 10 bytes"},
        {"value", "<a b='1234'/>", "<a b='12345'/>", "an attribute is longer than 4 bytes"},
    };
    for (const Bound& bound : bounds) {
        Recorder recorder;
        EXPECT_FALSE(netconf::ReadXmlWithin(bound.inside, recorder, limits)) << bound.name;
        const auto problem = netconf::ReadXmlWithin(bound.outside, recorder, limits);
        ASSERT_TRUE(problem) << bound.name;
        EXPECT_EQ(problem->kind, netconf::XmlProblem::Kind::kTooBig) << bound.name;
        EXPECT_NE(problem->reason.find(bound.reason), std::string::npos) << problem->reason;
    }
}

TEST(Xml, TellsAttributesByTheirNamespace)
{
    class Attributes final : public netconf::XmlVisitor {
    public:
        bool OnStart(const netconf::XmlElement& element) override
        {
            for (const netconf::XmlAttribute& each : element.attributes)
                text += std::string(each.ns) + "|" + std::string(each.name) + "|" + std::string(each.prefix) +
                        "|" + std::string(each.value) + ";";
            text += element.Attribute("a").value_or("none");
            return true;
        }
        bool OnEnd(std::size_t /*depth*/, std::size_t /*begin*/) override { return true; }
        bool OnText(std::size_t /*depth*/, std::string_view /*text*/) override { return true; }
        std::string text;
    } attributes;
    EXPECT_EQ(netconf::ReadXml("<x xmlns='u' xmlns:p='v' a='1' p:a='2' xml:lang='en'/>", attributes),
              std::nullopt);
    EXPECT_EQ(attributes.text, "|a||1;v|a|p|2;http://www.w3.org/XML/1998/namespace|lang|xml|en;1");
}

TEST(Xml, RefusesOneAttributeUnderTwoPrefixes)
{
    const auto problem = netconf::CheckXml("<a xmlns:p='u' xmlns:q='u' p:b='1' q:b='1'/>");
    ASSERT_TRUE(problem);
    EXPECT_NE(problem->find("duplicate attribute"), std::string::npos) << *problem;
}

TEST(Xml, RefusesBytesThatAreNoText)
{
    EXPECT_TRUE(netconf::CheckXml("<a>\xff\xfe</a>"));
    EXPECT_TRUE(netconf::CheckXml(std::string("<a>\0</a>", 8)));
}

TEST(Xml, TellsWhereElementsStand)
{
    Recorder recorder;
    EXPECT_EQ(netconf::ReadXml("<a xmlns='u'><b id='7'/>x<c></c></a>", recorder), std::nullopt);
    EXPECT_EQ(recorder.text, "<u|a 0-13><u|b 13-24>id=7;</2 24>x<u|c 25-28></2 28></1 32>");
}

TEST(Xml, StopsWhereTheVisitorHasSeenEnough)
{
    Recorder recorder(2);
    EXPECT_EQ(netconf::ReadXml("<a><b><c></a>", recorder), std::nullopt);
    EXPECT_EQ(recorder.text, "<|a 0-3><|b 3-6>");
}

}  // namespace
