// SPDX-License-Identifier: Apache-2.0
// What a subtree filter selects of a part of the state, as far as it is simple to say: lists by the values of
// keys, and children by name. It may select more than the filter, never less; the filter is applied to what
// comes. Used for the questions to those who provide state.

#ifndef AGENT_STATE_STATE_SELECTION_H
#define AGENT_STATE_STATE_SELECTION_H

#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "agent/data/subtree_filter.h"
#include "ipc/cdb.pb.h"

struct lysc_node;

namespace agent {

/// What is selected in one container.
struct StateWanted {
    /// The children; none: everything.
    google::protobuf::RepeatedPtrField<ipc::cdb::StateSelection> children;

    /// Whether something may be selected in the child of that name.
    [[nodiscard]] bool Has(std::string_view child) const;
};

/// Nullopt where the filter selects nothing in the container. No filter: everything.
std::optional<StateWanted> SelectState(const lysc_node* container,
                                       const std::optional<SubtreeFilter>& filter);

/// What one filter selects in several containers.
class StateSelections {
public:
    /// The filter must outlive it.
    explicit StateSelections(const std::optional<SubtreeFilter>& filter) : m_filter(filter) {}

    /// Does the work for these containers; a long filter takes a while. Any thread may do it.
    void Prepare(const std::vector<const lysc_node*>& containers);
    /// Hands out what is selected in the container, as SelectState; prepared or not.
    [[nodiscard]] std::optional<StateWanted> Take(const lysc_node* container);

private:
    const std::optional<SubtreeFilter>& m_filter;
    std::map<const lysc_node*, std::optional<StateWanted>> m_prepared;
};

}  // namespace agent

#endif
