// SPDX-License-Identifier: Apache-2.0
// Where data to be written comes from: configuration rows, a libyang tree. Walked from the top down by
// the writer, which knows the schema and asks for the nodes that it wants.

#ifndef AGENT_DATA_DATA_SOURCE_H
#define AGENT_DATA_DATA_SOURCE_H

#include <span>
#include <string_view>

#include "agent/data/function_ref.h"

struct lysc_node;

namespace agent {

/// Views are valid during the visit only. While a node is visited, it and what is below it may be asked
/// for, and nothing above it or beside it.
class DataSource {
public:
    using Handle = const void*;  // a container or list entry of this source; null: above the top-level nodes
    using ValueVisit = FunctionRef<void(std::string_view text, bool isDefault)>;
    using NodeVisit = FunctionRef<bool(Handle node)>;  // false: stop

    virtual ~DataSource() = default;

    /// The value of a leaf, the values of a leaf-list. Canonical text. isDefault: not set explicitly.
    virtual void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) = 0;

    /// Called once if the container is there. A plain container may be left out where nothing is in it.
    virtual void Container(Handle at, const lysc_node* container, const NodeVisit& visit) = 0;

    /// Entries in ascending byte order of their keys.
    virtual void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) = 0;

    /// The one entry with these keys (canonical text), by look-up.
    virtual void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
                       const NodeVisit& visit) = 0;
};

}  // namespace agent

#endif
