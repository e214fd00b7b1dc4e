// SPDX-License-Identifier: Apache-2.0
#include "system/ssh_server.h"

#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>

#include "support/poll.h"

namespace system_tests {

namespace {

constexpr const char* kSshServer = "/usr/sbin/sshd";

void Replace(std::string& text, const std::string& old, const std::string& with)
{
    std::size_t at = text.find(old);
    if (at == std::string::npos) throw std::runtime_error("a file of packaging/ssh does not say " + old);
    for (; at != std::string::npos; at = text.find(old, at + with.size())) text.replace(at, old.size(), with);
}

/// Started by root, the server insists on a directory below /run: it gets one that is its own.
std::vector<std::string> WithRunDirectory()
{
    if (getuid() != 0) return {};
    return {"unshare", "-m", "sh", "-c", "mount -t tmpfs none /run && mkdir /run/sshd && exec \"$0\" \"$@\""};
}

}  // namespace

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

std::string SshServer::Missing()
{
    return std::filesystem::exists(kSshServer) ? "" : "the package openssh-server is not installed";
}

SshServer::SshServer(support::World& world, const std::string& address)
    : m_world(world), m_dir(world.Dir() / "ssh"), m_port(FreePort())
{
    std::filesystem::create_directories(m_dir);
    std::filesystem::permissions(m_dir, std::filesystem::perms::owner_all);
    for (const auto* key : {"host", "user"})
        if (m_world.Run({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", m_dir / key}).status != 0)
            throw std::runtime_error("ssh-keygen makes no key");
    // A script, because the server does not hand its environment on.
    std::string script = "#!/bin/sh\n";
    for (const auto& [name, value] : m_world.Environment("relay"))
        script += "export " + name + "='" + value + "'\n";
    const auto relay = m_dir / "cdb-netconf-relay";
    support::WriteFile(relay,
                       script + "exec " + support::World::Program("cdb-netconf-relay").string() + "\n");
    std::filesystem::permissions(relay, std::filesystem::perms::owner_all);

    std::string shipped = Shipped("netconf.conf");
    Replace(shipped, "Port 22\n", "ListenAddress " + address + "\n");
    Replace(shipped, "Port 830\n", "Port " + std::to_string(m_port) + "\n");
    support::WriteFile(m_dir / "netconf.conf", shipped);
    support::WriteFile(m_dir / "config", "Include " + (m_dir / "netconf.conf").string() + "\nHostKey " +
                                             (m_dir / "host").string() +
                                             "\nPidFile none\nStrictModes no\nUsePAM no\n" +
                                             "PermitRootLogin prohibit-password\nAuthorizedKeysFile " +
                                             (m_dir / "user.pub").string() + "\n");
}

std::string SshServer::Shipped(const std::string& name) const
{
    std::string text = support::ReadFile(support::World::Tree() / "packaging/ssh" / name);
    Replace(text, "@BINDIR@", m_dir);
    return text;
}

std::vector<std::string> SshServer::Server(const std::vector<std::string>& options) const
{
    std::vector<std::string> argv = WithRunDirectory();
    argv.emplace_back(kSshServer);
    argv.insert(argv.end(), options.begin(), options.end());
    argv.insert(argv.end(), {"-f", m_dir / "config"});
    return argv;
}

std::vector<std::string> SshServer::CallHome(int port) const
{
    const std::string unit = Shipped("netconf-callhome@.service");
    const std::string begin = "ExecStart=/bin/bash -c '";
    const std::size_t from = unit.find(begin);
    if (from == std::string::npos) throw std::runtime_error("the unit does not say " + begin);
    std::string command = unit.substr(from + begin.size());
    command.erase(command.find("'\n"));
    Replace(command, "%i/4334", "127.0.0.1/" + std::to_string(port));
    Replace(command, "sshd -i",
            "sshd -i -f " + (m_dir / "config").string() + " -E " + (m_dir / "log").string());
    std::vector<std::string> argv = WithRunDirectory();
    argv.insert(argv.end(), {"/bin/bash", "-c", command});
    return argv;
}

std::string SshServer::Check()
{
    const auto check = m_world.Run(Server({"-t"}));
    return check.status == 0 ? "" : "the server can't be run as this user: " + check.errors;
}

void SshServer::Start()
{
    m_process = std::make_unique<support::Process>(support::Command{
        .argv = Server({"-D", "-e"}), .environment = {}, .output = {}, .errors = m_dir / "log", .input = {}});
    support::Await("the server to listen",
                   [this] { return Log().find("Server listening") != std::string::npos; });
}

std::string SshServer::User() { return getpwuid(getuid())->pw_name; }

std::string SshServer::Log() const
{
    const auto file = m_dir / "log";
    return std::filesystem::exists(file) ? support::ReadFile(file) : "";
}

}  // namespace system_tests
