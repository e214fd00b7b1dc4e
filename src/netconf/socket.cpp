// SPDX-License-Identifier: Apache-2.0
#include "netconf/socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <string>

#include "base/user.h"

namespace netconf {
namespace {

constexpr const char* kSocketName = "/netconf.sock";
constexpr std::size_t kMostNamed = 3;

/// The sockets of that name that listen on this machine and that this user may open, in the kernel's list:
/// for each its directory.
std::set<std::string> NetconfSockets()
{
    std::ifstream list("/proc/net/unix");
    std::set<std::string> directories;
    for (std::string line; std::getline(list, line);) {
        const auto at = line.find(" /");
        if (at == std::string::npos || !line.ends_with(kSocketName)) continue;
        const std::string path = line.substr(at + 1);
        if (::access(path.c_str(), W_OK) != 0) continue;
        directories.insert(path.substr(0, path.size() - std::strlen(kSocketName)));
    }
    return directories;
}

/// What to set for a switch that is running elsewhere, or how to start one.
std::string Running(const std::set<std::string>& directories)
{
    if (directories.empty())
        return "Start the switch: systemctl start sflow-switch.target, or tools/switch up";
    std::string text = directories.size() == 1 ? "A switch is elsewhere: " : "Switches are elsewhere: ";
    std::size_t named = 0;
    for (const std::string& each : directories) {
        if (named == kMostNamed) return text + " or others";
        text += (named++ == 0 ? "export SFLOW_RUN_DIR=" : " or ") + each;
    }
    return text;
}

std::string Remedy(const std::string& path, int error)
{
    struct stat status {};
    if (error != EACCES || ::stat(path.c_str(), &status) != 0)
        return "is cdbd running? " + Running(NetconfSockets());
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
