// SPDX-License-Identifier: Apache-2.0
// Who is at the other end of a Unix socket, and the users and groups of this machine. Says who a peer
// is, never what it may do (trust.h).

#ifndef IPC_PEER_H
#define IPC_PEER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ipc {

/// The kernel's word on the process that has connected, as of then (SO_PEERCRED, SO_PEERGROUPS).
struct PeerCredentials {
    std::int64_t pid = 0;  // 0: in another namespace of processes
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::vector<std::uint32_t> groups{};  // the supplementary ones

    [[nodiscard]] bool IsMember(std::uint32_t group) const;
};

/// Nullopt where the kernel does not say; such a peer is no user's.
std::optional<PeerCredentials> PeerOf(int descriptor);

/// "uid-1234" for one without a name.
std::string UserName(std::uint32_t uid);
/// "gid-1234" for one without a name.
std::string GroupName(std::uint32_t gid);

/// By name or by number; nullopt where the machine knows none of that name.
std::optional<std::uint32_t> FindUser(const std::string& name);
std::optional<std::uint32_t> FindGroup(const std::string& name);

/// Gives a file or directory to the group, its user stays. Empty when done; else why not, and the remedy.
std::string GiveToGroup(const std::string& path, std::uint32_t group);

}  // namespace ipc

#endif
