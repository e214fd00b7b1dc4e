// SPDX-License-Identifier: Apache-2.0
// Doing something as another user, in a child process, for tests that run as root.

#ifndef SUPPORT_AS_USER_H
#define SUPPORT_AS_USER_H

#include <functional>
#include <vector>

#include <sys/types.h>

namespace support {

struct Identity {
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups{};  // supplementary
};

/// Runs the function in a child that has become the user, and returns what it returns (0 to 99); 101 if
/// the child could not become the user, 102 if the function threw. Throws std::system_error if there is
/// no child.
int AsUser(const Identity& identity, const std::function<int()>& function);

/// Makes this process the user for connections and files while the object lives.
class ActingAs {
public:
    explicit ActingAs(const Identity& identity);
    ~ActingAs();
    ActingAs(const ActingAs&) = delete;
    ActingAs& operator=(const ActingAs&) = delete;

private:
    Identity m_before;
};

/// 0, or the errno that the user meets when connecting to the socket, or opening the file.
int ConnectAs(const Identity& identity, const char* socket);
int OpenAs(const Identity& identity, const char* file, int flags);

}  // namespace support

#endif
