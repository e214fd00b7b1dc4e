#include "agent/provider_node.h"

#include <libyang/libyang.h>

#include <cstdint>
#include <string>

namespace agent {
namespace {

const lysc_node* TopLevel(const ly_ctx* context, const std::string& name)
{
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        if (module->implemented == 0) continue;
        if (const lysc_node* node = lys_find_child(nullptr, module, name.c_str(), 0, LYS_CONTAINER, 0))
            return node;
    }
    return nullptr;
}

const lysc_node* Child(const lysc_node* parent, const std::string& name)
{
    for (const lysc_node* child = lysc_node_child(parent); child != nullptr; child = child->next)
        if (name == child->name && child->nodetype == LYS_CONTAINER) return child;
    return nullptr;
}

}  // namespace

const lysc_node* FindProviderNode(const ly_ctx* context, std::string_view path)
{
    const lysc_node* node = nullptr;
    while (!path.empty()) {
        if (path.front() != '/') return nullptr;
        path.remove_prefix(1);
        const std::string name(path.substr(0, path.find('/')));
        path.remove_prefix(name.size());
        node = node == nullptr ? TopLevel(context, name) : Child(node, name);
        if (node == nullptr) return nullptr;
    }
    return node != nullptr && (node->flags & LYS_CONFIG_R) != 0 ? node : nullptr;
}

}  // namespace agent
