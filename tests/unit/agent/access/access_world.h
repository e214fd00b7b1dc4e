// SPDX-License-Identifier: Apache-2.0
// Users, rules and nodes for tests of access control.

#ifndef AGENT_TESTS_ACCESS_WORLD_H
#define AGENT_TESTS_ACCESS_WORLD_H

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "agent/access/access.h"
#include "agent/agent_world.h"

namespace agent_tests {

using agent::Access;
using agent::AccessGrant;
using agent::AccessUser;
using agent::Visibility;

inline const AccessUser kAnn{"ann", 60'001, {"users", "noc"}};
inline const AccessUser kBob{"bob", 60'002, {"users"}};
inline const AccessUser kLoner{"loner", 60'003, {}};
inline const AccessUser kRoot{"root", 0, {"root"}};

inline const lysc_node* Node(const std::string& path)
{
    const lysc_node* node = lys_find_path(Schema().Context(), nullptr, path.c_str(), 0);
    EXPECT_NE(node, nullptr) << path;
    return node;
}

inline const std::string kConfig = "/switch-config:config";
inline const std::string kSflow = kConfig + "/switch-oam-sflow:oam/switch-oam-sflow:sflow";
inline const std::string kInterface = kSflow + "/switch-oam-sflow:interface";

/// In <nacm>, where the prefixes c and s are declared.
inline std::string Nacm(const std::string& content)
{
    return "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\" "
           "xmlns:c=\"urn:switch:yang:switch-config\" "
           "xmlns:s=\"urn:switch:yang:switch-oam-sflow\">" +
           content + "</nacm>";
}

inline std::string List(const std::string& rules, const std::string& group = "*")
{
    return "<rule-list><name>list-" + std::to_string(std::hash<std::string>{}(rules)) + "</name><group>" +
           group + "</group>" + rules + "</rule-list>";
}

inline std::string Rule(const std::string& what, const std::string& action,
                        const std::string& operations = "*")
{
    return "<rule><name>" + std::to_string(std::hash<std::string>{}(what + action + operations)) + "</name>" +
           what + "<access-operations>" + operations + "</access-operations><action>" + action +
           "</action></rule>";
}

inline std::string Path(const std::string& path) { return "<path>" + path + "</path>"; }

inline const std::string kInterfacePath = "/c:config/s:oam/s:sflow/s:interface";

class AccessTest : public testing::Test {
protected:
    std::filesystem::path Write(const std::string& text, const std::string& name = "access.xml")
    {
        const auto file = m_directory.Path() / name;
        std::ofstream(file) << text;
        return file;
    }

    std::unique_ptr<Access> Rules(const std::string& text, const std::string& name = "access.xml")
    {
        return std::make_unique<Access>(Schema().Context(),
                                        Access::Options{Write(text, name), AGENT_TEST_YANG, ""});
    }

    std::string Problem(const std::string& text, const std::string& name = "access.xml")
    {
        try {
            Rules(text, name);
        } catch (const cdb::FatalError& error) {
            return error.what();
        }
        return {};
    }

    Directory m_directory;
};

}  // namespace agent_tests

#endif
