// SPDX-License-Identifier: Apache-2.0
// The rules of access control (RFC 8341) as values: what a file of rules says, resolved against the schema
// that requests are about. access_grant.h applies them to a user.

#ifndef AGENT_ACCESS_ACCESS_RULES_H
#define AGENT_ACCESS_ACCESS_RULES_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

struct ly_ctx;
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

    static ProtectedNodes Of(const ly_ctx* context);
};

/// The rules without a file: members of the operators' group (by name) may do everything, other users that
/// can open the socket may read.
AccessRules DefaultAccessRules(const std::string& adminGroup);

}  // namespace agent

#endif
