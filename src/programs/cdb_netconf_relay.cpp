// SPDX-License-Identifier: Apache-2.0
// cdb-netconf-relay: connects standard input and output with cdbd's NETCONF socket, as the program of
// OpenSSH's `Subsystem netconf`. Knows no NETCONF; runs as the user of the login.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "base/directories.h"
#include "base/options/options.h"
#include "netconf/origin.h"
#include "netconf/relay.h"
#include "netconf/socket.h"

int main(int argc, char** argv)
{
    bool help = false, version = false;
    const base::Options options(help, version);
    try {
        options.Read({argv + 1, argv + argc});
        if (help)
            std::cout << "usage: cdb-netconf-relay [--help | --version]\n\n"
                         "Connects standard input and output with netconf.sock in $SFLOW_RUN_DIR\n"
                         "(/run/sflow-switch): the program of sshd's \"Subsystem netconf\".\n\n"
                      << options.Text();
        if (version) std::cout << base::VersionText("cdb-netconf-relay");
        if (help || version) return EXIT_SUCCESS;
        std::signal(SIGPIPE, SIG_IGN);
        const base::UniqueFd server = netconf::ConnectSocket(base::RunDirectory() + "/netconf.sock");
        const char* connection = std::getenv("SSH_CONNECTION");
        const std::string origin = netconf::OriginLine(connection == nullptr ? "" : connection);
        // A new socket takes so little at once. If it does not, the server has gone: the relay sees that.
        if (!origin.empty()) static_cast<void>(::write(server.Get(), origin.data(), origin.size()));
        return netconf::Relay(STDIN_FILENO, STDOUT_FILENO, server.Get()) ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::cerr << "cdb-netconf-relay: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
