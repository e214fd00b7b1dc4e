// SPDX-License-Identifier: Apache-2.0
// The last lines of all processes' logs, as the shell shows them, and who may add to them.

#include <cerrno>
#include <string>

#include <nlohmann/json.hpp>

#include "support/frames.h"
#include "system/other_users.h"

namespace system_tests {
namespace {

using support::AsUser;
using support::ConnectAs;
using support::FrameClient;
using LogOfAll = SystemTest;

TEST_F(LogOfAll, HasTheLinesOfEachProcessAlsoOverARestartOfTheDatabase)
{
    TheWorld().Start(scenario::Usual());
    const auto shows = [&](const std::string& process, const std::string& text) {
        Await(process + " in the log: " + text,
              [&] { return TheWorld().CliDone("show log 1000 " + process).find(text) != std::string::npos; });
    };
    shows("cdbd", "serving ");
    shows("sflow-mgr", "sFlow manager ready on ");
    shows("sflow-app", "SFlow App Run");
    EXPECT_THAT(TheWorld().CliDone("show log 1000 sflow-mgr"), Not(HasSubstr("SFlow App Run")));
    EXPECT_THAT(TheWorld().CliDone("show log 1000"), HasSubstr("SFlow App Run"));
    EXPECT_THAT(TheWorld().CliDone("show log 1000 | match serving"),
                testing::ContainsRegex("  cdbd  +notice  +serving "));

    const auto json = nlohmann::json::parse(TheWorld().CliDone("show log 3 | json"));
    const auto& entries = json.at("switch-system:get-log").at("entry");
    ASSERT_EQ(3U, entries.size());
    EXPECT_LE(entries[0].at("time"), entries[2].at("time"));

    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    shows("sflow-mgr", "connected to the database");
    shows("sflow-app", "connected to cdbd");
    EXPECT_THAT(TheWorld().CliDone("show log 1000"), Not(HasSubstr("SFlow App Run"))) << "begins anew";
}

TEST_F(LogOfAll, RefusesWhatIsNoNumberOfLinesAndNoProcess)
{
    TheWorld().StartCdbd();
    for (const std::string words : {"0", "1001", "99999999999", "-1", "nobody", "5 nobody", "cdbd 5"}) {
        const auto result = TheWorld().Cli("show log " + words);
        EXPECT_EQ(1, result.status) << words;
        EXPECT_THAT(result.errors, HasSubstr("show log")) << words;
    }
    EXPECT_THAT(TheWorld().CliDone("show log sflow-app"), HasSubstr("There is no line of sflow-app"));
}

class LogOfOthers : public OtherUsersTest {
protected:
    LogOfOthers() : OtherUsersTest({"--allow", "faults=0"}) {}
};

TEST_F(LogOfOthers, TakesLinesOnlyOfThoseWhoMayReportFaults)
{
    TheWorld().StartCdbd();
    const auto socket = TheWorld().RunDir() / "log.sock";
    EXPECT_EQ(EACCES, ConnectAs(kThird, socket.c_str()));
    EXPECT_EQ(EACCES, ConnectAs(kOperator, socket.c_str()));

    const std::string line = "1\tsflow-mgr\t13\tplace\tinvented by a member\n";
    EXPECT_EQ(0, AsUser(kMember, [&] {
                  FrameClient peer(socket);
                  peer.SendBytes(line);
                  return peer.AwaitEnd() ? 0 : 1;
              }));
    TheWorld().AwaitLog("cdbd", "lines of uid-61106");
    FrameClient root(socket);
    root.SendBytes("1\tsflow-mgr\t13\tplace\twritten by root\n");
    Await("root's line", [&] {
        return CliAs(kOperator, "show log 1000 sflow-mgr").output.find("written by root") !=
               std::string::npos;
    });
    EXPECT_THAT(CliAs(kOperator, "show log 1000").output, Not(HasSubstr("invented by a member")));
}

}  // namespace
}  // namespace system_tests
