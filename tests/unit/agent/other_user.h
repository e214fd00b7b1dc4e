// SPDX-License-Identifier: Apache-2.0
// Another user for a part of a test that runs as root: of this thread alone, so the agent's threads stay what
// they are. And the tests of what such a user may do.

#ifndef AGENT_OTHER_USER_H
#define AGENT_OTHER_USER_H

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

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

/// Root, and a user whom access rules bind.
class BoundByRules : public testing::Test {
protected:
    /// `rules`: elements <rule> of one list that holds for all groups. The prefixes c, s and n are those of
    /// switch-config, switch-oam-sflow and ietf-netconf-monitoring.
    explicit BoundByRules(const std::string& rules) : m_world({}, File(m_directory, rules)) {}

    void SetUp() override
    {
        OpenToAll(m_world);
        const OtherUser other;
        if (!other.Done()) GTEST_SKIP() << "needs root, to become another user";
        m_bound.emplace(m_world.Connect());
    }

    Directory m_directory;
    World m_world;
    netconf::Client m_root = m_world.Connect();
    std::optional<netconf::Client> m_bound;

private:
    static std::filesystem::path File(const Directory& directory, const std::string& rules)
    {
        const auto file = directory.Path() / "access.xml";
        std::ofstream(file) << "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\" "
                               "xmlns:c=\"urn:switch:yang:switch-config\" "
                               "xmlns:n=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\" "
                               "xmlns:s=\"urn:switch:yang:switch-oam-sflow\"><rule-list><name>l</name>"
                               "<group>*</group>"
                            << rules << "</rule-list></nacm>";
        return file;
    }
};

}  // namespace agent_tests

#endif
