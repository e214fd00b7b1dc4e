// SPDX-License-Identifier: Apache-2.0
#include "manager/process/user.h"

#include <pwd.h>

#include <stdexcept>

namespace manager {

User FindUser(const std::string& name)
{
    const passwd* entry = ::getpwnam(name.c_str());
    if (entry == nullptr)
        throw std::runtime_error("--user: there is no user \"" + name + "\" on this machine");
    return {name, entry->pw_uid, entry->pw_gid};
}

}  // namespace manager
