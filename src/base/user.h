// SPDX-License-Identifier: Apache-2.0
// The users and groups of this machine, by name and by number.

#ifndef BASE_USER_H
#define BASE_USER_H

#include <cstdint>
#include <optional>
#include <string>

namespace base {

struct User {
    std::string name;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;  // of the primary group
};

/// Nullopt if the system has none of that name.
std::optional<User> UserNamed(const std::string& name);

/// The user's name; "uid-1234" if it has none.
std::string UserName(std::uint32_t uid);
/// The group's name; "gid-1234", or nullopt, if it has none.
std::string GroupName(std::uint32_t gid);
std::optional<std::string> NameOfGroup(std::uint32_t gid);

/// By name, else as a decimal number, which need not exist; nullopt if the text is neither.
std::optional<std::uint32_t> FindUser(const std::string& name);
std::optional<std::uint32_t> FindGroup(const std::string& name);

}  // namespace base

#endif
