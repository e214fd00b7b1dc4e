// SPDX-License-Identifier: Apache-2.0
// What must hold of a request that was read: where libyang could not make sense of a node it was its
// value, because what is unknown was refused before. Used by a fuzz target and by a test.

#ifndef FUZZ_OPAQUE_NODES_H
#define FUZZ_OPAQUE_NODES_H

#include <libyang/libyang.h>

#include <string>

namespace fuzz {

/// The name of the first opaque node among the siblings, or below them, that the schema does not know;
/// empty for none.
inline std::string UnknownOpaque(const lyd_node* first, const lysc_node* parent, const ly_ctx* context)
{
    for (const lyd_node* node = first; node != nullptr; node = node->next) {
        const lysc_node* schema = node->schema;
        if (schema == nullptr) {
            const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(node);
            const char* ns = opaque->name.module_ns;
            const lys_module* module =
                ns == nullptr ? nullptr : ly_ctx_get_module_implemented_ns(context, ns);
            if (module != nullptr) schema = lys_find_child(parent, module, opaque->name.name, 0, 0, 0);
            if (schema == nullptr) return opaque->name.name;
        }
        if ((schema->nodetype & LYS_ANYDATA) != 0) {
            const auto* any = reinterpret_cast<const lyd_node_any*>(node);
            if (node->schema == nullptr || any->value_type != LYD_ANYDATA_DATATREE) continue;
            if (auto name = UnknownOpaque(any->value.tree, nullptr, context); !name.empty()) return name;
            continue;
        }
        if (auto name = UnknownOpaque(lyd_child(node), schema, context); !name.empty()) return name;
    }
    return {};
}

}  // namespace fuzz

#endif
