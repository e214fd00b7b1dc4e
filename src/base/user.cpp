// SPDX-License-Identifier: Apache-2.0
#include "base/user.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include "base/number.h"

namespace base {
namespace {

constexpr std::size_t kEntrySize = 16384;  // of a line of the user database; a group may have many members
constexpr std::size_t kLongestEntry = std::size_t{1} << 22;

/// Calls a function of the getpwnam_r family with a buffer that grows to what it needs, at most
/// kLongestEntry.
/// `take` makes the result of the entry; nullopt if there is none.
template <typename Entry, typename Get, typename Take>
auto LookUp(Get get, Take take) -> std::optional<decltype(take(Entry{}))>
{
    Entry entry{};
    std::vector<char> buffer;
    for (std::size_t size = kEntrySize; size <= kLongestEntry; size *= 4) {
        buffer.resize(size);
        Entry* found = nullptr;
        const int error = get(&entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) continue;
        return error == 0 && found != nullptr ? std::optional(take(entry)) : std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

std::string UserName(std::uint32_t uid)
{
    const auto get = [uid](auto... room) { return ::getpwuid_r(uid, room...); };
    return LookUp<passwd>(get, [](const passwd& entry) { return std::string(entry.pw_name); })
        .value_or("uid-" + std::to_string(uid));
}

std::optional<std::string> NameOfGroup(std::uint32_t gid)
{
    const auto get = [gid](auto... room) { return ::getgrgid_r(gid, room...); };
    return LookUp<group>(get, [](const group& entry) { return std::string(entry.gr_name); });
}

std::string GroupName(std::uint32_t gid) { return NameOfGroup(gid).value_or("gid-" + std::to_string(gid)); }

std::optional<User> UserNamed(const std::string& name)
{
    const auto get = [&name](auto... room) { return ::getpwnam_r(name.c_str(), room...); };
    return LookUp<passwd>(get, [&name](const passwd& entry) {
        return User{name, entry.pw_uid, entry.pw_gid};
    });
}

std::optional<std::uint32_t> FindUser(const std::string& name)
{
    const auto user = UserNamed(name);
    return user ? user->uid : ToNumber<std::uint32_t>(name);
}

std::optional<std::uint32_t> FindGroup(const std::string& name)
{
    const auto get = [&name](auto... room) { return ::getgrnam_r(name.c_str(), room...); };
    const auto gid = LookUp<group>(get, [](const group& entry) { return entry.gr_gid; });
    return gid ? gid : ToNumber<std::uint32_t>(name);
}

}  // namespace base
