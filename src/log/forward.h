// SPDX-License-Identifier: Apache-2.0
// Sends the lines of this process's log to cdbd, which keeps the last ones of all processes for operators.
// One line is one write to log.sock in the run directory, which is never waited for:
//
//   MICROSECONDS \t PROCESS \t LEVEL \t PLACE \t TEXT \n
//
// with the time since 1970. While cdbd is away or takes no more, lines wait here and go with the next one
// that finds room. Used by the processes except cdbd itself.

#ifndef LOG_FORWARD_H
#define LOG_FORWARD_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

#include "base/unique_fd.h"
#include "log/log.h"

namespace slog {

inline constexpr const char* kLogSocket = "log.sock";

/// The bytes of a text that are sent; the rest is cut.
inline constexpr std::size_t kMaxForwardedText = 4000;

class Forwarder {
public:
    /// The lines that wait at most; the oldest go, and a line with their number takes their place.
    static constexpr std::size_t kMostWaiting = 200;

    explicit Forwarder(std::string path) : m_path(std::move(path)) {}

    /// Any thread may call it.
    void Take(const Record& record);

private:
    struct Line {
        std::chrono::system_clock::time_point time;
        std::string bytes;
    };

    void SendWaiting();
    bool Send(std::string_view bytes);
    bool Connect();

    const std::string m_path;
    std::mutex m_mutex;
    base::UniqueFd m_socket;
    std::deque<Line> m_waiting;
    std::uint64_t m_lost = 0;  // before the first one that waits
    std::string m_process;
};

/// Sends each line from now on to cdbd's log.sock in base::RunDirectory.
void ForwardToDatabase();

}  // namespace slog

#endif
