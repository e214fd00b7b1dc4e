// SPDX-License-Identifier: Apache-2.0
// Access control (RFC 8341): the rules, what one user may do by them, and Access, which holds the rules in
// force. They come from a file, which Reload reads again, or are the default ones.

#ifndef AGENT_ACCESS_ACCESS_H
#define AGENT_ACCESS_ACCESS_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "cdb/datastore/datastore.h"
#include "cdb/model/error.h"
#include "cdb/model/row.h"
#include "cdb/rows/row_view.h"
#include "cdb/schema/schema.h"

struct ly_ctx;
struct lyd_node;
struct lysc_node;

namespace agent {

/// Bits of a rule's access-operations.
enum class AccessOperation : std::uint8_t { kCreate = 1, kRead = 2, kUpdate = 4, kDelete = 8, kExec = 16 };
inline constexpr std::uint8_t kAllAccess = 31;

struct AccessRule {
    enum class Kind : std::uint8_t { kAny, kOperation, kNotification, kData };

    std::string name;
    std::string module = "*";  // of what is asked for
    Kind kind = Kind::kAny;
    std::string target{};             // kOperation, kNotification: the name, or "*"
    const lysc_node* node = nullptr;  // kData: what it is about, with all below; null: everything
    /// The keys of the lists on the way to `node`, from the root; nullopt: any.
    std::vector<std::optional<std::string>> keys{};
    std::uint8_t operations = kAllAccess;
    bool permit = false;
};

struct AccessRuleList {
    std::string name;
    std::set<std::string> groups;  // "*": every group
    std::vector<AccessRule> rules;
};

struct AccessRules {
    bool enabled = true;
    bool readDefault = true;
    bool writeDefault = false;
    bool execDefault = true;
    bool externalGroups = true;                           // the groups of the user's process count
    std::map<std::string, std::set<std::string>> groups;  // by name: the users
    std::vector<AccessRuleList> lists;
};

/// The nodes and operations of the modules that only an explicit rule opens (default-deny-all,
/// default-deny-write), in the schema that requests are about.
struct ProtectedNodes {
    std::unordered_set<const lysc_node*> all;
    std::unordered_set<const lysc_node*> writes;
    std::unordered_set<const lysc_node*> operations;  // apart: they hide no data

    static ProtectedNodes Of(const ly_ctx* context);
};

/// The rules without a file: members of the operators' group (by name) may do everything, other users that
/// can open the socket may read.
AccessRules DefaultAccessRules(const std::string& adminGroup);

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

/// What one user may do by the rules that held when it was made (RFC 8341, section 3.4). A session uses one
/// for its requests until the rules change. Immutable, so any thread may use it.
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

    /// Whether the user may be told of events of this kind (RFC 8341, section 3.4.6). `notification` is its
    /// schema node.
    [[nodiscard]] bool MayReceive(const lysc_node* notification) const;

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

/// Holds the rules and derives from them what a session's user may do.
class Access {
public:
    struct Options {
        std::filesystem::path file;  // empty: the default rules
        std::filesystem::path yangDirectory;
        std::string adminGroup;  // by name; with the default rules
    };
    /// `schema` is what requests are about, and outlives this. Throws cdb::FatalError, which names the file
    /// and the line, if the file can't be used.
    Access(const ly_ctx* schema, Options options);
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    /// Reads the file again. Empty if it could; else why not, and the rules are as before.
    std::string Reload();

    /// Changes with each successful Reload: a grant made before is out of date.
    [[nodiscard]] std::uint64_t Generation() const { return m_generation; }

    /// No rule binds root, whose session is for recovery, nor, with the default rules, the process's own
    /// user.
    [[nodiscard]] std::shared_ptr<const AccessGrant> Grant(const AccessUser& user) const;

    /// What was denied since the start, for the state. The sender of a denial counts it.
    struct Denials {
        std::atomic<std::uint32_t> operations{0};
        std::atomic<std::uint32_t> dataWrites{0};
    };
    [[nodiscard]] Denials& Denied() { return m_denied; }
    [[nodiscard]] const Denials& Denied() const { return m_denied; }

private:
    const ly_ctx* m_schema;
    Options m_options;
    std::shared_ptr<const AccessGrant::Source> m_source;
    std::uint64_t m_generation = 0;
    Denials m_denied;
};

}  // namespace agent

#endif
