// SPDX-License-Identifier: Apache-2.0
#include "support/as_user.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <system_error>

#include "support/frames.h"

namespace support {
namespace {

constexpr int kCannotBecome = 101;
constexpr int kThrew = 102;

bool Become(const Identity& identity)
{
    return ::setgroups(identity.groups.size(), identity.groups.data()) == 0 &&
           ::setresgid(identity.gid, identity.gid, identity.gid) == 0 &&
           ::setresuid(identity.uid, identity.uid, identity.uid) == 0;
}

}  // namespace

int AsUser(const Identity& identity, const std::function<int()>& function)
{
    std::cout.flush();
    const pid_t child = ::fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        int result = kCannotBecome;
        try {
            if (Become(identity)) result = function();
        } catch (const std::exception& error) {
            std::cerr << error.what() << std::endl;
            result = kThrew;
        }
        ::_exit(result);  // the parent tears the test down
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

ActingAs::ActingAs(const Identity& identity) : m_before{::geteuid(), ::getegid(), {}}
{
    m_before.groups.resize(static_cast<std::size_t>(::getgroups(0, nullptr)));
    ::getgroups(static_cast<int>(m_before.groups.size()), m_before.groups.data());
    if (::setgroups(identity.groups.size(), identity.groups.data()) != 0 || ::setegid(identity.gid) != 0 ||
        ::seteuid(identity.uid) != 0)
        throw std::system_error(errno, std::generic_category(), "becoming another user");
}

ActingAs::~ActingAs()
{
    if (::seteuid(m_before.uid) != 0 || ::setegid(m_before.gid) != 0 ||
        ::setgroups(m_before.groups.size(), m_before.groups.data()) != 0)
        std::abort();  // the test would go on as another user and fail for that reason
}

int ConnectAs(const Identity& identity, const char* socket)
{
    return AsUser(identity, [socket] {
        const sockaddr_un address = UnixAddress(socket);
        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        return ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
                   ? 0
                   : errno;
    });
}

int OpenAs(const Identity& identity, const char* file, int flags)
{
    return AsUser(identity, [file, flags] { return ::open(file, flags | O_CLOEXEC) >= 0 ? 0 : errno; });
}

}  // namespace support
