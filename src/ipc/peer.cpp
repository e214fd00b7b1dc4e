// SPDX-License-Identifier: Apache-2.0
#include "ipc/peer.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/user.h"

#ifndef SO_PEERGROUPS
#define SO_PEERGROUPS 59
#endif

namespace ipc {
namespace {

/// The process's supplementary groups from the kernel, or, if it is too old for SO_PEERGROUPS, its user's
/// from the database.
std::vector<std::uint32_t> GroupsOf(int descriptor, const ucred& peer)
{
    std::vector<gid_t> groups(64);
    for (int tries = 0; tries < 3; ++tries) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
            groups.resize(size / sizeof(gid_t));
            return {groups.begin(), groups.end()};
        }
        if (errno != ERANGE) break;
        groups.resize(size / sizeof(gid_t) + 1);
    }
    groups.resize(1024);
    int count = static_cast<int>(groups.size());
    const int found = ::getgrouplist(base::UserName(peer.uid).c_str(), peer.gid, groups.data(), &count);
    groups.resize(found < 0 ? 0 : static_cast<std::size_t>(count));
    return {groups.begin(), groups.end()};
}

}  // namespace

bool PeerCredentials::IsMember(std::uint32_t group) const
{
    return gid == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::optional<PeerCredentials> PeerOf(int descriptor)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
    return PeerCredentials{peer.pid, peer.uid, peer.gid, GroupsOf(descriptor, peer)};
}

std::string GiveToGroup(const std::string& path, std::uint32_t group)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && status.st_gid == group) return {};
    if (::lchown(path.c_str(), static_cast<uid_t>(-1), group) == 0) return {};
    return path + " can't be given to the group " + base::GroupName(group) + " (" + std::strerror(errno) +
           "), so its members can't use it; start the program as root, or as a user who is in that group";
}

}  // namespace ipc
