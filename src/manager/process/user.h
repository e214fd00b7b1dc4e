// SPDX-License-Identifier: Apache-2.0
// The ordinary user that the manager becomes once what needs more has been opened: who that is. How it
// is done stands in privileges.h.

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

/// Throws std::runtime_error, which names the user, where the system knows none of that name.
User FindUser(const std::string& name);

}  // namespace manager

#endif
