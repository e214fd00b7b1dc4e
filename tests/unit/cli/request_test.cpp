// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/request.h"

#include <gtest/gtest.h>

#include "netconf/rpc_error.h"

namespace {

TEST(PathAsWords, ReadsInstancePaths)
{
    const struct {
        const char* path;
        const char* words;
    } rows[] = {
        {"/c:config/s:oam/s:sflow/s:interface[s:name='eth1']/s:sampling-rate",
         "oam sflow interface eth1 sampling-rate"},
        {"/switch-config:config/switch-oam-sflow:oam/sflow/collector[name=\"c 1\"]",
         "oam sflow collector \"c 1\""},
        {"/a:interface[a:name='gigabit-ethernet-1/1/1']", "interface gigabit-ethernet-1/1/1"},
        {"/a:list[a:x='1'][a:y='2']/a:config", "list 1 2 config"},
        {"/switch-config:config", "/switch-config:config"},
        {"/a:list[2]", "/a:list[2]"},
        {"/a:list[a:x='1'", "/a:list[a:x='1'"},
        {"rpc", "rpc"},
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(cli::PathAsWords(row.path), row.words) << row.path;
}

TEST(ToText, AddsThePathThatTheMessageDoesNotName)
{
    netconf::RpcError error;
    error.tag = "data-missing";
    EXPECT_EQ(cli::ToText(error), "data-missing");
    error.message = "the entry is not there";
    EXPECT_EQ(cli::ToText(error), "the entry is not there");
    error.path = "/c:config/s:oam";
    EXPECT_EQ(cli::ToText(error), "oam: the entry is not there");
    error.message = "/c:config/s:oam is not there";
    EXPECT_EQ(cli::ToText(error), "/c:config/s:oam is not there");
}

}  // namespace
