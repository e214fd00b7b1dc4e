// SPDX-License-Identifier: Apache-2.0
// Access control over NETCONF, with sessions of several users.

#include <csignal>
#include <iostream>

#include "system/other_users.h"

namespace system_tests {
namespace {

class Access : public OtherUsersTest {
protected:
    using OtherUsersTest::OtherUsersTest;

    /// As an administrator does with an access list: all users can open the socket.
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

TEST_F(Access, WithoutRulesOperatorsRootAndTheOwnUserChange)
{
    TheWorld().StartCdbd();
    OpenToAll();
    const auto change = [this](const Identity& who) {
        return CliAs(who, "set oam sflow agent ipv4 192.0.2." + std::to_string(who.uid % 100) + "; commit");
    };
    for (const Identity& who : {kOperator, kSwitch, Identity{}}) {
        const auto result = change(who);
        EXPECT_EQ(result.status, 0) << who.uid << ": " << result.errors;
    }
    // A member of the processes' group alone is no operator.
    for (const Identity& who : {kMember, kThird}) {
        const auto result = change(who);
        EXPECT_EQ(result.status, 1) << who.uid;
        EXPECT_THAT(result.errors, HasSubstr("may not execute"));
        EXPECT_EQ(CliAs(who, "show configuration").status, 0) << who.uid;
    }
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

class AccessToData : public Access {
protected:
    AccessToData() : Access({"--access", Rules()}) {}
    ~AccessToData() override { std::filesystem::remove(File()); }

    netconf::Client ConnectAs(const Identity& who)
    {
        const support::ActingAs acting(who);
        return Connect();
    }

private:
    static std::filesystem::path File()
    {
        return std::filesystem::temp_directory_path() /
               ("data-access-" + std::to_string(::getpid()) + ".xml");
    }
    // A user who may execute everything may still not change collectors.
    static std::string Rules()
    {
        support::WriteFile(
            File(),
            "<nacm xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-acm\" "
            "xmlns:c=\"urn:switch:yang:switch-config\" xmlns:s=\"urn:switch:yang:switch-oam-sflow\">"
            "<write-default>permit</write-default><rule-list><name>l</name><group>gid-61104</group><rule>"
            "<name>r</name><path>/c:config/s:oam/s:sflow/s:collector</path>"
            "<access-operations>create update delete</access-operations><action>deny</action></rule>"
            "</rule-list></nacm>");
        return File();
    }
};

TEST_F(AccessToData, IsDeniedAtTheEditAndAtTheCommitAndChangesNothing)
{
    TheWorld().StartCdbd();
    auto root = Connect();
    auto client = ConnectAs(kOperator);
    const auto collector = [](const std::string& name) {
        return netconf::EditConfig(
            scenario::SflowXml("<collector><name>" + name + "</name><ip>192.0.2.1</ip></collector>"));
    };
    const auto error = Refused(client, collector("c1"), "access-denied");
    EXPECT_EQ(error.type, "application");
    EXPECT_THAT(error.path, HasSubstr("/switch-oam-sflow:collector"));
    EXPECT_EQ(client.Call(netconf::GetConfig("candidate")).data, "");

    // What it may not write it may not commit either, whose edit that ever was.
    Do(root, collector("c2"));
    const auto before = client.Call(netconf::GetConfig("candidate")).data;
    EXPECT_THAT(before, HasSubstr("c2"));
    EXPECT_EQ(Refused(client, netconf::Commit(), "access-denied").type, "application");
    EXPECT_EQ(client.Call(netconf::GetConfig("candidate")).data, before);
    EXPECT_EQ(client.Call(netconf::GetConfig("running")).data, "");
    EXPECT_TRUE(root.Call(netconf::Commit()).ok);
    EXPECT_EQ(client.Call(netconf::GetConfig("running")).data, before);
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
