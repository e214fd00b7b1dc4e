// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <cstddef>

#include "cli/config_text.h"
#include "cli/data.h"
#include "cli/statement.h"

namespace cli {
namespace {

constexpr std::size_t kIndent = 4;

void AppendBlock(const lyd_node* node, std::size_t depth, std::string& out);

void AppendChildren(const lyd_node* parent, std::size_t depth, std::string& out)
{
    for (const lyd_node* child = lyd_child_no_keys(parent); child; child = child->next)
        AppendBlock(child, depth, out);
}

void AppendBlock(const lyd_node* node, std::size_t depth, std::string& out)
{
    if (!Counts(node)) return;
    out.append(depth * kIndent, ' ');
    AppendHead(node, out);
    if (IsLeafNode(node)) {
        AppendValue(node, out);
        out += ";\n";
        return;
    }
    const std::size_t withoutBlock = out.size();
    out += " {\n";
    const std::size_t begin = out.size();
    AppendChildren(node, depth + 1, out);
    if (out.size() == begin) {
        out.resize(withoutBlock);
        out += ";\n";
        return;
    }
    out.append(depth * kIndent, ' ');
    out += "}\n";
}

}  // namespace

std::string ToBlocks(const lyd_node* tree)
{
    std::vector<const lyd_node*> nodes;
    for (const lyd_node* node = tree; node; node = node->next) nodes.push_back(node);
    return ToBlocks(nodes);
}

std::string ToBlocks(const std::vector<const lyd_node*>& nodes)
{
    std::string out;
    for (const lyd_node* node : nodes) {
        if (IsRoot(node))
            AppendChildren(node, 0, out);
        else
            AppendBlock(node, 0, out);
    }
    return out;
}

}  // namespace cli
