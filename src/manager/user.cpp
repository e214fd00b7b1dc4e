#include "manager/user.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace manager {

User FindUser(const std::string& name)
{
    const passwd* entry = ::getpwnam(name.c_str());
    if (entry == nullptr)
        throw std::runtime_error("--user: there is no user \"" + name + "\" on this machine");
    return {name, entry->pw_uid, entry->pw_gid};
}

void Become(const User& user)
{
    if (::geteuid() == user.uid && ::getuid() == user.uid) return;
    if (::initgroups(user.name.c_str(), user.gid) != 0 || ::setgid(user.gid) != 0 || ::setuid(user.uid) != 0)
        throw std::system_error(errno, std::generic_category(), "--user: cannot become " + user.name);
}

}  // namespace manager
