// SPDX-License-Identifier: Apache-2.0
// What the process may still do once everything is open: its user, its capabilities, its system calls. All of
// it is given up for good; nothing here asks for more. And what it means if something is missing.

#ifndef MANAGER_PROCESS_PRIVILEGES_H
#define MANAGER_PROCESS_PRIVILEGES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/user.h"

namespace manager {

/// Capabilities (capabilities(7)) that interfaces which appear later need.
struct LaterNeeds {
    bool packetSockets = false;  // CAP_NET_RAW
    bool programs = false;       // CAP_BPF: to attach what is loaded already
    // CAP_NET_ADMIN, to attach programs and to mark datagrams, is kept in any case; so are CAP_BPF and
    // CAP_PERFMON, with which the program that sees dropped packets is loaded when a collector wants it.
    // That is optional, so without them nothing counts as missing.
};

/// Becomes the user, if one is given, and gives up all capabilities but those of `needs`, as far as the
/// process has them; empties the bounding set if that is allowed; forbids to gain privileges by programs
/// (PR_SET_NO_NEW_PRIVS). Throws std::system_error if the user can't be changed or privileges can't be given
/// up.
///
/// Returns the names of the capabilities that are needed and missing.
std::vector<std::string> ReducePrivileges(const std::optional<base::User>& user, const LaterNeeds& needs);

/// What of the machine decides whether a missing capability impairs anything.
struct Machine {
    int kernelMajor = 0, kernelMinor = 0;
    std::uint64_t receiveLimit = 0, sendLimit = 0;  // net.core.rmem_max and wmem_max, bytes
};
/// This one. What can't be read is 0.
Machine ThisMachine();

/// What can't be done without the capability, and the remedy, for operators; empty if nothing is impaired on
/// that machine. `source` is the kind of the source of packets in use, as in SourceStatus.
std::string WithoutCapability(const std::string& capability, const std::string& source,
                              const Machine& machine);

/// Leaves the process only the system calls that its loop makes (seccomp(2)): no program is run, no file
/// system is mounted, no process is traced, and sockets are those of the families it uses. A call beyond them
/// fails with EPERM. Returns an empty text when done, else why nothing is restricted.
std::string RestrictSystemCalls();

}  // namespace manager

#endif
