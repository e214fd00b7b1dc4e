// SPDX-License-Identifier: Apache-2.0
// Random edits, most of them nearly right: what the pass over a message lets through, libyang reads
// without meeting anything that it does not know.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <random>
#include <string>
#include <variant>

#include "agent/agent_world.h"
#include "agent/netconf/rpc.h"
#include "fuzz/opaque_nodes.h"

namespace agent_tests {
namespace {

class RandomEdit {
public:
    explicit RandomEdit(unsigned seed) : m_random(seed) {}

    std::string Message()
    {
        return "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
               "xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"1\"><edit-config>"
               "<target><candidate/></target><config>" +
               Below(Index().Data(), 0) + "</config></edit-config></rpc>";
    }

private:
    bool Chance(int percent) { return std::uniform_int_distribution(1, 100)(m_random) <= percent; }
    std::size_t Below(std::size_t count)
    {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(m_random);
    }

    std::string Below(const guard::Node& parent, int depth)
    {
        std::string text;
        for (const guard::Node* child : parent.inOrder) {
            if (child->isState && !Chance(1)) continue;
            if (Chance(child->isKey ? 98 : 50)) text += Element(*child, depth);
            while (Chance(child->Repeats() ? 40 : 1)) text += Element(*child, depth);
        }
        if (Chance(1)) text += "text";
        if (Chance(1)) text += "<x xmlns=\"" + std::string(kSpaces[Below(kSpaces.size())]) + "\"/>";
        if (Chance(5)) text += "<!-- comment -->";
        return text;
    }

    std::string Element(const guard::Node& node, int depth)
    {
        const std::string name(Chance(1) ? "name" : node.name);
        const std::string ns(Chance(1) ? kSpaces[Below(kSpaces.size())] : node.ns);
        std::string text = "<" + name + " xmlns=\"" + ns + "\"";
        if (Chance(5))
            text += " nc:operation=\"" + std::string(kOperations[Below(kOperations.size())]) + "\"";
        if (Chance(2)) text += " xml:lang='en'";
        if (Chance(1)) text += " operation='delete'";
        const bool isLeaf = node.kind == guard::NodeKind::kLeaf || node.kind == guard::NodeKind::kLeafList;
        const std::string inner = isLeaf      ? std::string(kValues[Below(kValues.size())])
                                  : depth < 9 ? Below(node, depth + 1)
                                              : "";
        return text + ">" + inner + "</" + name + ">";
    }

    static constexpr std::array<std::string_view, 5> kSpaces{"", "urn:x", "urn:switch:yang:switch-config",
                                                             "urn:switch:yang:switch-oam-sflow",
                                                             "urn:ietf:params:xml:ns:netconf:base:1.0"};
    static constexpr std::array<std::string_view, 6> kOperations{"merge",  "replace", "create",
                                                                 "delete", "remove",  "melt"};
    static constexpr std::array<std::string_view, 8> kValues{"c1", "192.0.2.1",        "512",    "",
                                                             "%",  "<![CDATA[eth1]]>", "&#x31;", "true"};
    std::mt19937 m_random;
};

TEST(GuardProperty, WhatIsLetThroughIsKnown)
{
    int read = 0;
    int refused = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const std::string message = RandomEdit(seed).Message();
        const auto result = agent::ReadRpc(Index(), message, true);
        if (const auto* bad = std::get_if<agent::BadRpc>(&result)) {
            ++refused;
            EXPECT_NE(bad->error.tag, "malformed-message") << message;
            // libyang refuses nothing: the errors of its refusals say "can't be read".
            EXPECT_EQ(bad->error.message.find("can't be read"), std::string::npos)
                << bad->error.message << "\n"
                << message;
            continue;
        }
        ++read;
        const auto& rpc = std::get<agent::Rpc>(result);
        EXPECT_EQ(fuzz::UnknownOpaque(rpc.operation.get(), nullptr, Schema().Context()), "") << message;
    }
    EXPECT_GT(read, 300);
    EXPECT_GT(refused, 300);
}

}  // namespace
}  // namespace agent_tests
