// SPDX-License-Identifier: Apache-2.0
// Other people's programs on the switch: a NETCONF client library over the relay and over a real SSH
// server.

#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "system/system_test.h"

namespace system_tests {

namespace {

constexpr const char* kPython = "/usr/bin/python3";  // Debian's own, which has ncclient
constexpr const char* kSshServer = "/usr/sbin/sshd";

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

    // What the script has committed, whichever way it came; the second 21 is a roll-back.
    void ExpectItsCommits()
    {
        const auto update = [](int rate) {
            return "UpdateInterface eth1 - - " + std::to_string(rate) + " 2 128 20";
        };
        EXPECT_THAT(TheWorld().ManagerJournal().Until("DeleteCollector c9"),
                    ElementsAre(update(4711), update(21), update(22), update(21), update(23), update(25),
                                "AddCollector c9 192.0.2.9 6343 1400", "DeleteCollector c9"));
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

// A port that was free a moment ago.
int FreePort()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), size) != 0)
        throw std::runtime_error("no free port");
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    close(descriptor);
    return ntohs(address.sin_port);
}

class SecureShell : public Peer {
protected:
    // Writes keys and the server's configuration; the relay is its subsystem.
    void Prepare()
    {
        m_dir = TheWorld().Dir() / "ssh";
        std::filesystem::create_directories(m_dir);
        std::filesystem::permissions(m_dir, std::filesystem::perms::owner_all);
        for (const auto* key : {"host", "user"})
            ASSERT_EQ(
                0, TheWorld().Run({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", m_dir / key}).status);
        // A script, because the server does not hand its environment on.
        std::string script = "#!/bin/sh\n";
        for (const auto& [name, value] : TheWorld().Environment("relay"))
            script += "export " + name + "='" + value + "'\n";
        support::WriteFile(m_dir / "subsystem",
                           script + "exec " + World::Program("cdb-netconf-relay").string() + "\n");
        std::filesystem::permissions(m_dir / "subsystem", std::filesystem::perms::owner_all);
        m_port = FreePort();
        support::WriteFile(m_dir / "config", "ListenAddress 127.0.0.1:" + std::to_string(m_port) +
                                                 "\nHostKey " + (m_dir / "host").string() +
                                                 "\nPidFile none\nStrictModes no\nUsePAM no\n" +
                                                 "PermitRootLogin prohibit-password\nAuthorizedKeysFile " +
                                                 (m_dir / "user.pub").string() + "\nSubsystem netconf " +
                                                 (m_dir / "subsystem").string() + "\n");
    }

    // Started by root, the server insists on a directory below /run: it gets one that is its own.
    std::vector<std::string> Server(const std::vector<std::string>& options)
    {
        std::vector<std::string> argv{kSshServer};
        if (getuid() == 0)
            argv = {"unshare",
                    "-m",
                    "sh",
                    "-c",
                    "mount -t tmpfs none /run && mkdir /run/sshd && exec \"$0\" \"$@\"",
                    kSshServer};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.insert(argv.end(), {"-f", m_dir / "config"});
        return argv;
    }

    std::filesystem::path m_dir;
    int m_port = 0;
};

TEST_F(SecureShell, LibraryManagesTheSwitchThroughAnSshServer)
{
    if (const auto why = WithoutLibrary(); !why.empty()) GTEST_SKIP() << why;
    if (!std::filesystem::exists(kSshServer)) GTEST_SKIP() << "the package openssh-server is not installed";
    Prepare();
    if (const auto check = TheWorld().Run(Server({"-t"})); check.status != 0)
        GTEST_SKIP() << "the server can't be run as this user: " << check.errors;
    Process server({.argv = Server({"-D", "-e"}),
                    .environment = {},
                    .output = {},
                    .errors = m_dir / "log",
                    .input = {}});
    Await("the server to listen",
          [this] { return support::ReadFile(m_dir / "log").find("Server listening") != std::string::npos; });
    const std::string user = getpwuid(getuid())->pw_name;
    const auto result =
        TheWorld().Run({kPython, Script(), "ssh", std::to_string(m_port), user, m_dir / "user"});
    EXPECT_EQ(0, result.status) << result.output << result.errors << support::ReadFile(m_dir / "log");
    ExpectItsCommits();
}

}  // namespace

}  // namespace system_tests
