// SPDX-License-Identifier: Apache-2.0
// What a subtree filter selects of a part of the state, simplified to list entries by the values of keys, and
// children by name. It may select more than the filter, never less; the filter is applied to the answers.
// Used for the questions to state providers.

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
    /// The children; empty if everything is selected.
    google::protobuf::RepeatedPtrField<ipc::cdb::StateSelection> children;

    /// Whether something may be selected in the child of that name.
    [[nodiscard]] bool Has(std::string_view child) const;
};

/// What the filter selects in the container; nullopt if nothing. Without a filter: everything.
std::optional<StateWanted> SelectState(const lysc_node* container,
                                       const std::optional<SubtreeFilter>& filter);

/// What one filter selects in several containers.
class StateSelections {
public:
    /// `filter` must outlive this.
    explicit StateSelections(const std::optional<SubtreeFilter>& filter) : m_filter(filter) {}

    /// Computes the selections of these containers, which takes long for a long filter. Any thread may call
    /// it.
    void Prepare(const std::vector<const lysc_node*>& containers);
    /// The selection of the container, as of SelectState, and computed if it was not prepared.
    [[nodiscard]] std::optional<StateWanted> Take(const lysc_node* container);

private:
    const std::optional<SubtreeFilter>& m_filter;
    std::map<const lysc_node*, std::optional<StateWanted>> m_prepared;
};

}  // namespace agent

#endif
