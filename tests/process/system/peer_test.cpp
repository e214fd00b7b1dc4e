// SPDX-License-Identifier: Apache-2.0
// Other people's programs on the switch: NETCONF clients over the relay and over a real SSH server, all with
// the same list of operations (docs/testing.md).

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "system/ssh_server.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

constexpr const char* kPython = "/usr/bin/python3";  // Debian's own, which has ncclient
constexpr const char* kYangcli = "/usr/bin/yangcli";

// As words of the shell.
std::string Quoted(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        if (word.find('\'') != std::string::npos) throw std::runtime_error("can't be quoted: " + word);
        text += "'" + word + "' ";
    }
    return text;
}

class Peer : public SystemTest {
protected:
    Peer() { TheWorld().Start(scenario::Usual()); }

    static std::string Script() { return World::Tree() / "tests/process/system/netconf_peer.py"; }

    // Why ncclient can't be used here; empty if it can.
    std::string WithoutLibrary()
    {
        if (!std::filesystem::exists(kPython)) return std::string(kPython) + " is not installed";
        const auto result = TheWorld().Run({kPython, "-c", "import ncclient"});
        return result.status == 0 ? "" : "the package python3-ncclient is not installed";
    }

    static std::string Update(int rate)
    {
        return "UpdateInterface eth1 - - " + std::to_string(rate) + " 2 128 20";
    }

    // What the script has committed, whichever way it came; the second 21 and the second 23 are roll-backs.
    void ExpectItsCommits()
    {
        EXPECT_THAT(
            TheWorld().ManagerJournal().Until("DeleteCollector c9"),
            ElementsAre(Update(4711), Update(21), Update(22), Update(21), Update(23), Update(24), Update(23),
                        Update(25), Update(27), "AddCollector c9 192.0.2.9 6343 1400", "DeleteCollector c9"));
        AwaitSettled();
    }
};

TEST_F(Peer, LibraryManagesTheSwitchThroughTheRelay)
{
    if (const auto why = WithoutLibrary(); !why.empty()) GTEST_SKIP() << why;
    const auto result = TheWorld().Run({kPython, Script(), "relay", World::Program("cdb-netconf-relay")});
    EXPECT_EQ(0, result.status) << result.output << result.errors;
    ExpectItsCommits();
}

TEST_F(Peer, RelayEndsWithEitherSide)
{
    const auto unsaid = TheWorld().Run({World::Program("cdb-netconf-relay")});
    EXPECT_EQ(0, unsaid.status) << unsaid.errors;
    EXPECT_THAT(unsaid.output, HasSubstr("urn:ietf:params:netconf:base:1.1"));
    TheWorld().Cdbd().Kill();
    const auto alone = TheWorld().Run({World::Program("cdb-netconf-relay")});
    EXPECT_EQ(1, alone.status);
    EXPECT_THAT(alone.errors, HasSubstr(TheWorld().NetconfSocket().string()));
}

class SecureShell : public Peer {
protected:
    void SetUp() override
    {
        if (const auto why = SshServer::Missing(); !why.empty()) GTEST_SKIP() << why;
        m_server = std::make_unique<SshServer>(TheWorld());
        if (const auto why = m_server->Check(); !why.empty()) GTEST_SKIP() << why;
    }

    // The client on libnetconf2; the program ends with 77 where it was built without the library.
    static constexpr int kWithoutLibrary = 77;
    RunResult Netconf2(const std::string& mode, int port)
    {
        return TheWorld().Run({World::Program("netconf2_peer"), mode, std::to_string(port), SshServer::User(),
                               m_server->Key()});
    }

    // Runs yangcli with a script, which ends at the first command that is refused.
    RunResult Yangcli(const std::string& script)
    {
        const auto file = TheWorld().Dir() / "script";
        support::WriteFile(file, script);
        return TheWorld().Run(
            {"env", "HOME=" + TheWorld().Dir().string(), kYangcli, "--batch-mode", "--server=127.0.0.1",
             "--ncport=" + std::to_string(m_server->Port()), "--user=" + SshServer::User(), "--password=none",
             "--private-key=" + m_server->Key().string(), "--public-key=" + m_server->Key().string() + ".pub",
             "--run-script=" + file.string()});
    }

