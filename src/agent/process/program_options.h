// SPDX-License-Identifier: Apache-2.0
// The command line and environment of cdbd.

#ifndef AGENT_PROCESS_PROGRAM_OPTIONS_H
#define AGENT_PROCESS_PROGRAM_OPTIONS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "agent/clients/misses.h"
#include "base/environment.h"
#include "metrics/address.h"

namespace agent {

struct ProgramOptions {
    std::filesystem::path runDirectory;
    std::filesystem::path stateDirectory;
    std::filesystem::path yangDirectory;
    // At most one of these four is given; without any cdbd serves.
    std::filesystem::path initFile;
    std::filesystem::path exportFile;
    std::filesystem::path importFile;
    bool check = false;
    AckTimes ackTimes;
    std::chrono::milliseconds callpointTimeout{5'000};
    std::size_t historyLimit = 500;
    std::size_t historyBytes = std::size_t{64} << 20;
    std::uint32_t historyDays = 0;  // 0: no limit
    std::size_t mapSize = std::size_t{1} << 30;
    std::size_t maxSessions = 128;
    std::size_t maxSessionsPerUser = 64;
    std::size_t maxMessage = std::size_t{64} << 20;
    std::size_t maxElements = 2'000'000;
    std::size_t maxFilter = std::size_t{32} << 10;
    std::size_t maxUnread = std::size_t{256} << 20;
    std::size_t replayEvents = 10'000;
    std::size_t replayBytes = std::size_t{16} << 20;
    std::chrono::seconds helloTimeout{30};
    std::chrono::seconds idleTimeout{0};  // 0: no limit
    std::string adminGroup;
    std::string switchGroup;
    std::vector<std::string> allow;           // each a role and its users; see ipc/trust.h
    std::optional<metrics::Address> metrics;  // where they are served
    std::filesystem::path accessFile;         // empty: the default rules
    bool help = false;
    bool version = false;
};

/// `program`: the path of the running program. Throws base::UsageError.
ProgramOptions ParseOptions(int argc, const char* const* argv, const std::filesystem::path& program,
                            const base::Variables& variables);

std::string UsageText();

}  // namespace agent

#endif
