// SPDX-License-Identifier: Apache-2.0
// The ordinary user that the manager becomes once it has opened what needs privileges: its name and ids.
// privileges.h makes the change.

#ifndef MANAGER_PROCESS_USER_H
#define MANAGER_PROCESS_USER_H

#include <cstdint>
#include <string>

namespace manager {

struct User {
    std::string name;
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
};

/// Throws std::runtime_error, which names the user, if the system has none of that name.
User FindUser(const std::string& name);

}  // namespace manager

#endif
