// SPDX-License-Identifier: Apache-2.0
// The mapping of typed errors to <rpc-error>s.

#include "agent/data/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"

namespace {

using cdb::ErrorTag;

struct TagCase {
    ErrorTag tag;
    const char* name;
    const char* type;
};

class TagTest : public testing::TestWithParam<TagCase> {};

TEST_P(TagTest, HasTheStandardsName)
{
    cdb::Error error;
    error.tag = GetParam().tag;
    const auto mapped = agent::ToRpcError(error, agent_tests::Schema().Context());
    EXPECT_EQ(mapped.tag, GetParam().name);
    EXPECT_EQ(mapped.type, GetParam().type);
    EXPECT_EQ(mapped.severity, "error");
}

INSTANTIATE_TEST_SUITE_P(
    Table, TagTest,
    testing::Values(TagCase{ErrorTag::kInUse, "in-use", "protocol"},
                    TagCase{ErrorTag::kInvalidValue, "invalid-value", "application"},
                    TagCase{ErrorTag::kTooBig, "too-big", "application"},
                    TagCase{ErrorTag::kMissingAttribute, "missing-attribute", "application"},
                    TagCase{ErrorTag::kBadAttribute, "bad-attribute", "application"},
                    TagCase{ErrorTag::kUnknownAttribute, "unknown-attribute", "application"},
                    TagCase{ErrorTag::kMissingElement, "missing-element", "application"},
                    TagCase{ErrorTag::kBadElement, "bad-element", "application"},
                    TagCase{ErrorTag::kUnknownElement, "unknown-element", "application"},
                    TagCase{ErrorTag::kUnknownNamespace, "unknown-namespace", "application"},
                    TagCase{ErrorTag::kAccessDenied, "access-denied", "application"},
                    TagCase{ErrorTag::kLockDenied, "lock-denied", "protocol"},
                    TagCase{ErrorTag::kResourceDenied, "resource-denied", "application"},
                    TagCase{ErrorTag::kDataExists, "data-exists", "application"},
                    TagCase{ErrorTag::kDataMissing, "data-missing", "application"},
                    TagCase{ErrorTag::kOperationNotSupported, "operation-not-supported", "application"},
                    TagCase{ErrorTag::kOperationFailed, "operation-failed", "application"},
                    TagCase{ErrorTag::kMalformedMessage, "malformed-message", "rpc"}),
    [](const auto& each) {
        std::string name = each.param.name;
        for (char& c : name)
            if (c == '-') c = '_';
        return name;
    });

TEST(Errors, CarryPathInfoAndAppTag)
{
    cdb::Error error;
    error.tag = ErrorTag::kDataMissing;
    error.message = "no such thing";
    error.appTag = "instance-required";
    error.path = "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='a:b/c:d']/x";
    error.info = {{"bad-element", "x"}};
    const auto mapped = agent::ToRpcError(error, agent_tests::Schema().Context());
    EXPECT_EQ(mapped.message, error.message);
    EXPECT_EQ(mapped.appTag, error.appTag);
    EXPECT_EQ(mapped.path,
              "/switch-config:config/switch-oam-sflow:oam/switch-oam-sflow:sflow/"
              "switch-oam-sflow:interface[switch-oam-sflow:name='a:b/c:d']/switch-oam-sflow:x");
    EXPECT_EQ(mapped.info, error.info);
    EXPECT_THAT(mapped.prefixes,
                testing::ElementsAre(testing::Pair("switch-config", "urn:switch:yang:switch-config"),
                                     testing::Pair("switch-oam-sflow", "urn:switch:yang:switch-oam-sflow")));
}

TEST(Errors, DeclareTheirPrefixesInXml)
{
    netconf::RpcError error;
    error.tag = "data-missing";
    error.path = "/m:x";
    error.prefixes = {{"m", "urn:m"}};
    std::string xml;
    AppendXml(error, xml);
    EXPECT_EQ(
        xml,
        "<rpc-error><error-type>application</error-type><error-tag>data-missing</error-tag>"
        "<error-severity>error</error-severity><error-path xmlns:m=\"urn:m\">/m:x</error-path></rpc-error>");
}

TEST(Errors, WarnWithoutRefusing) { EXPECT_TRUE(agent::MakeWarning("late").IsWarning()); }

}  // namespace
