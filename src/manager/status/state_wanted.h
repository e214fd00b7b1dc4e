// SPDX-License-Identifier: Apache-2.0
// What of the state is asked for: which parts, which entries of the lists, and which of their leaves. A value
// made of the database's question. Used by what answers it.

#ifndef MANAGER_STATUS_STATE_WANTED_H
#define MANAGER_STATUS_STATE_WANTED_H

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace ipc::cdb {
class StateRequest_Part;
}

namespace manager {

/// Leaves by name.
struct WantedLeaves {
    bool all = false;
    std::set<std::string, std::less<>> names;
    [[nodiscard]] bool Has(std::string_view name) const { return all || names.contains(name); }
    void Add(const WantedLeaves& more);
};

/// Names of entries.
struct WantedNames {
    bool all = false;
    std::set<std::string> names;
    [[nodiscard]] bool Has(const std::string& name) const { return all || names.contains(name); }
    [[nodiscard]] bool None() const { return !all && names.empty(); }
};

/// Entries of one list, with what is wanted of each.
struct WantedEntries {
    std::optional<WantedLeaves> every;          // of those that are not named, too
    std::map<std::string, WantedLeaves> named;  // with what is wanted of every entry
    /// Null if the entry is not wanted.
    [[nodiscard]] const WantedLeaves* Of(const std::string& name) const;
    /// Whether any entry may be wanted with that leaf.
    [[nodiscard]] bool Has(std::string_view leaf) const;
    [[nodiscard]] bool None() const { return !every && named.empty(); }
};

struct WantedState {
    std::optional<WantedLeaves> manager;
    bool agentAddress = false;
    bool subAgent = false;
    bool drops = false;  // whatever of the list
    WantedEntries collectors, interfaces, kernelInterfaces;
    /// Entries of the list of problems, by subject.
    struct {
        bool agent = false;
        WantedNames collectors, interfaces;
    } problems;

    static WantedState Everything();
    /// What is selected below /state/oam/sflow. A name that the manager does not have selects nothing.
    static WantedState From(const ipc::cdb::StateRequest_Part& part);
};

}  // namespace manager

#endif
