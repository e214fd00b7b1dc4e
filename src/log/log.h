// SPDX-License-Identifier: Apache-2.0
// The log of the platform's processes: one line for each message, in one format, written whole and at once.
//
//   2026-11-21T03:20:11.123456Z cdbd 12 src/agent/session:Commit:87 commit 17 by root
//
// SFLOW_LOG names the file ("-", the default, is standard error), SFLOW_LOG_LEVEL the lowest level written
// (default 12). Control characters of a text are escaped. Used by cdbd, sflow-mgr and the client libraries;
// the daemon logs through zlog, whose front calls this.

#ifndef LOG_LOG_H
#define LOG_LOG_H

#include <chrono>
#include <functional>
#include <source_location>
#include <string_view>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

namespace slog {

enum class Level : int { kDebug = 10, kInfo = 11, kNotice = 12, kError = 13 };

/// Opens the log as the environment says, for the process of this name. If the file can't be opened, a line
/// on standard error names it and the log stays there.
void Open(std::string_view process);

[[nodiscard]] bool Enabled(int level);

/// Writes one line if the level is enabled; a line that can't be written is lost. `file` is a source path
/// without its ending ("src/agent/session").
void Line(int level, std::string_view file, std::string_view function, long line, std::string_view text);

/// A line that was written. The views are valid during the call; control characters are escaped.
struct Record {
    std::chrono::system_clock::time_point time;
    std::string_view process;
    int level;
    std::string_view place;  // "src/agent/session:Commit:87"
    std::string_view text;
};

/// From now on each line is also passed to `reader`, in the thread that writes it; null ends that. It must
/// not write to the log, and what it throws is dropped. Called before a second thread writes.
void Also(std::function<void(const Record&)> reader);

/// A format string with its place in the source.
template <typename... Args>
struct Located {
    // NOLINTNEXTLINE(google-explicit-constructor): stands in for a format string.
    consteval Located(const char* text, std::source_location at = std::source_location::current())
        : format(text), where(at)
    {
    }
    fmt::format_string<Args...> format;
    std::source_location where;
};

void Write(Level level, const std::source_location& where, std::string_view text);

/// Writes one line of its level: slog::Error("{} is gone", name).
template <Level level>
struct Writer {
    template <typename... Args>
    void operator()(Located<std::type_identity_t<Args>...> format, Args&&... args) const
    {
        if (Enabled(static_cast<int>(level)))
            Write(level, format.where, fmt::format(format.format, std::forward<Args>(args)...));
    }
};
inline constexpr Writer<Level::kDebug> Debug;
inline constexpr Writer<Level::kInfo> Info;
inline constexpr Writer<Level::kNotice> Notice;
inline constexpr Writer<Level::kError> Error;

}  // namespace slog

#endif
