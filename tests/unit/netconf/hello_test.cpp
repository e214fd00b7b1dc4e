// SPDX-License-Identifier: Apache-2.0
// The hello: what is read of the other side's, and which framing follows.

#include "netconf/hello.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "netconf/names.h"

namespace {

using netconf::Framing;
using netconf::Hello;

std::string Problem(const std::string& xml)
{
    const auto parsed = netconf::ParseHello(xml);
    return parsed ? "" : parsed.error();
}

std::string InHello(const std::string& content)
{
    return "<hello xmlns=\"" + std::string(netconf::kBaseNamespace) + "\">" + content + "</hello>";
}

TEST(Hello, ReadsWhatItWrites)
{
    const Hello hello{{"urn:a", "urn:b?x=1&y=<2>"}, 17};
    EXPECT_EQ(netconf::ParseHello(netconf::ToXml(hello)).value(), hello);
}

TEST(Hello, TakesPrefixesAndBlanks)
{
    const auto parsed = netconf::ParseHello(
        "<?xml version=\"1.0\"?>\n<nc:hello xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\">\n"
        " <nc:capabilities>\n  <nc:capability>\n urn:a \n</nc:capability>\n "
        "</nc:capabilities>\n</nc:hello>\n");
    EXPECT_EQ(parsed.value(), (Hello{{"urn:a"}, 0}));
}

TEST(Hello, PassesOverWhatItDoesNotKnow)
{
    const auto parsed =
        netconf::ParseHello(InHello("<x xmlns=\"urn:x\"><capability>urn:n</capability></x>"
                                    "<capabilities><capability>urn:a</capability><y/></capabilities>"));
    EXPECT_EQ(parsed.value(), (Hello{{"urn:a"}, 0}));
}

TEST(Hello, SaysWhatIsWrong)
{
    const std::string noHello = "the first message is no <hello> of the NETCONF base namespace";
    const std::string badId = "the <session-id> of the <hello> is no number from 1 to 4294967295";
    EXPECT_EQ(Problem("<hello/>"), noHello);
    EXPECT_EQ(Problem(InHello("<session-id>0</session-id>")), badId);
    EXPECT_EQ(Problem(InHello("<session-id>x</session-id>")), badId);
    EXPECT_EQ(Problem(InHello("<session-id>4294967296</session-id>")), badId);
    EXPECT_EQ(Problem("<hello"), "the <hello> can't be read: line 1, column 1: unclosed token");
    EXPECT_EQ(Problem(""), "the <hello> can't be read: line 1, column 1: no element found");
}

TEST(Hello, ChoosesTheNewestCommonFraming)
{
    const std::string base10(netconf::kBase10);
    const std::string base11(netconf::kBase11);
    const Hello both{{base10, base11}, 0};
    EXPECT_EQ(netconf::CommonFraming(both, both), Framing::kChunked);
    EXPECT_EQ(netconf::CommonFraming(both, {{base11}, 0}), Framing::kChunked);
    EXPECT_EQ(netconf::CommonFraming(both, {{base10}, 0}), Framing::kEndOfMessage);
    EXPECT_EQ(netconf::CommonFraming({{base10}, 0}, {{base11}, 0}), std::nullopt);
    EXPECT_EQ(netconf::CommonFraming(both, {}), std::nullopt);
}

}  // namespace
