// SPDX-License-Identifier: Apache-2.0
// The notify script for keepalived: the state it is told, and what it asks the switch for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/process.h"
#include "support/world.h"

namespace {

class Notify : public testing::Test {
protected:
    support::RunResult Told(const std::vector<std::string>& words)
    {
        const auto swcli = m_dir.Path() / "swcli";
        support::WriteFile(swcli, "#!/bin/sh\nprintf '%s|' \"$@\"\nexit 7\n");
        std::filesystem::permissions(swcli, std::filesystem::perms::owner_all);
        std::vector<std::string> argv{support::World::Tree() / "packaging/keepalived/sflow-switch-notify"};
        argv.insert(argv.end(), words.begin(), words.end());
        return support::Run(m_dir.Path(), argv, {{"SWCLI", swcli}});
    }

    support::TempDir m_dir;
};

TEST_F(Notify, AsksForTheRoleOfTheState)
{
    for (const auto& [state, role] :
         std::initializer_list<std::pair<std::string, std::string>>{{"MASTER", "go-active"},
                                                                    {"BACKUP", "go-standby"},
                                                                    {"FAULT", "go-standby"},
                                                                    {"STOP", "go-standby"}}) {
        const auto result = Told({"INSTANCE", "switch", state, "100"});
        EXPECT_EQ("-c|request ha " + role + "|", result.output) << state;
        EXPECT_EQ(7, result.status) << "the shell's own status";
    }
}

TEST_F(Notify, RefusesAStateThatItDoesNotKnow)
{
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"INSTANCE", "switch", "MASTER_RX_LOWER_PRI"}, {}}) {
        const auto result = Told(words);
        EXPECT_EQ(1, result.status);
        EXPECT_EQ("", result.output);
        EXPECT_THAT(result.errors, testing::HasSubstr("is none of MASTER, BACKUP, FAULT and STOP"));
    }
}

}  // namespace
