#include "agent/state_as_tree.h"

#include <libyang/libyang.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace agent {
namespace {

lyd_node* NewEntry(DataSource& state, DataSource::Handle entry, const lysc_node* list, lyd_node* parent)
{
    std::array<std::string, 4> keys;  // more than our lists have; those that a list lacks are not read
    std::size_t count = 0;
    for (const lysc_node* key = lysc_node_child(list); key != nullptr && lysc_is_key(key); key = key->next)
        state.Values(entry, key, [&](std::string_view text, bool) { keys.at(count++) = text; });
    lyd_node* made = nullptr;
    lyd_new_list(parent, list->module, list->name, 0, &made, keys[0].c_str(), keys[1].c_str(),
                 keys[2].c_str(), keys[3].c_str());
    return made;
}

void Fill(DataSource& state, DataSource::Handle at, const lysc_node* schema, lyd_node* parent)
{
    if ((schema->nodetype & LYD_NODE_TERM) != 0) {
        state.Values(at, schema, [&](std::string_view text, bool) {
            lyd_new_term(parent, schema->module, schema->name, std::string(text).c_str(), 0, nullptr);
        });
        return;
    }
    const auto visit = [&](DataSource::Handle node) {
        lyd_node* made = nullptr;
        if (schema->nodetype == LYS_LIST)
            made = NewEntry(state, node, schema, parent);
        else
            lyd_new_inner(parent, schema->module, schema->name, 0, &made);
        if (made == nullptr) return false;
        for (const lysc_node* child = lysc_node_child(schema); child != nullptr; child = child->next)
            if (!lysc_is_key(child)) Fill(state, node, child, made);
        return true;
    };
    if (schema->nodetype == LYS_CONTAINER) state.Container(at, schema, visit);
    if (schema->nodetype == LYS_LIST) state.Entries(at, schema, visit);
}

}  // namespace

Tree StateAsTree(const ly_ctx* context, DataSource& state)
{
    lyd_node* first = nullptr;
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        if (module->implemented == 0) continue;
        for (const lysc_node* node = module->compiled->data; node != nullptr; node = node->next) {
            if (node->nodetype != LYS_CONTAINER) continue;
            state.Container(nullptr, node, [&](DataSource::Handle top) {
                lyd_node* made = nullptr;
                if (lyd_new_inner(nullptr, module, node->name, 0, &made) != LY_SUCCESS) return false;
                lyd_insert_sibling(first, made, &first);
                for (const lysc_node* child = lysc_node_child(node); child != nullptr; child = child->next)
                    Fill(state, top, child, made);
                return true;
            });
        }
    }
    return Tree(first);
}

}  // namespace agent
