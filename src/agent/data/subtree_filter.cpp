// SPDX-License-Identifier: Apache-2.0
#include "agent/data/subtree_filter.h"

#include <algorithm>

namespace agent {
namespace {

bool Fits(const FilterNode& filter, std::string_view ns, std::string_view name)
{
    return !filter.hasAttributes && filter.name == name && (filter.ns.empty() || filter.ns == ns);
}

}  // namespace

bool Concerns(const SubtreeFilter& filter, std::string_view ns, std::string_view name)
{
    return std::any_of(filter.begin(), filter.end(),
                       [ns, name](const FilterNode& node) { return Fits(node, ns, name); });
}

}  // namespace agent
