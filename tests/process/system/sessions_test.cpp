// SPDX-License-Identifier: Apache-2.0
// Who has a session, and how another one ends it, as the shell shows and does it.

#include <unistd.h>

#include <string>

#include <nlohmann/json.hpp>

#include "base/user.h"
#include "system/system_test.h"

namespace system_tests {
namespace {

using SessionsTest = SystemTest;

TEST_F(SessionsTest, AreShownWithTheirLocksAndEditsAndEndedByTheirNumber)
{
    TheWorld().Start(scenario::Usual());
    auto holder = Connect();
    Do(holder, netconf::Lock("candidate"));
    Do(holder, netconf::EditConfig(Rate("eth1", 777)));
    const std::string id = std::to_string(holder.SessionId());
    const std::string user = base::UserName(::getuid());

    const std::string shown = TheWorld().CliDone("show system sessions");
    EXPECT_THAT(shown, testing::ContainsRegex("\n" + id + "  +" + user +
                                              "  +switch  +20[0-9T:-]+Z  +candidate  +1\n"));
    EXPECT_THAT(shown, testing::ContainsRegex("\n[0-9]+ \\*  +" + user + " ")) << "the shell's own";
    const auto json = nlohmann::json::parse(TheWorld().CliDone("show system sessions | json"));
    EXPECT_TRUE(json.contains("ietf-netconf-monitoring:netconf-state"));
    EXPECT_TRUE(json.contains("switch-state:state"));

    const auto refused = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 5");
    EXPECT_EQ(1, refused.status);
    EXPECT_THAT(refused.errors, testing::ContainsRegex("candidate is locked by " + user + " .session " + id +
                                                       ", on the switch. for [0-9]+ s; "));

    EXPECT_EQ("session " + id + " is ended\n", TheWorld().Cli("request session " + id + " end").errors);
    Await("the lock to be free",
          [&] { return TheWorld().Cli("set oam sflow interface eth1 sampling-rate 5").status == 0; });
    EXPECT_THAT(TheWorld().CliDone("show system sessions"), Not(HasSubstr("\n" + id + " ")));

    for (const std::string& number : {id, std::string("0"), std::string("99999999999")})
        EXPECT_EQ(1, TheWorld().Cli("request session " + number + " end").status) << number;
    EXPECT_EQ(1, TheWorld().Cli("request session " + id).status) << "without end";
}

}  // namespace
}  // namespace system_tests