    std::unique_ptr<SshServer> m_server;
};

TEST_F(SecureShell, LibraryManagesTheSwitchThroughAnSshServer)
{
    if (const auto why = WithoutLibrary(); !why.empty()) GTEST_SKIP() << why;
    m_server->Start();
    const auto result = TheWorld().Run(
        {kPython, Script(), "ssh", std::to_string(m_server->Port()), SshServer::User(), m_server->Key()});
    EXPECT_EQ(0, result.status) << result.output << result.errors << m_server->Log();
    ExpectItsCommits();
}

TEST_F(SecureShell, Libnetconf2ManagesTheSwitch)
{
    m_server->Start();
    const auto result = Netconf2("ssh", m_server->Port());
    if (result.status == kWithoutLibrary) GTEST_SKIP() << result.errors;
    EXPECT_EQ(0, result.status) << result.output << result.errors << m_server->Log();
    EXPECT_THAT(TheWorld().ManagerJournal().Until(Update(35)),
                ElementsAre(Update(31), Update(33), Update(35)));
    AwaitSettled();
}

TEST_F(SecureShell, YangcliManagesTheSwitch)
{
    if (!std::filesystem::exists(kYangcli)) GTEST_SKIP() << "the package yangcli is not installed";
    m_server->Start();
    const auto edit = TheWorld().Dir() / "edit.xml";
    support::WriteFile(edit, Rate("eth1", 42));
    auto other = Connect();
    const auto all = Yangcli(R"(lock target=candidate
edit-config target=candidate default-operation=merge config=@)" +
                             edit.string() + R"(
validate source=candidate
get-config source=candidate
commit
unlock target=candidate
discard-changes
copy-config source=running target=candidate
get-data datastore=ds:operational config-filter=true with-origin
get-schema identifier=switch-types format=yang
create-subscription
kill-session session-id=)" + std::to_string(other.SessionId()) +
                             R"(
kill-session session-id=4000000
close-session
)");
    // The last but one is refused, and all before it were not.
    EXPECT_THAT(all.output, AllOf(HasSubstr("sampling-rate 42"), HasSubstr("max-header-size 128"),
                                  HasSubstr("module switch-types"), HasSubstr("there is no session 4000000")))
        << all.errors << m_server->Log();
    EXPECT_ANY_THROW(other.Call(netconf::DiscardChanges()));
    EXPECT_THAT(TheWorld().ManagerJournal().Until(Update(42)), ElementsAre(Update(42)));
    auto holder = Connect();
    Do(holder, netconf::Lock("candidate"));
    const auto refused = Yangcli("lock target=candidate\nget-schema identifier=switch-types\n");
    EXPECT_THAT(refused.output,
                AllOf(HasSubstr("error-tag lock-denied"), Not(HasSubstr("module switch-types"))));
}

TEST_F(SecureShell, SwitchCallsLibnetconf2)
{
    const int port = FreePort();
    // As the unit does, it calls again until the client listens.
    support::WriteFile(TheWorld().Dir() / "call", Quoted(m_server->CallHome(port)));
    const Process caller(
        {.argv = {"sh", "-c", "until sh \"$0\"; do sleep 0.1; done", TheWorld().Dir() / "call"},
         .environment = {},
         .output = {},
         .errors = TheWorld().Dir() / "calls",
         .input = {}});
    const auto result = Netconf2("callhome", port);
    if (result.status == kWithoutLibrary) GTEST_SKIP() << result.errors;
    EXPECT_EQ(0, result.status) << result.output << result.errors << m_server->Log();
    EXPECT_THAT(TheWorld().ManagerJournal().Until(Update(36)), ElementsAre(Update(36)));
}

}  // namespace

}  // namespace system_tests
