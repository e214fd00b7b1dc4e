// SPDX-License-Identifier: Apache-2.0
// Where log lines go: a descriptor, one write a line. Used by log.cpp and the tests of the log.

#ifndef LOG_LOG_SINK_H
#define LOG_LOG_SINK_H

#include <memory>
#include <string>
#include <string_view>

namespace spdlog {
class logger;
}

namespace slog {

/// The text with its control characters written as \n, \t or \xNN.
std::string Escaped(std::string_view text);

/// A logger that stamps each line with the time (UTC, microseconds) and the name, and writes it with
/// one call to `descriptor`, which stays the caller's.
std::shared_ptr<spdlog::logger> MakeLogger(const std::string& name, int descriptor);

}  // namespace slog

#endif
