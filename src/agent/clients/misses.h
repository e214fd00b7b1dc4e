// SPDX-License-Identifier: Apache-2.0
// What is kept of a subscriber that does not acknowledge commits in time: what it misses while it is
// connected (Client) and after it was disconnected for it (Clients).

#ifndef AGENT_CLIENTS_MISSES_H
#define AGENT_CLIENTS_MISSES_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/schema_table.h"

namespace agent {

/// The commits in a row that a subscriber has not acknowledged in time, until it has loaded the
/// configuration.
struct Misses {
    /// After so many, a subscriber is not waited for until it has loaded.
    static constexpr std::uint64_t kMostAwaited = 2;

    std::uint64_t commits = 0;
    std::int64_t sinceUs = 0;  // of the first, microseconds since the epoch

    void Add(std::int64_t nowUs)
    {
        if (commits++ == 0) sinceUs = nowUs;
    }
    [[nodiscard]] bool Any() const { return commits != 0; }
    [[nodiscard]] bool Awaited() const { return commits < kMostAwaited; }
};

/// A subscriber that is disconnected and has missed commits.
struct MissingSubscriber {
    std::string process;
    std::int64_t pid = 0;
    std::string version;
    std::vector<cdb::NodeId> points;  // that it subscribed to
    Misses misses;
    std::int64_t acknowledgedUs = 0;  // its last acknowledgement; 0: none

    /// "sflow-app (process 1234)"
    [[nodiscard]] std::string Name() const { return process + " (process " + std::to_string(pid) + ")"; }
};

/// How long subscribers may take to acknowledge a commit.
struct AckTimes {
    std::chrono::milliseconds general{10'000};
    std::map<std::string, std::chrono::milliseconds, std::less<>> ofProcess{};  // instead, by name

    [[nodiscard]] std::chrono::milliseconds Of(std::string_view process) const
    {
        const auto own = ofProcess.find(process);
        return own == ofProcess.end() ? general : own->second;
    }
};

}  // namespace agent

#endif
