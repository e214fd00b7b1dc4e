// SPDX-License-Identifier: Apache-2.0
#include "ipc/trust.h"
#include "base/user.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace ipc {
namespace {

struct RoleRow {
    Role role;
    std::string_view name;  // on the command line
    std::string_view what;  // in a refusal
};

constexpr std::array<RoleRow, 5> kRoles{{
    {Role::kSubscribe, "subscribe", "subscribe to the configuration"},
    {Role::kCallpoint, "callpoint", "register a callpoint"},
    {Role::kState, "state", "provide state"},
    {Role::kFaults, "faults", "report faults"},
    {Role::kSession, "session", "have the session with the sFlow manager"},
}};

const RoleRow& RowOf(Role role)
{
    return *std::find_if(kRoles.begin(), kRoles.end(),
                         [role](const RoleRow& row) { return row.role == role; });
}

}  // namespace

Trust::Trust(std::string program, std::string group)
    : m_program(std::move(program)), m_group(std::move(group))
{
    const auto found = m_group.empty() ? std::nullopt : base::FindGroup(m_group);
    if (!found) return;
    for (Holders& holders : m_roles) holders.groups.push_back(*found);
}

std::string Trust::RoleNames()
{
    std::string names;
    for (const RoleRow& row : kRoles) names.append(names.empty() ? "" : ", ").append(row.name);
    return names;
}

std::string Trust::Allow(std::string_view text)
{
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const auto* row =
        std::find_if(kRoles.begin(), kRoles.end(), [name](const RoleRow& each) { return each.name == name; });
    if (row == kRoles.end() || equals == std::string_view::npos)
        return "\"" + std::string(text) +
               "\" is no ROLE=USER,@GROUP,... with one of these roles: " + RoleNames();
    Holders holders;
    for (std::size_t begin = equals + 1; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const bool isGroup = begin < end && text[begin] == '@';
        const std::string who(text.substr(begin + (isGroup ? 1 : 0), end - begin - (isGroup ? 1 : 0)));
        const auto found = isGroup ? base::FindGroup(who) : base::FindUser(who);
        if (!found)
            return "\"" + std::string(text) + "\": there is no " + (isGroup ? "group" : "user") + " \"" +
                   who + "\" on this machine";
        (isGroup ? holders.groups : holders.users).push_back(*found);
        begin = end + 1;
    }
    m_roles.at(static_cast<std::size_t>(row->role)) = std::move(holders);
    return {};
}

std::optional<std::string> Trust::Refusal(Role role, const PeerCredentials& peer) const
{
    // Asked each time, because the process may have changed its user since it began.
    if (peer.uid == 0 || peer.uid == ::geteuid()) return std::nullopt;
    const Holders& holders = m_roles.at(static_cast<std::size_t>(role));
    const auto& users = holders.users;
    if (std::find(users.begin(), users.end(), peer.uid) != users.end()) return std::nullopt;
    for (const std::uint32_t group : holders.groups)
        if (peer.IsMember(group)) return std::nullopt;
    const RoleRow& row = RowOf(role);
    const std::string user = base::UserName(peer.uid);
    const std::string own = ::geteuid() == 0 ? "root" : base::UserName(::geteuid()) + " or as root";
    const std::string remedy =
        holders.groups.empty() ? "run it as " + own
                               : "run it as a member of the group " + base::GroupName(holders.groups.front());
    return "the user " + user + " may not " + std::string(row.what) + "; " + remedy + ", or start " +
           m_program + " with --allow " + std::string(row.name) + "=" + user;
}

}  // namespace ipc
