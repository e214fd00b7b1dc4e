// SPDX-License-Identifier: Apache-2.0
// Another user for a part of a test that runs as root: of this thread alone, so the agent's threads stay what
// they are.

#ifndef AGENT_OTHER_USER_H
#define AGENT_OTHER_USER_H

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "agent/agent_world.h"

namespace agent_tests {

class OtherUser {
public:
    static constexpr ::uid_t kUser = 61'201;

    OtherUser() { m_done = ::geteuid() == 0 && ::syscall(SYS_setresuid, -1, kUser, -1) == 0; }
    ~OtherUser()
    {
        if (m_done) ::syscall(SYS_setresuid, -1, 0, -1);
    }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

    /// Whether the thread is the other user's now.
    [[nodiscard]] bool Done() const { return m_done; }

private:
    bool m_done = false;
};

/// Lets all users connect.
inline void OpenToAll(const World& world)
{
    EXPECT_EQ(::chmod(world.NetconfSocket().parent_path().c_str(), 0755), 0);
    EXPECT_EQ(::chmod(world.NetconfSocket().c_str(), 0666), 0);
}

}  // namespace agent_tests

#endif
