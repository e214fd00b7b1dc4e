#include "agent/user.h"

#include <pwd.h>
#include <sys/socket.h>

#include <vector>

namespace agent {

std::string UserName(uid_t uid)
{
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->pw_name;
    return "uid-" + std::to_string(uid);
}

std::string PeerUserName(int descriptor)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return "unknown";
    return UserName(credentials.uid);
}

}  // namespace agent
