// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/edit_operation.h"

#include <libyang/libyang.h>

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "cdb/datastore/edit_errors.h"
#include "cdb/datastore/tree.h"

namespace cdb {
namespace {

constexpr std::string_view kNetconfNamespace = "urn:ietf:params:xml:ns:netconf:base:1.0";
constexpr std::string_view kNetconfModule = "ietf-netconf";

const char* AttributeOf(const lyd_node* edit)
{
    if (edit->schema != nullptr) {
        for (const lyd_meta* meta = edit->meta; meta != nullptr; meta = meta->next)
            if (kNetconfModule == meta->annotation->module->name && std::strcmp(meta->name, "operation") == 0)
                return lyd_get_meta_value(meta);
        return nullptr;
    }
    const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(edit);
    for (const lyd_attr* attribute = opaque->attr; attribute != nullptr; attribute = attribute->next) {
        if (std::strcmp(attribute->name.name, "operation") != 0 || attribute->name.module_ns == nullptr)
            continue;
        const bool isXml = attribute->format == LY_VALUE_XML;
        if ((isXml ? kNetconfNamespace : kNetconfModule) == attribute->name.module_ns)
            return attribute->value;
    }
    return nullptr;
}

/// Whether a sibling is the same node. Leaves of one name are adjacent; libyang looks entries up by their
/// keys.
bool HasTwin(const lyd_node* node)
{
    if (node->schema->nodetype != LYS_LIST)
        return node->prev->next != nullptr && node->prev->schema == node->schema;
    lyd_node* match = nullptr;
    return lyd_find_sibling_first(node, node, &match) == LY_SUCCESS && match != node;
}

bool IsPlainBelow(const lyd_node* edit)
{
    for (const lyd_node* child = lyd_child(edit); child != nullptr; child = child->next) {
        if (child->schema == nullptr || child->meta != nullptr || !IsExplicit(child)) return false;
        if ((child->schema->flags & LYS_CONFIG_R) != 0 || HasTwin(child) || !IsPlainBelow(child))
            return false;
    }
    return true;
}

}  // namespace

EditOp InitialOperation(DefaultOperation operation)
{
    if (operation == DefaultOperation::kReplace) return EditOp::kReplace;
    return operation == DefaultOperation::kNone ? EditOp::kNone : EditOp::kMerge;
}

base::expected<EditOp, Error> OperationOf(const lyd_node* edit, EditOp inherited)
{
    static constexpr std::array<std::pair<std::string_view, EditOp>, 5> kOperations{{
        {"merge", EditOp::kMerge},
        {"replace", EditOp::kReplace},
        {"create", EditOp::kCreate},
        {"delete", EditOp::kDelete},
        {"remove", EditOp::kRemove},
    }};
    const char* text = AttributeOf(edit);
    if (text == nullptr) return inherited;
    for (const auto& [name, operation] : kOperations)
        if (name == text) return operation;
    return base::Unexpected(BadOperation(edit, text));
}

bool IsPlain(const lyd_node* edit) { return edit->schema != nullptr && IsPlainBelow(edit); }

}  // namespace cdb
