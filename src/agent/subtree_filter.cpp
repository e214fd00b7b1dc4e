#include "agent/subtree_filter.h"

#include <libyang/libyang.h>

#include <algorithm>

namespace agent {
namespace {

bool Fits(const FilterNode& filter, std::string_view ns, std::string_view name)
{
    return !filter.hasAttributes && filter.name == name && (filter.ns.empty() || filter.ns == ns);
}

}  // namespace

bool Matches(const FilterNode& filter, const lyd_node* node)
{
    return node->schema != nullptr && Fits(filter, node->schema->module->ns, node->schema->name);
}

bool HasValue(const FilterNode& filter, const lyd_node* leaf)
{
    if ((leaf->schema->nodetype & LYD_NODE_TERM) == 0) return false;
    if (filter.text == lyd_get_value(leaf)) return true;
    const auto* term = reinterpret_cast<const lyd_node_term*>(leaf);
    if (term->value.realtype->basetype == LY_TYPE_STRING) return false;
    // The same value may be written in another way: "+5", an enumeration is as it is.
    return lyd_value_compare(term, filter.text.c_str(), filter.text.size()) == LY_SUCCESS;
}

bool Concerns(const SubtreeFilter& filter, std::string_view ns, std::string_view name)
{
    return std::any_of(filter.begin(), filter.end(),
                       [ns, name](const FilterNode& node) { return Fits(node, ns, name); });
}

}  // namespace agent
