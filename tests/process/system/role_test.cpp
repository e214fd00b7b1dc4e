// SPDX-License-Identifier: Apache-2.0
// The node's role in a redundant pair: told to the processes, kept over the end of each of them.

#include <nlohmann/json.hpp>

#include "system/system_test.h"

namespace system_tests {
namespace {

class NodeRole : public SystemTest {
protected:
    /// "standby: sflow-app standby, sflow-mgr standby"
    std::string Roles()
    {
        const auto document = nlohmann::json::parse(TheWorld().CliDone("show system processes | json"));
        const auto& system = document.at("switch-state:state").at("system");
        std::string text = system.value("role", "none") + ":";
        for (const auto& process : system.value("process", nlohmann::json::array()))
            text += " " + process.at("name").get<std::string>() + " " + process.value("role", "none");
        return text;
    }

    void AwaitRoles(const std::string& role)
    {
        const std::string wanted = role + ": sflow-app " + role + " sflow-mgr " + role;
        Await(wanted, [&] { return Roles() == wanted; });
    }
};

TEST_F(NodeRole, IsToldToAProcessThatReturnsAndKeptByTheDatabase)
{
    TheWorld().Start(scenario::Usual());
    EXPECT_THAT(Roles(), testing::StartsWith("unknown:"));
    TheWorld().CliDone("request ha go-standby");
    AwaitRoles("standby");
    const auto since = [this] {
        const std::string text = TheWorld().CliDone("show system processes");
        EXPECT_THAT(text, testing::StartsWith("This node is standby since "));
        return text.substr(0, text.find('\n'));
    };
    const std::string before = since();

    for (int round = 0; round < 2; ++round) {
        TheWorld().Daemon().Kill();
        TheWorld().StartDaemon();
        TheWorld().AwaitLoad();
        AwaitRoles("standby");
        TheWorld().Cdbd().Kill();
        TheWorld().StartCdbd();
        AwaitRoles("standby");
        TheWorld().AwaitLoad();
        EXPECT_EQ(before, since());
    }
    Commit(Rate("eth1", 91));
    EXPECT_THAT(TheWorld().ManagerJournal().Until("UpdateInterface eth1 - - 91 2 128 20"),
                ElementsAre("UpdateInterface eth1 - - 91 2 128 20"));

    // Once more, with another role, and the manager gone meanwhile.
    TheWorld().Manager().Kill();
    Await("the manager's end is seen", [this] { return Roles().find("sflow-mgr") == std::string::npos; });
    TheWorld().CliDone("request ha go-active");
    TheWorld().StartManager();
    AwaitRoles("active");
    EXPECT_THAT(TheWorld().Log("sflow-app"), Not(HasSubstr(" 13 ")));
}

}  // namespace
}  // namespace system_tests
