// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/edit_errors.h"

#include <libyang/libyang.h>

#include "cdb/datastore/tree.h"

namespace cdb {
namespace {

using Info = std::vector<std::pair<std::string, std::string>>;

Error Make(ErrorTag tag, const lyd_node* edit, std::string message, Info info = {})
{
    return {.tag = tag, .message = std::move(message), .path = EditPath(edit), .info = std::move(info)};
}

/// The names of the node's configuration children, for the remedy.
std::string ChildrenOf(const Schema& schema, NodeId parent)
{
    std::string names;
    for (const auto& node : schema.Table().Nodes())
        if (node.parent == parent) names += (names.empty() ? "" : ", ") + node.name;
    return names;
}

std::string Where(const lyd_node* edit)
{
    const lyd_node* parent = lyd_parent(edit);
    return parent != nullptr ? Describe(parent) : "the configuration";
}

const lys_module* ModuleOf(const lyd_node_opaq* opaque)
{
    if (opaque->name.module_ns == nullptr) return nullptr;
    return opaque->format == LY_VALUE_XML
               ? ly_ctx_get_module_implemented_ns(opaque->ctx, opaque->name.module_ns)
               : ly_ctx_get_module_implemented(opaque->ctx, opaque->name.module_name);
}

Error UnknownNamespace(const lyd_node* edit, const lyd_node_opaq* opaque)
{
    const std::string space = opaque->name.module_ns != nullptr ? opaque->name.module_ns : "";
    return Make(ErrorTag::kUnknownNamespace, edit,
                "element \"" + std::string(opaque->name.name) + "\" is in the namespace \"" + space +
                    "\", which no module here has; use a namespace that this server announces",
                {{"bad-element", opaque->name.name}, {"bad-namespace", space}});
}

Error UnknownElement(const Schema& schema, const lyd_node* edit, const lyd_node_opaq* opaque)
{
    const lyd_node* parent = lyd_parent(edit);
    const NodeId id = parent != nullptr ? schema.IdOf(parent->schema) : kNoNode;
    return Make(
        ErrorTag::kUnknownElement, edit,
        Where(edit) + " has no element \"" + opaque->name.name + "\"; known here: " + ChildrenOf(schema, id),
        {{"bad-element", opaque->name.name}});
}

Error MissingKey(const lyd_node* edit, const lysc_node* list)
{
    // Names the first key without an element.
    const auto has = [edit](const char* name) {
        for (const lyd_node* child = lyd_child(edit); child != nullptr; child = child->next)
            if (std::string_view(LYD_NAME(child)) == name) return true;
        return false;
    };
    for (const lysc_node* key = lysc_node_child(list); key != nullptr && lysc_is_key(key); key = key->next) {
        if (has(key->name)) continue;
        return Make(ErrorTag::kMissingElement, edit,
                    "an entry of list \"" + std::string(list->name) + "\" needs its key \"" + key->name +
                        "\"; add that element",
                    {{"bad-element", key->name}});
    }
    for (const lyd_node* child = lyd_child(edit); child != nullptr; child = child->next) {
        const lysc_node* key = lys_find_child(list, list->module, LYD_NAME(child), 0, 0, 0);
        if (key == nullptr || !lysc_is_key(key)) continue;
        const auto* value = reinterpret_cast<const lyd_node_opaq*>(child)->value;
        const auto length = std::string_view(value).size();
        if (lyd_value_validate(LYD_CTX(edit), key, value, length, nullptr, nullptr, nullptr) == LY_SUCCESS)
            continue;
        return Make(ErrorTag::kInvalidValue, child,
                    '"' + std::string(value) + "\" can't be the key \"" + key->name +
                        "\" of an entry of list \"" + list->name + "\": " + LastMessage(LYD_CTX(edit)));
    }
    return Make(ErrorTag::kInvalidValue, edit,
                "an entry of list \"" + std::string(list->name) + "\" can't be read; check its keys");
}

/// "use ingress, egress or both"; empty if the leaf is no enumeration.
std::string RemedyOfEnumeration(const lysc_node* leaf)
{
    const lysc_type* type = reinterpret_cast<const lysc_node_leaf*>(leaf)->type;
    if (leaf->nodetype != LYS_LEAF || type->basetype != LY_TYPE_ENUM) return {};
    const auto* enums = reinterpret_cast<const lysc_type_enum*>(type)->enums;
    const std::size_t count = LY_ARRAY_COUNT(enums);
    std::string names;
    for (std::size_t i = 0; i < count; ++i)
        names += (i == 0 ? "" : i + 1 == count ? " or " : ", ") + std::string(enums[i].name);
    return "use " + names;
}

/// The remedy: values that the leaf accepts.
std::string Remedy(const SchemaNode& leaf, const lysc_node* compiled)
{
    if (std::string enumeration = RemedyOfEnumeration(compiled); !enumeration.empty()) return enumeration;
    switch (leaf.type) {
    case ValueType::kUint16:
    case ValueType::kUint32:
        return "use a number from " + std::to_string(leaf.minimum) + " to " + std::to_string(leaf.maximum);
    case ValueType::kBool:
        return "use true or false";
    case ValueType::kIpv4:
        return "use an IPv4 address such as 192.0.2.1";
    case ValueType::kIpv4Plen:
        return "use an IPv4 address with its prefix length, such as 192.0.2.1/24";
    default:
        return "use a value of its type";
    }
}

/// libyang's last message without its full stop; empty for an address, whose pattern would not help the
/// reader.
std::string Reason(const ly_ctx* context, ValueType type)
{
    std::string why = LastMessage(context);
    while (!why.empty() && why.back() == '.') why.pop_back();
    return type == ValueType::kIpv4 || why.empty() ? "" : ": " + why;
}

Error InvalidValue(const Schema& schema, const lyd_node* edit, const lysc_node* leaf,
                   const std::string& value)
{
    const NodeId id = schema.IdOf(leaf);
    const SchemaNode known = id != kNoNode ? schema.Table()[id] : SchemaNode{};
    return Make(ErrorTag::kInvalidValue, edit,
                '"' + value + "\" is no value for leaf \"" + leaf->name + "\" of " + Where(edit) +
                    Reason(schema.Context(), known.type) + "; " + Remedy(known, leaf),
                {{"bad-element", leaf->name}});
}

}  // namespace

std::string EditPath(const lyd_node* edit)
{
    if (edit->schema != nullptr) return DataPath(edit);
    const lyd_node* parent = lyd_parent(edit);
    return (parent != nullptr ? EditPath(parent) : "") + '/' + LYD_NAME(edit);
}

Error BadOperation(const lyd_node* edit, const std::string& operation)
{
    return Make(ErrorTag::kBadAttribute, edit,
                "there is no operation \"" + operation + "\"; use merge, replace, create, delete or remove",
                {{"bad-attribute", "operation"}, {"bad-element", LYD_NAME(edit)}});
}

Error DataExists(const lyd_node* edit)
{
    return Make(ErrorTag::kDataExists, edit,
                Describe(edit) + " exists already; use merge or replace to change it");
}

Error NothingToDelete(const lyd_node* edit)
{
    return Make(ErrorTag::kDataMissing, edit,
                Describe(edit) + " does not exist and can't be deleted; use remove where it may be missing");
}

Error NothingThere(const lyd_node* edit)
{
    return Make(ErrorTag::kDataMissing, edit, Describe(edit) + " does not exist; create it, or use merge");
}

Error KeyCannotGo(const lyd_node* edit)
{
    return Make(ErrorTag::kBadAttribute, edit,
                Describe(edit) + " is a key and can't be deleted; put the operation on the entry",
                {{"bad-attribute", "operation"}, {"bad-element", LYD_NAME(edit)}});
}

Error GivenTwice(const lyd_node* edit)
{
    return Make(ErrorTag::kBadElement, edit, Describe(edit) + " is given twice; give it once",
                {{"bad-element", LYD_NAME(edit)}});
}

Error NotTheDefault(const lyd_node* edit)
{
    return Make(ErrorTag::kInvalidValue, edit,
                Describe(edit) +
                    " is tagged as a default and has another value than the default of its YANG module; "
                    "correct it or leave the tag out",
                {{"bad-element", LYD_NAME(edit)}});
}

Error NotConfiguration(const lyd_node* edit)
{
    return Make(ErrorTag::kInvalidValue, edit,
                Describe(edit) + " is state and can't be configured; leave it out",
                {{"bad-element", LYD_NAME(edit)}});
}

Error NotKept(const lyd_node* edit)
{
    return Make(ErrorTag::kUnknownElement, edit,
                Describe(edit) + " is no configuration that this datastore keeps; leave it out",
                {{"bad-element", LYD_NAME(edit)}});
}

Error BadWrite(const std::string& callpoint, const std::string& path, const std::string& why)
{
    return {.tag = ErrorTag::kOperationFailed,
            .message = "the callpoint " + callpoint + " wrote " + path +
                       ", which the schema does not accept: " + why + "; check the program that serves it"};
}

const lysc_node* MeantBy(const Schema& schema, const lyd_node* opaque)
{
    const auto* node = reinterpret_cast<const lyd_node_opaq*>(opaque);
    const lys_module* module = ModuleOf(node);
    if (module == nullptr) return nullptr;
    const lyd_node* parent = lyd_parent(opaque);
    if (parent == nullptr) {
        const lysc_node* top = lys_find_child(nullptr, module, node->name.name, 0, 0, 0);
        return top != nullptr && schema.IdOf(top) != kNoNode ? top : nullptr;
    }
    return parent->schema != nullptr ? lys_find_child(parent->schema, module, node->name.name, 0, 0, 0)
                                     : nullptr;
}

Error OpaqueError(const Schema& schema, const lyd_node* opaque)
{
    const auto* node = reinterpret_cast<const lyd_node_opaq*>(opaque);
    if (ModuleOf(node) == nullptr) return UnknownNamespace(opaque, node);
    const lysc_node* meant = MeantBy(schema, opaque);
    if (meant == nullptr) return UnknownElement(schema, opaque, node);
    if (meant->nodetype == LYS_LIST) return MissingKey(opaque, meant);
    const std::string value = node->value != nullptr ? node->value : "";
    ly_err_clean(const_cast<ly_ctx*>(LYD_CTX(opaque)), nullptr);
    static_cast<void>(lyd_parse_opaq_error(opaque));
    return InvalidValue(schema, opaque, meant, value);
}

}  // namespace cdb
