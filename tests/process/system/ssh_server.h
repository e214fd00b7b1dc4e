// SPDX-License-Identifier: Apache-2.0
// An OpenSSH server of the test's own, on a port of its own (of the loopback interface unless a test says
// otherwise) and with keys of its own, which serves NETCONF of a World as the file in packaging/ssh says.

#ifndef SYSTEM_SSH_SERVER_H
#define SYSTEM_SSH_SERVER_H

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/world.h"

namespace system_tests {

class SshServer {
public:
    /// Why no server can be run here; empty if one can.
    static std::string Missing();

    /// Writes keys and settings. `world` must outlive this. Runs in the namespace of the thread that starts
    /// it.
    explicit SshServer(support::World& world, const std::string& address = "127.0.0.1");

    /// Why this user can't run it; empty if it can.
    std::string Check();
    /// Returns when it listens.
    void Start();
    /// What calls a client at the port (RFC 8071) and serves it, as the unit in packaging/ssh does.
    [[nodiscard]] std::vector<std::string> CallHome(int port) const;

    [[nodiscard]] int Port() const { return m_port; }
    /// Who may log in: the user of this process, by the key in that file; the public one is beside it,
    /// ".pub".
    [[nodiscard]] static std::string User();
    [[nodiscard]] std::filesystem::path Key() const { return m_dir / "user"; }
    [[nodiscard]] std::string Log() const;

private:
    [[nodiscard]] std::vector<std::string> Server(const std::vector<std::string>& options) const;
    /// The file of packaging/ssh, with the place of the World's relay in it.
    [[nodiscard]] std::string Shipped(const std::string& name) const;

    support::World& m_world;
    std::filesystem::path m_dir;
    int m_port;
    std::unique_ptr<support::Process> m_process;
};

/// A port that was free a moment ago.
int FreePort();

}  // namespace system_tests

#endif
