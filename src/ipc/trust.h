// SPDX-License-Identifier: Apache-2.0
// Which peer may do what among the switch's processes: a table of users and groups for each role, asked
// where a peer takes a role up. The files' permissions decide who can connect at all; this decides what a
// process that can connect is believed. Used by cdbd and sflow-mgr.

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

/// The group of the switch's processes, where no other is named.
inline constexpr const char* kSwitchGroup = "sflow-switch";
/// The group of the switch's operators, likewise.
inline constexpr const char* kAdminGroup = "sflow-admin";

enum class Role : std::uint8_t { kSubscribe, kCallpoint, kState, kFaults, kSession };

class Trust {
public:
    /// Each role belongs to root, to this process's own user and to the group, where the machine has it.
    /// `program` is named in refusals, as the one whose option --allow helps.
    explicit Trust(std::string program, std::string group = kSwitchGroup);

    /// Gives a role to others instead of the group: "callpoint=ann,@noc", users and (with @) groups, by
    /// name or number. Root and the own user keep it. Returns what is wrong with the text; empty: nothing.
    std::string Allow(std::string_view text);

    /// Nullopt: the peer may. Else the sentence that refuses it.
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
