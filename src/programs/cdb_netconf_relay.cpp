// SPDX-License-Identifier: Apache-2.0
// cdb-netconf-relay: connects standard input and output with cdbd's NETCONF socket, as the program of
// OpenSSH's `Subsystem netconf`. Knows no NETCONF; runs as the user of the login.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "base/directories.h"
#include "netconf/relay.h"
#include "netconf/socket.h"

int main(int argc, char** argv)
{
    const std::string_view option = argc == 2 ? argv[1] : "";
    if (option == "--help" || option == "-h") {
        std::cout << "usage: cdb-netconf-relay [--help | --version]\n\n"
                     "Connects standard input and output with netconf.sock in $SFLOW_RUN_DIR\n"
                     "(/run/sflow-switch): the program of sshd's \"Subsystem netconf\".\n";
        return EXIT_SUCCESS;
    }
    if (option == "--version") {
        std::cout << "cdb-netconf-relay " SFLOW_VERSION "\n";
        return EXIT_SUCCESS;
    }
    if (argc != 1) {
        std::cerr << "cdb-netconf-relay: takes no arguments but --help and --version\n";
        return EXIT_FAILURE;
    }
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const base::UniqueFd server = netconf::ConnectSocket(base::RunDirectory() + "/netconf.sock");
        return netconf::Relay(STDIN_FILENO, STDOUT_FILENO, server.Get()) ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const netconf::ConnectionError& error) {
        std::cerr << "cdb-netconf-relay: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
