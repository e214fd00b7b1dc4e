// SPDX-License-Identifier: Apache-2.0
#include "agent/events/event_filter.h"

#include <algorithm>

namespace agent {
namespace {

bool Matches(const FilterNode& filter, const EventElement& element)
{
    // Events have no attributes, so an attribute match matches nothing.
    if (filter.name != element.name || filter.hasAttributes) return false;
    if (!filter.ns.empty() && filter.ns != element.ns) return false;
    if (filter.IsSelection()) return true;
    if (filter.IsContentMatch()) return element.children.empty() && element.text == filter.text;
    const auto holds = [&element](const FilterNode& inner) {
        return std::any_of(element.children.begin(), element.children.end(),
                           [&inner](const EventElement& child) { return Matches(inner, child); });
    };
    // All content matches must hold, and, if there are other children, one of those.
    bool anyOther = false;
    bool hasOther = false;
    for (const FilterNode& inner : filter.children) {
        if (inner.IsContentMatch()) {
            if (!holds(inner)) return false;
            continue;
        }
        hasOther = true;
        anyOther = anyOther || holds(inner);
    }
    return anyOther || !hasOther;
}

}  // namespace

std::size_t CountElements(const SubtreeFilter& filter)
{
    std::size_t count = filter.size();
    for (const FilterNode& node : filter) count += CountElements(node.children);
    return count;
}

bool Selects(const SubtreeFilter& filter, const EventElement& content)
{
    return std::any_of(filter.begin(), filter.end(),
                       [&content](const FilterNode& node) { return Matches(node, content); });
}

}  // namespace agent
