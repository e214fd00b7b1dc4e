// SPDX-License-Identifier: Apache-2.0
#include "netconf/socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "base/user.h"

namespace netconf {
namespace {

std::string Remedy(const std::string& path, int error)
{
    struct stat status {};
    if (error != EACCES || ::stat(path.c_str(), &status) != 0) return "is cdbd running?";
    const std::string name = base::NameOfGroup(status.st_gid).value_or(std::to_string(status.st_gid));
    return "it is for members of the group " + name + " (usermod -aG " + name + " USER, then log in again)";
}

}  // namespace

base::UniqueFd ConnectSocket(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw ConnectionError("can't connect to " + path + ": the path of a socket has at most " +
                              std::to_string(sizeof address.sun_path - 1) + " characters");
    std::memcpy(address.sun_path, path.data(), path.size());
    base::UniqueFd connected(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!connected) throw ConnectionError("can't make a socket for " + path + ": " + std::strerror(errno));
    if (::connect(connected.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return connected;
    const int error = errno;
    throw ConnectionError("can't connect to " + path + ": " + std::strerror(error) + "; " +
                          Remedy(path, error));
}

}  // namespace netconf
