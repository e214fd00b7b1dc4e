// SPDX-License-Identifier: Apache-2.0
// Documents without comments, instructions and sections: the same content at the same lines.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "netconf/xml.h"

namespace {

using netconf::PlainXml;

TEST(PlainXml, LeavesOthersAlone)
{
    for (const char* text : {"", "<a/>", "<a b='>'>&lt;!--x--&gt;</a>", "no <xml"})
        EXPECT_EQ(PlainXml(text), text);
}

TEST(PlainXml, TakesOutCommentsAndInstructions)
{
    EXPECT_EQ(PlainXml("<?xml version='1.0'?><a><!---->1<!-- <b>2</b> -->3<?go on?>4<!--c--></a>"),
              "<a>134</a>");
    EXPECT_EQ(PlainXml("<a b='/>'><!--c--><d/></a><!--e-->"), "<a b='/>'><d/></a>");
}

TEST(PlainXml, WritesSectionsAsText)
{
    EXPECT_EQ(PlainXml("<a><![CDATA[c]]>1<![CDATA[]]></a>"), "<a>c1</a>");
    EXPECT_EQ(PlainXml("<a><![CDATA[<b>&amp;]]]]><![CDATA[>]]></a>"), "<a>&lt;b&gt;&amp;amp;]]&gt;</a>");
    EXPECT_EQ(PlainXml("<a><![CDATA[<!-- no comment -->]]></a>"), "<a>&lt;!-- no comment --&gt;</a>");
    EXPECT_EQ(PlainXml("<a><!-- <![CDATA[no section]]> --></a>"), "<a></a>");
}

TEST(PlainXml, KeepsTheLines)
{
    EXPECT_EQ(PlainXml("<a>1<!--\n\n-->2</a>\n<b/>"), "<a>12</a\n\n>\n<b/>");
    EXPECT_EQ(PlainXml("<!--\n--><a/>"), "<a\n/>");
    EXPECT_EQ(PlainXml("<!--\n--><a b='c'/>"), "<a\n b='c'/>");
}

/// Elements, attributes and texts, as a reader finds them.
class Content final : public netconf::XmlVisitor {
public:
    explicit Content(const std::string& text)
    {
        EXPECT_EQ(netconf::ReadXml(text, *this), std::nullopt) << text;
    }

    bool OnStart(const netconf::XmlElement& element) override
    {
        m_all.append("<").append(element.name);
        for (const auto& each : element.attributes)
            m_all.append(" ").append(each.name).append("=").append(each.value);
        m_all += ">";
        return true;
    }
    bool OnEnd(std::size_t /*depth*/, std::size_t /*begin*/) override
    {
        m_all += "</>";
        return true;
    }
    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        m_all += text;
        return true;
    }

    std::string m_all;
};

TEST(PlainXml, KeepsTheContentAndTakesAnythingElseWithoutHarm)
{
    const std::string text =
        "<?xml version='1.0'?>\n<!-- a\n --><a b=\"'>\" c='d'>\n<![CDATA[ <x> & ]]>\n<?p\n?><e/>f</a >\n";
    EXPECT_EQ(Content(PlainXml(text)).m_all, Content(text).m_all);
    for (std::size_t length = 0; length <= text.size(); ++length)
        EXPECT_EQ(PlainXml(text.substr(0, length)).find("<!--"), std::string::npos) << length;
}

}  // namespace
