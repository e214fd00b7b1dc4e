// SPDX-License-Identifier: Apache-2.0
// What one user may do by the rules that held when it was made (RFC 8341, section 3.4). A session uses one
// for its requests until the rules change. Immutable, so any thread may use it.

#ifndef AGENT_ACCESS_ACCESS_GRANT_H
#define AGENT_ACCESS_ACCESS_GRANT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/access/access_rules.h"
#include "cdb/datastore/datastore.h"
#include "cdb/model/error.h"
#include "cdb/model/row_change.h"
#include "cdb/rows/row_view.h"
#include "cdb/schema/schema.h"

struct lyd_node;

namespace agent {

/// A session's user, as the kernel says.
struct AccessUser {
    std::string name;
    std::uint32_t uid = 0;
    std::vector<std::string> groups{};  // of the user's process
};

/// How much of a node is shown to a reader.
enum class Visibility : std::uint8_t {
    kHidden,  // left out, with everything below it
    kWhole,   // shown, with everything below it
    kPartly   // shown; each node below it is asked about
};

class AccessGrant {
public:
    /// Shared by all grants of one set of rules.
    struct Source {
        AccessRules rules;
        ProtectedNodes guarded;
        std::uint64_t generation = 0;
    };

    /// `everything`: no rule binds the user.
    AccessGrant(std::shared_ptr<const Source> source, AccessUser user, bool everything);

    [[nodiscard]] const AccessUser& User() const { return m_user; }
    /// The generation of the rules: see Access.
    [[nodiscard]] std::uint64_t Generation() const { return m_source->generation; }

    /// Whether the user may carry out an operation. `rpc` is its schema node.
    [[nodiscard]] bool MayExecute(const lysc_node* rpc) const;

    /// Whether no node is ever hidden from the user: a reader need not ask then.
    [[nodiscard]] bool ReadsAll() const { return m_readsAll; }
    /// Likewise for edits and commits.
    [[nodiscard]] bool WritesAll() const { return m_writesAll; }

    /// The node's own visibility. The caller asks about its parents first. `keys`: those of the list entries
    /// on the way, from the root, the node's own included. An entry's keys are shown with it.
    [[nodiscard]] Visibility Reading(const lysc_node* node, std::span<const std::string> keys) const;

    /// The data node that the edit's node stands for; null if the datastore has none. One that may be deleted
    /// comes with everything below it. Defaults that were not set may be missing.
    using Find = std::function<const lyd_node*(const lyd_node* edit)>;

    /// Whether the user may make the edit (RFC 8341, section 3.2.4): each node that it creates, deletes or
    /// gives another value must be permitted; what it leaves as it is does not matter. `edit` as in
    /// cdb::Datastore::Edit. `existing`: the datastore's first top-level node, or null. Nullopt if it may,
    /// else access-denied with the path of a node of the edit. A wrong edit passes: the datastore refuses it.
    [[nodiscard]] std::optional<cdb::Error> CheckEdit(const lyd_node* edit, cdb::DefaultOperation operation,
                                                      const lyd_node* existing, const Find& find) const;

    /// The same for the candidate's rows. Reads only the entries that the edit names or deletes.
    [[nodiscard]] std::optional<cdb::Error> CheckEdit(const lyd_node* edit, cdb::DefaultOperation operation,
                                                      const cdb::Schema& schema,
                                                      cdb::RowView& candidate) const;

    /// Whether the user may make these changes; nullopt if so, else access-denied. A commit is checked for
    /// all that it changes, other users' edits included (RFC 8341, section 3.2.6).
    [[nodiscard]] std::optional<cdb::Error> CheckChanges(const cdb::Schema& schema,
                                                         std::span<const cdb::RowChange> changes) const;

    /// Whether the user may do that to the node (kPartly), and to everything that can be below it (kWhole).
    /// Null is the root.
    [[nodiscard]] Visibility Look(AccessOperation operation, const lysc_node* node,
                                  std::span<const std::string> keys) const;

    /// The error that refuses an operation on the node at the path.
    [[nodiscard]] cdb::Error Denied(AccessOperation operation, const std::string& path) const;

private:
    [[nodiscard]] bool Default(AccessOperation operation, const lysc_node* node) const;

    std::shared_ptr<const Source> m_source;
    AccessUser m_user;
    std::vector<const AccessRule*> m_rules;  // those of the user's rule lists, in order
    bool m_everything;
    bool m_readsAll = false;
    bool m_writesAll = false;
};

/// The keys of the list entries on the way from the root to the node, which is in a data tree.
std::vector<std::string> KeysOnTheWay(const lyd_node* node);

}  // namespace agent

#endif
