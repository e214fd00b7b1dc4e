// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/provider_node.h"

#include <libyang/libyang.h>

#include <cstdint>

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

/// The argument of our statement of that name, or null.
const char* Statement(const lysc_node* node, std::string_view name)
{
    LY_ARRAY_COUNT_TYPE at = 0;
    LY_ARRAY_FOR(node->exts, at)
    {
        const lysc_ext* definition = node->exts[at].def;
        if (definition->name == name && std::string_view(definition->module->name) == "switch-extensions")
            return node->exts[at].argument;
    }
    return nullptr;
}

/// Those at and below the node, of configuration or of state (`flag`).
void AddExpected(const lysc_node* node, std::string_view statement, std::uint16_t flag,
                 std::vector<ExpectedProcess>& expected)
{
    if (node->nodetype != LYS_CONTAINER) return;
    const char* process = Statement(node, statement);
    if (process != nullptr && (node->flags & flag) != 0) expected.push_back({node, PathOf(node), process});
    for (const lysc_node* child = lysc_node_child(node); child != nullptr; child = child->next)
        AddExpected(child, statement, flag, expected);
}

std::vector<ExpectedProcess> AllExpected(const ly_ctx* context, std::string_view statement,
                                         std::uint16_t flag)
{
    std::vector<ExpectedProcess> expected;
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        if (module->implemented == 0) continue;
        for (const lysc_node* node = module->compiled->data; node != nullptr; node = node->next)
            AddExpected(node, statement, flag, expected);
    }
    return expected;
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

std::string PathOf(const lysc_node* node)
{
    return node == nullptr ? std::string() : PathOf(node->parent) + "/" + node->name;
}

std::vector<ExpectedProcess> ExpectedProviders(const ly_ctx* context)
{
    return AllExpected(context, "provider", LYS_CONFIG_R);
}

std::vector<ExpectedProcess> ExpectedSubscribers(const ly_ctx* context)
{
    return AllExpected(context, "subscriber", LYS_CONFIG_W);
}

}  // namespace agent
