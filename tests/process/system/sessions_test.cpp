// SPDX-License-Identifier: Apache-2.0
// Who has a session, and how another one ends it, as the shell shows and does it.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "base/user.h"
#include "system/other_users.h"

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

// Of several users, in the terms of access control.
class SessionsOfOthers : public OtherUsersTest {
protected:
    using OtherUsersTest::OtherUsersTest;

    void SetUp() override
    {
        OtherUsersTest::SetUp();
        if (IsSkipped()) return;
        TheWorld().StartCdbd();
        m_holder.emplace(Connect());
        Do(*m_holder, netconf::Lock("candidate"));
    }
    void OpenToAll() { EXPECT_EQ(0, ::chmod(TheWorld().NetconfSocket().c_str(), 0666)); }
    std::string Id() { return std::to_string(m_holder->SessionId()); }
    // The holder's session is alive, with its lock.
    void ExpectUntouched() { Do(*m_holder, netconf::DiscardChanges()); }

    std::optional<netconf::Client> m_holder;
};

TEST_F(SessionsOfOthers, AnOperatorSeesAndEndsThem)
{
    EXPECT_THAT(CliAs(kOperator, "show system sessions").output,
                testing::ContainsRegex("\n" + Id() + "  +[^ ]+  +switch  +20[0-9T:-]+Z  +candidate "));
    const auto ended = CliAs(kOperator, "request session " + Id() + " end");
    EXPECT_EQ(0, ended.status) << ended.errors;
    EXPECT_EQ("session " + Id() + " is ended\n", ended.errors);
    EXPECT_ANY_THROW(m_holder->Call(netconf::DiscardChanges()));
    const auto gone = CliAs(kOperator, "request session " + Id() + " end");
    EXPECT_EQ(1, gone.status);
    EXPECT_THAT(gone.errors, HasSubstr("there is no session " + Id()));
}

TEST_F(SessionsOfOthers, WithoutTheGroupNoneIsReached)
{
    for (const std::string command : {"show system sessions", "request session 1 end"}) {
        const auto result = CliAs(kThird, command);
        EXPECT_EQ(1, result.status) << command;
        EXPECT_EQ("", result.output) << command;
        EXPECT_THAT(result.errors, AllOf(HasSubstr("netconf.sock"), HasSubstr("ermission denied")))
            << command;
        EXPECT_THAT(result.errors, HasSubstr("group")) << "the remedy";
    }
    // With a connection, by an access list say, they may be seen; ending them stays the operators'.
    OpenToAll();
    const auto seen = CliAs(kThird, "show system sessions");
    EXPECT_EQ(0, seen.status) << seen.errors;
    const auto refused = CliAs(kThird, "request session " + Id() + " end");
    EXPECT_EQ(1, refused.status);
    EXPECT_THAT(refused.errors, HasSubstr("uid-61105 may not execute kill-session"));
    ExpectUntouched();
}

class SessionsByRules : public SessionsOfOthers {
protected:
    SessionsByRules() : SessionsOfOthers({"--access", Rules()}) {}
    ~SessionsByRules() override { std::filesystem::remove(File()); }

private:
    static std::filesystem::path File()
    {
        return std::filesystem::temp_directory_path() /
               ("session-access-" + std::to_string(::getpid()) + ".xml");
    }
    // The operator may read all but the sessions; the third user may end them, too.
    static std::string Rules()
    {
        support::WriteFile(
            File(),
            "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\" "
            "xmlns:m=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">"
            "<rule-list><name>o</name><group>gid-61104</group><rule><name>r</name>"
            "<path>/m:netconf-state/m:sessions</path><action>deny</action></rule></rule-list>"
            "<rule-list><name>t</name><group>gid-61105</group><rule><name>r</name>"
            "<rpc-name>kill-session</rpc-name><action>permit</action></rule></rule-list></nacm>");
        return File();
    }
};

TEST_F(SessionsByRules, HoldForSeeingAndForEnding)
{
    OpenToAll();
    const auto hidden = CliAs(kOperator, "show system sessions");
    EXPECT_THAT(hidden.output, Not(testing::ContainsRegex("\n" + Id() + "  "))) << hidden.output;
    const auto refused = CliAs(kOperator, "request session " + Id() + " end");
    EXPECT_EQ(1, refused.status);
    EXPECT_THAT(refused.errors, HasSubstr("may not execute kill-session"));
    ExpectUntouched();
    EXPECT_THAT(CliAs(kThird, "show system sessions").output, testing::ContainsRegex("\n" + Id() + "  "));
    EXPECT_EQ(0, CliAs(kThird, "request session " + Id() + " end").status);
    EXPECT_ANY_THROW(m_holder->Call(netconf::DiscardChanges()));
}

}  // namespace
}  // namespace system_tests
