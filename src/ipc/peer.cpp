// SPDX-License-Identifier: Apache-2.0
#include "ipc/peer.h"

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/number.h"

#ifndef SO_PEERGROUPS
#define SO_PEERGROUPS 59
#endif

namespace ipc {
namespace {

constexpr std::size_t kEntrySize = 16384;  // of a line of the user database; a group may have many members
constexpr std::size_t kLongestEntry = std::size_t{1} << 22;

/// Calls a function of the getpwnam_r family with a buffer that grows to what it needs, at most
/// kLongestEntry.
template <typename Entry, typename Get>
bool LookUp(Entry& entry, std::vector<char>& buffer, Get get)
{
    for (std::size_t size = kEntrySize; size <= kLongestEntry; size *= 4) {
        buffer.resize(size);
        Entry* found = nullptr;
        const int error = get(&entry, buffer.data(), buffer.size(), &found);
        if (error != ERANGE) return error == 0 && found != nullptr;
    }
    return false;
}

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
    const int found = ::getgrouplist(UserName(peer.uid).c_str(), peer.gid, groups.data(), &count);
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

std::string UserName(std::uint32_t uid)
{
    std::vector<char> buffer;
    passwd entry{};
    const auto get = [uid](passwd* to, char* room, std::size_t size, passwd** found) {
        return ::getpwuid_r(uid, to, room, size, found);
    };
    return LookUp(entry, buffer, get) ? std::string(entry.pw_name) : "uid-" + std::to_string(uid);
}

std::string GroupName(std::uint32_t gid)
{
    std::vector<char> buffer;
    group entry{};
    const auto get = [gid](group* to, char* room, std::size_t size, group** found) {
        return ::getgrgid_r(gid, to, room, size, found);
    };
    return LookUp(entry, buffer, get) ? std::string(entry.gr_name) : "gid-" + std::to_string(gid);
}

std::optional<std::uint32_t> FindUser(const std::string& name)
{
    std::vector<char> buffer;
    passwd entry{};
    const auto get = [&name](passwd* to, char* room, std::size_t size, passwd** found) {
        return ::getpwnam_r(name.c_str(), to, room, size, found);
    };
    return LookUp(entry, buffer, get) ? std::optional(entry.pw_uid) : base::ToNumber<std::uint32_t>(name);
}

std::optional<std::uint32_t> FindGroup(const std::string& name)
{
    std::vector<char> buffer;
    group entry{};
    const auto get = [&name](group* to, char* room, std::size_t size, group** found) {
        return ::getgrnam_r(name.c_str(), to, room, size, found);
    };
    return LookUp(entry, buffer, get) ? std::optional(entry.gr_gid) : base::ToNumber<std::uint32_t>(name);
}

std::string GiveToGroup(const std::string& path, std::uint32_t group)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && status.st_gid == group) return {};
    if (::lchown(path.c_str(), static_cast<uid_t>(-1), group) == 0) return {};
    return path + " can't be given to the group " + GroupName(group) + " (" + std::strerror(errno) +
           "), so its members can't use it; start the program as root, or as a user who is in that group";
}

}  // namespace ipc
