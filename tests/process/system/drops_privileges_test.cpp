// SPDX-License-Identifier: Apache-2.0
// Dropped packets with the privileges that the units give to the manager, and without those that Linux asks
// for. Needs root, and setpriv for the latter.

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "system/drops.h"

namespace system_tests {
namespace {

/// The manager lacks what Linux asks for to look at dropped packets. CAP_SYS_ADMIN would stand for it.
class DropsWithoutPrivilege : public Drops {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) GTEST_SKIP() << "only root has privileges to give up";
        Drops::SetUp();
    }
    [[nodiscard]] WorldOptions Options() const override
    {
        WorldOptions options = Drops::Options();
        options.through = {"setpriv", "--bounding-set=-perfmon,-sys_admin", "--inh-caps=-all"};
        return options;
    }
};

TEST_F(DropsWithoutPrivilege, AreNotLookedAtAndAllElseGoesOn)
{
    Start();
    Commit(kWanted);
    support::Await("the manager to say why it does not look at them", [&] {
        return Sflow().at("manager").value("discard-interfaces-reason", "").find("CAP_PERFMON") !=
               std::string::npos;
    });
    const nlohmann::json manager = Sflow().at("manager");
    const std::string reason = manager.at("discard-interfaces-reason");
    EXPECT_EQ("none", manager.at("discard-interfaces"));
    EXPECT_THAT(reason, HasSubstr("Operation not permitted; needs CAP_BPF and CAP_PERFMON"));
    EXPECT_THAT(m_world->CliDone("show sflow drops"),
                testing::StartsWith("Dropped packets\n  Not looked at  "));
    const std::string logged = "dropped packets can't be seen: " + reason;
    EXPECT_THAT(m_world->Log("sflow-mgr"), HasSubstr(logged));
    EXPECT_EQ(0U, Numbers().At("sflow_drops_watched"));

    const Sampled before = Sample();
    Commit("set oam sflow-manager discard-limit 7");  // tries again
    EXPECT_EQ(before.sample + 1, Sample().sample);
    const std::string log = m_world->Log("sflow-mgr");
    EXPECT_EQ(log.find(logged), log.rfind(logged)) << "it says so once";
    EXPECT_EQ(0U, DiscardsAt("busy").size());
}

/// As the units start it: the manager begins as root and becomes another user before it looks at drops.
class DropsAsAnotherUser : public Drops {
protected:
    static constexpr const char* kGroup = "65534";
    void SetUp() override
    {
        if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
        Drops::SetUp();
        if (IsSkipped()) return;
        ASSERT_EQ(0, ::chmod(m_world->Dir().c_str(), 0711));
        ASSERT_EQ(0, ::chmod(m_world->RunDir().c_str(), 0751));
        ASSERT_EQ(0, ::chmod(m_world->StateDir().c_str(), 0750));
        ASSERT_EQ(0, ::chown(m_world->StateDir().c_str(), 0, static_cast<gid_t>(std::stoul(kGroup))));
    }
    [[nodiscard]] WorldOptions Options() const override
    {
        WorldOptions options = Drops::Options();
        options.cdbdArguments = {"--switch-group", kGroup};
        for (const char* const argument : {"--switch-group", kGroup, "--user", "nobody"})
            options.managerArguments.emplace_back(argument);
        return options;
    }
};

TEST_F(DropsAsAnotherUser, AreToldByIt)
{
    Start();
    struct stat process {};
    ASSERT_EQ(0, ::stat(("/proc/" + std::to_string(m_world->Manager().Pid())).c_str(), &process));
    EXPECT_EQ(65534U, process.st_uid);
    Watch(kWanted);
    SendToOther(3);
    const auto told = AwaitDiscards("busy", 3);
    ASSERT_EQ(3U, told.size());
    EXPECT_EQ(kOtherHost, told.front().linuxReason);
    EXPECT_TRUE(told.front().function);
    EXPECT_EQ(3U, PacketsShown("busy"));
}

}  // namespace
}  // namespace system_tests
