// SPDX-License-Identifier: Apache-2.0
// Takes over a state provider's answer part by part: looks up each node in the schema. A node that the schema
// does not have makes the whole answer invalid. Used by state_query.

#ifndef AGENT_STATE_PROVIDED_STATE_H
#define AGENT_STATE_PROVIDED_STATE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/clients/client.h"
#include "agent/state/state_tree.h"
#include "agent/state/value_check.h"

struct ly_ctx;

namespace agent {

class ProvidedState {
public:
    /// What one answer may take in memory, and how many of its warnings are kept: far more than a switch
    /// needs.
    static constexpr std::size_t kMaxBytes = std::size_t{128} << 20;
    static constexpr std::size_t kMaxWarnings = 16;
    /// The names of one part, and the bytes of one value.
    static constexpr int kMaxNames = 4096;
    static constexpr std::size_t kMaxValue = std::size_t{64} << 10;

    ProvidedState(const ly_ctx* context, const std::vector<StateProvision>& provided);

    /// Takes the next part. Returns what is wrong with it; empty if nothing. Not to be called after an error.
    [[nodiscard]] std::string Take(const ipc::cdb::StateReply& part);

    /// The state that has been taken; its texts live as long as the tree.
    [[nodiscard]] StateTree& Tree() { return m_tree; }
    [[nodiscard]] const std::vector<std::string>& Warnings() const { return m_warnings; }
    /// What the state takes in memory, about; as XML it is a little more.
    [[nodiscard]] std::size_t Bytes() const { return m_bytes; }

private:
    struct Trail;
    class Names;

    std::string TakeTree(const ipc::cdb::StateReply_Tree& tree, Names& names);
    std::string TakeNode(const ipc::cdb::StateNode& from, StateTree::Node& into, const Trail& trail,
                         Names& names);
    std::string TakeLeaf(const lysc_node* leaf, std::string_view value, StateTree::Node& into,
                         const Trail& trail);
    std::string TakeEntry(const ipc::cdb::StateNode& from, const lysc_node* list, StateTree::Node& into,
                          const Trail& trail, Names& names);
    std::string TakeKeys(const ipc::cdb::StateNode& from, const lysc_node* list, const Trail& trail,
                         std::vector<std::string_view>& keys);
    void TakeWarnings(const ipc::cdb::StateReply& part);

    std::vector<std::pair<std::string, const lysc_node*>> m_containers;  // by path
    ValueChecker m_checker;
    StateTree m_tree;
    std::vector<std::string> m_warnings;
    std::size_t m_bytes = 0;
};

}  // namespace agent

#endif
