// What a subtree filter selects of a part of the state, as far as it is simple to say: lists by the values of
// keys, and children by name. It may select more than the filter, never less; the filter is applied to what
// comes. Used for the questions to those who provide state.

#ifndef AGENT_STATE_SELECTION_H
#define AGENT_STATE_SELECTION_H

#include <optional>
#include <string_view>

#include "agent/subtree_filter.h"
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

}  // namespace agent

#endif
