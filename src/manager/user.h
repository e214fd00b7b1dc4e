// Becoming an ordinary user once what needs more has been opened.

#ifndef MANAGER_USER_H
#define MANAGER_USER_H

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

/// Gives up this process's user and groups for those of the user, for good. Throws std::system_error.
void Become(const User& user);

}  // namespace manager

#endif
