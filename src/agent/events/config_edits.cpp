// SPDX-License-Identifier: Apache-2.0
#include "agent/events/config_edits.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string>
#include <utility>

namespace agent {
namespace {

using cdb::ChangeNode;
using cdb::ChangeOp;

const char* OperationOf(ChangeOp op)
{
    if (op == ChangeOp::kCreated) return "create";
    return op == ChangeOp::kDeleted ? "delete" : "replace";
}

/// A value as an XPath literal. One with both kinds of quotes has none; no key of the modules can have any.
std::string Literal(const std::string& value)
{
    const char quote = value.find('\'') == std::string::npos ? '\'' : '"';
    return quote + value + quote;
}

class EditLister {
public:
    EditLister(const cdb::Schema& schema, std::size_t most, std::string_view ns)
        : m_schema(schema), m_most(most), m_ns(ns)
    {
    }

    void Visit(const ChangeNode& node)
    {
        m_way.push_back(&node);
        if (node.op == ChangeOp::kNone || node.op == ChangeOp::kModified)
            for (const ChangeNode& child : node.children) Visit(child);
        else if (m_edits.listed.size() < m_most)
            m_edits.listed.push_back(Edit(node.op));
        else
            ++m_edits.leftOut;
        m_way.pop_back();
    }

    ConfigEdits Take() { return std::move(m_edits); }

private:
    EventElement Edit(ChangeOp op)
    {
        EventElement target{m_ns, "target"};
        const auto place = std::make_shared<ConfigPlace>();
        for (const ChangeNode* node : m_way) {
            const lysc_node* schema = m_schema.NodeOf(node->node);
            target.text += '/';
            AppendName(schema, target);
            std::size_t at = 0;
            for (const lysc_node* key = lysc_node_child(schema); key != nullptr && at < node->keys.size();
                 key = key->next) {
                if (!lysc_is_key(key)) continue;
                target.text += '[';
                AppendName(key, target);
                target.text += '=' + Literal(node->keys[at++]) + ']';
            }
            place->node = schema;
            place->keys.insert(place->keys.end(), node->keys.begin(), node->keys.end());
        }
        EventElement edit{m_ns, "edit"};
        edit.about = place;
        edit.children.push_back(std::move(target));
        edit.children.push_back({m_ns, "operation", OperationOf(op)});
        return edit;
    }

    static void AppendName(const lysc_node* node, EventElement& target)
    {
        const char* prefix = node->module->name;  // no two modules share it
        const auto same = [prefix](const auto& declared) { return declared.first == prefix; };
        if (std::none_of(target.prefixes.begin(), target.prefixes.end(), same))
            target.prefixes.emplace_back(prefix, node->module->ns);
        target.text.append(prefix).append(":").append(node->name);
    }

    const cdb::Schema& m_schema;
    std::size_t m_most;
    std::string_view m_ns;
    std::vector<const ChangeNode*> m_way;
    ConfigEdits m_edits;
};

}  // namespace

ConfigEdits EditsOf(const cdb::Schema& schema, const cdb::ChangeSet& changes, std::size_t most,
                    std::string_view ns)
{
    EditLister lister(schema, most, ns);
    if (!changes.Empty()) lister.Visit(changes.root);
    return lister.Take();
}

}  // namespace agent
