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

TEST(Xml, RefusesBytesThatAreNoText)
{
    EXPECT_TRUE(netconf::CheckXml("<a>\xff\xfe</a>"));
    EXPECT_TRUE(netconf::CheckXml(std::string("<a>\0</a>", 8)));
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
