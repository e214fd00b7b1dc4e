// Access control over NETCONF, with sessions of several users.

#include <csignal>
#include <iostream>

#include "system/other_users.h"

namespace system_tests {
namespace {

class Access : public OtherUsersTest {
protected:
    using OtherUsersTest::OtherUsersTest;

    /// As an administrator does with an access list: everybody can open the socket.
    void OpenToAll() { EXPECT_EQ(::chmod(TheWorld().NetconfSocket().c_str(), 0666), 0); }
};

TEST_F(Access, WithoutRulesOthersReadOnly)
{
    TheWorld().StartCdbd();
    OpenToAll();
    EXPECT_EQ(CliAs(kOperator, "set oam sflow collector c1 ip 192.0.2.1; commit").status, 0);
    const auto read = CliAs(kThird, "show configuration");
    EXPECT_EQ(read.status, 0) << read.errors;
    EXPECT_THAT(read.output, HasSubstr("c1"));
    for (const char* command :
         {"set oam sflow collector c2 ip 192.0.2.2", "commit", "discard", "request ha go-active"}) {
        const auto result = CliAs(kThird, command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_THAT(result.errors, HasSubstr("uid-61105 may not execute")) << command;
    }
    EXPECT_THAT(CliAs(kOperator, "show configuration").output, Not(HasSubstr("c2")));
}

class AccessByFile : public Access {
protected:
    static std::filesystem::path File()
    {
        return std::filesystem::temp_directory_path() / ("access-" + std::to_string(::getpid()) + ".xml");
    }
    static void Write(const std::string& action)
    {
        support::WriteFile(File(),
                           "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\">\n<rule-list>\n"
                           "<name>l</name><group>gid-61104</group>\n<rule><name>r</name>\n"
                           "<rpc-name>commit</rpc-name><action>" +
                               action + "</action></rule></rule-list></nacm>");
    }
    AccessByFile() : Access({"--access", (Write("deny"), File())}) {}
    ~AccessByFile() override { std::filesystem::remove(File()); }
};

TEST_F(AccessByFile, RulesAreReadAgainOnSighup)
{
    TheWorld().StartCdbd();
    const auto commit = [this] { return CliAs(kOperator, "commit"); };
    EXPECT_THAT(commit().errors, HasSubstr("may not execute commit"));
    Write("perhaps");
    TheWorld().Cdbd().Signal(SIGHUP);
    TheWorld().AwaitLog("cdbd", ": line 5: ");
    TheWorld().AwaitLog("cdbd", "the rules stay as they were");
    EXPECT_THAT(commit().errors, HasSubstr("may not execute commit"));
    Write("permit");
    TheWorld().Cdbd().Signal(SIGHUP);
    TheWorld().AwaitLog("cdbd", "the rules of access have been read again");
    EXPECT_EQ(commit().status, 0);
}

TEST_F(AccessByFile, OpenSessionsFollowTheRules)
{
    TheWorld().StartCdbd();
    auto client = [this] {
        const support::ActingAs acting(kOperator);
        return Connect();
    }();
    Refused(client, netconf::Commit(), "access-denied");
    Write("permit");
    TheWorld().Cdbd().Signal(SIGHUP);
    TheWorld().AwaitLog("cdbd", "the rules of access have been read again");
    Do(client, netconf::Commit());
    Write("deny");
    TheWorld().Cdbd().Signal(SIGHUP);
    Await("the rules to be read", [&client] { return !client.Call(netconf::Commit()).ok; });
}

TEST_F(AccessByFile, CdbdDoesNotStartWithABadFile)
{
    Write("perhaps");
    const auto cdbd = TheWorld().Spawn("cdbd", {"--access", File()}, "bad");
    EXPECT_EQ(cdbd->Wait(), 1);
    EXPECT_THAT(TheWorld().Log("bad"), HasSubstr(File().string() + ": line 5: "));
}

class FewSessions : public Access {
protected:
    FewSessions() : Access({"--max-sessions-per-user", "1"}) {}
};

TEST_F(FewSessions, OfOneUserAreBoundedAndTheRefusalSaysSo)
{
    TheWorld().StartCdbd();
    const int result = support::AsUser(kOperator, [this] {
        auto first = Connect();
        try {
            Connect();
            return 1;
        } catch (const netconf::ConnectionError& error) {
            if (std::string(error.what()).find("uid-61104 has 1; close one") == std::string::npos) {
                std::cerr << error.what() << std::endl;
                return 2;
            }
        }
        return first.Call(netconf::Commit()).ok ? 0 : 3;
    });
    EXPECT_EQ(result, 0);
    TheWorld().AwaitLog("cdbd", "gets no NETCONF session: too many sessions: uid-61104 has 1");
    // Root is not counted.
    auto first = Connect();
    auto second = Connect();
    Do(second, netconf::Commit());
}

}  // namespace
}  // namespace system_tests
