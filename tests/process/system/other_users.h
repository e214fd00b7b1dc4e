// SPDX-License-Identifier: Apache-2.0
// A switch whose processes are of a user of their own, with a group for them and one for operators, as the
// units start it. Users and groups are numbers that no machine gives names to. Needs root.

#ifndef SYSTEM_OTHER_USERS_H
#define SYSTEM_OTHER_USERS_H

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/as_user.h"
#include "system/system_test.h"

namespace system_tests {

using support::Identity;

constexpr gid_t kSwitchGroup = 61'102;
constexpr gid_t kAdminGroup = 61'103;
const Identity kSwitch{61'101, kSwitchGroup, {kAdminGroup}};  // of the processes
const Identity kMember{61'106, kSwitchGroup, {}};             // another user of the processes' group
const Identity kOperator{61'104, 61'104, {kAdminGroup}};
const Identity kThird{61'105, 61'105, {}};

inline std::vector<std::string> Setpriv(const Identity& identity)
{
    std::string groups;
    for (const gid_t group : identity.groups) groups += (groups.empty() ? "" : ",") + std::to_string(group);
    std::vector<std::string> command{
        "setpriv",     "--reuid", std::to_string(identity.uid), "--regid", std::to_string(identity.gid),
        "--pdeathsig", "KILL"};
    if (groups.empty())
        command.emplace_back("--clear-groups");
    else
        command.insert(command.end(), {"--groups", groups});
    return command;
}

inline WorldOptions OtherUsers(std::vector<std::string> cdbdArguments = {})
{
    WorldOptions options;
    const std::string own = std::to_string(kSwitchGroup);
    options.cdbdArguments = {"--switch-group", own, "--admin-group", std::to_string(kAdminGroup)};
    options.cdbdArguments.insert(options.cdbdArguments.end(), cdbdArguments.begin(), cdbdArguments.end());
    options.managerArguments = {"--switch-group", own};
    if (::geteuid() == 0) options.through = Setpriv(kSwitch);
    return options;
}

class OtherUsersTest : public SystemTest {
protected:
    explicit OtherUsersTest(const std::vector<std::string>& cdbdArguments = {})
        : SystemTest(OtherUsers(cdbdArguments))
    {
        for (const auto& directory : {TheWorld().Dir(), TheWorld().RunDir(), TheWorld().StateDir()}) {
            if (::geteuid() != 0) break;
            EXPECT_EQ(::chown(directory.c_str(), kSwitch.uid, kSwitch.gid), 0);
        }
        ::chmod(TheWorld().Dir().c_str(), 0711);  // so that others get as far as the run directory
        ::chmod(TheWorld().RunDir().c_str(), 0751);
        ::chmod(TheWorld().StateDir().c_str(), 0750);
    }

    void SetUp() override
    {
        if (::geteuid() != 0) GTEST_SKIP() << "becomes other users, which only root may";
    }

    /// A command of the shell, as the user.
    RunResult CliAs(const Identity& identity, const std::string& commands)
    {
        auto argv = Setpriv(identity);
        argv.insert(argv.end(), {World::Program("swcli"), "-c", commands});
        auto environment = TheWorld().Environment("cli");
        environment["SFLOW_LOG"] = "-";
        return support::Run(TheWorld().Dir(), argv, environment, "");
    }
};

}  // namespace system_tests

#endif
