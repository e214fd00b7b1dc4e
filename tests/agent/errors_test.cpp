// SPDX-License-Identifier: Apache-2.0
// The mapping of typed errors to <rpc-error>s.

#include "agent/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"

namespace {

using cdb::ErrorTag;

struct Case {
    ErrorTag tag;
    const char* name;
    const char* type;
};

class TagTest : public testing::TestWithParam<Case> {};

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
    testing::Values(Case{ErrorTag::kInUse, "in-use", "protocol"},
                    Case{ErrorTag::kInvalidValue, "invalid-value", "application"},
                    Case{ErrorTag::kTooBig, "too-big", "application"},
                    Case{ErrorTag::kMissingAttribute, "missing-attribute", "application"},
                    Case{ErrorTag::kBadAttribute, "bad-attribute", "application"},
                    Case{ErrorTag::kUnknownAttribute, "unknown-attribute", "application"},
                    Case{ErrorTag::kMissingElement, "missing-element", "application"},
                    Case{ErrorTag::kBadElement, "bad-element", "application"},
                    Case{ErrorTag::kUnknownElement, "unknown-element", "application"},
                    Case{ErrorTag::kUnknownNamespace, "unknown-namespace", "application"},
                    Case{ErrorTag::kAccessDenied, "access-denied", "application"},
                    Case{ErrorTag::kLockDenied, "lock-denied", "protocol"},
                    Case{ErrorTag::kResourceDenied, "resource-denied", "application"},
                    Case{ErrorTag::kDataExists, "data-exists", "application"},
                    Case{ErrorTag::kDataMissing, "data-missing", "application"},
                    Case{ErrorTag::kOperationNotSupported, "operation-not-supported", "application"},
                    Case{ErrorTag::kOperationFailed, "operation-failed", "application"},
                    Case{ErrorTag::kMalformedMessage, "malformed-message", "rpc"}),
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
