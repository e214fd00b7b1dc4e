// SPDX-License-Identifier: Apache-2.0
// The last lines of the processes' logs, in memory, for operators. The log files are what is kept.

#ifndef AGENT_LOG_LOG_STORE_H
#define AGENT_LOG_LOG_STORE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

struct LogLine {
    std::int64_t timeUs = 0;  // since 1970
    std::string process{};
    int level = 0;  // as of slog::Level
    std::string place{};
    std::string text{};
};

/// Any thread may call it.
class LogStore {
public:
    /// Each process has its own lines, so none pushes out those of another one.
    struct Limits {
        std::size_t lines = 1000;                     // of one process
        std::size_t bytes = std::size_t{512} * 1024;  // the same
        std::size_t processes = 8;                    // with lines of their own; the others share these
    };
    LogStore() = default;
    explicit LogStore(Limits limits) : m_limits(limits) {}

    void Take(LogLine line);

    /// The last lines of the process, or of all if it is empty: at most `lines`, in the order of their times.
    [[nodiscard]] std::vector<LogLine> Last(std::size_t lines, std::string_view process = {}) const;

private:
    struct Lines {
        std::deque<LogLine> lines;  // in the order of their times
        std::size_t bytes = 0;
    };
    Lines& LinesOf(const std::string& process);

    const Limits m_limits{};
    mutable std::mutex m_mutex;
    std::map<std::string, Lines, std::less<>> m_processes;
};

}  // namespace agent

#endif
