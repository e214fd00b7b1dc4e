// SPDX-License-Identifier: Apache-2.0
// The command line of sflow-mgr.

#ifndef MANAGER_PROCESS_OPTIONS_H
#define MANAGER_PROCESS_OPTIONS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "manager/service/operation.h"
#include "metrics/address.h"

namespace manager {

struct Options {
    std::string journal;             // empty: none
    std::string user;                // empty: the user stays
    std::string switchGroup;         // the group that manager.sock is for
    std::vector<std::string> allow;  // others that may have the session; see ipc/trust.h
    bool requireSampling = false;
    std::optional<Direction> direction;    // sampled besides what interfaces ask for
    std::string source = "auto";           // of packets, or the only one that is tried
    std::uint32_t mark = 0x73464C77;       // of the manager's own datagrams; 0: none
    std::size_t ringSize = 0;              // bytes; 0: the source's default
    bool expediteRcu = false;              // while many interfaces are attached or detached
    std::chrono::seconds resyncAfter{10};  // from the last operation of a session; 0: never
    std::optional<metrics::Address> metrics;
    bool help = false;
    bool version = false;
};

/// Throws base::UsageError.
Options ParseOptions(int argc, const char* const* argv);

std::string UsageText();

}  // namespace manager

#endif
