// SPDX-License-Identifier: Apache-2.0
// What each peer may do: a table of users and groups for each role, asked when a peer takes a role. The
// socket's permissions decide which processes can connect; this decides which requests of theirs are granted.
// Used by cdbd and sflow-mgr.

#ifndef IPC_TRUST_H
#define IPC_TRUST_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/peer.h"

namespace ipc {

/// The group of the switch's processes, if no other is named.
inline constexpr const char* kSwitchGroup = "sflow-switch";
/// The group of the switch's operators, likewise.
inline constexpr const char* kAdminGroup = "sflow-admin";

enum class Role : std::uint8_t { kSubscribe, kCallpoint, kState, kFaults, kSession };

class Trust {
public:
    /// Gives each role to root, to this process's own user and to the group, if the machine has it. Refusals
    /// name `program` as the one whose option --allow helps.
    explicit Trust(std::string program, std::string group = kSwitchGroup);

    /// Gives a role to others instead of the group: "callpoint=ann,@noc", users and (with @) groups, by name
    /// or number. Root and the process's own user keep it. Returns what is wrong with the text; empty if
    /// nothing is.
    std::string Allow(std::string_view text);

    /// The sentence that refuses the peer; nullopt if the peer may.
    [[nodiscard]] std::optional<std::string> Refusal(Role role, const PeerCredentials& peer) const;

    /// The names of the roles, for help texts.
    static std::string RoleNames();

private:
    struct Holders {
        std::vector<std::uint32_t> users;
        std::vector<std::uint32_t> groups;
    };
    std::string m_program;
    std::string m_group;
    std::array<Holders, 5> m_roles;
};

}  // namespace ipc

#endif
