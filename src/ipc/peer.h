// SPDX-License-Identifier: Apache-2.0
// The process at the other end of a Unix socket. What a peer may do is in trust.h.

#ifndef IPC_PEER_H
#define IPC_PEER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ipc {

/// The process that has connected, as it was then (SO_PEERCRED, SO_PEERGROUPS).
struct PeerCredentials {
    std::int64_t pid = 0;  // 0: in another PID namespace
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::vector<std::uint32_t> groups{};  // the supplementary ones

    /// Whether the group is the primary or a supplementary one.
    [[nodiscard]] bool IsMember(std::uint32_t group) const;
};

/// Nullopt if the kernel does not say; such a peer has the rights of no user.
std::optional<PeerCredentials> PeerOf(int descriptor);

/// Gives a file or directory to the group; its user stays. Returns the problem and its remedy; empty if done.
std::string GiveToGroup(const std::string& path, std::uint32_t group);

}  // namespace ipc

#endif
