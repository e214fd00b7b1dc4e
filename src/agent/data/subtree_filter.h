// SPDX-License-Identifier: Apache-2.0
// A subtree filter as the client has written it (RFC 6241, section 6): read from the request's own text,
// because libyang would read it by the schema. filter_plan says what it selects.

#ifndef AGENT_DATA_SUBTREE_FILTER_H
#define AGENT_DATA_SUBTREE_FILTER_H

#include <string>
#include <vector>

namespace agent {

struct FilterNode {
    std::string ns;  // empty: any namespace
    std::string name;
    std::string text;  // without the blanks around it; empty if there are children
    /// An attribute match. The data has no attributes, so such a node matches nothing.
    bool hasAttributes = false;
    std::vector<FilterNode> children;

    [[nodiscard]] bool IsSelection() const { return children.empty() && text.empty(); }
    [[nodiscard]] bool IsContentMatch() const { return children.empty() && !text.empty(); }
    friend bool operator==(const FilterNode&, const FilterNode&) = default;
};

/// The children of <filter>; an empty one selects nothing.
using SubtreeFilter = std::vector<FilterNode>;

}  // namespace agent

#endif
