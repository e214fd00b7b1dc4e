// SPDX-License-Identifier: Apache-2.0
// Where the log goes, which levels are written, the shape of a line, and one write for each.

#include "log/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>

#include "base/environment.h"
#include "base/number.h"
#include "base/text.h"
#include "base/unique_fd.h"

namespace slog {
namespace {

constexpr int kDefaultLevel = static_cast<int>(Level::kNotice);
constexpr int kHighestLevel = 99;

/// spdlog's own file sinks go through stdio, which may split a long line.
class DescriptorSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit DescriptorSink(int descriptor) : m_descriptor(descriptor) {}

protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        WriteWhole(line.data(), line.size());
    }

    void flush_() override {}

private:
    /// A log that can't be written (disk full, reader gone) must not stop the process: the line is lost.
    void WriteWhole(const char* data, std::size_t size) const
    {
        while (size > 0) {
            const ssize_t written = ::write(m_descriptor, data, size);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return;
            data += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    int m_descriptor;
};

/// A logger that stamps each line with the time (UTC, microseconds) and the name, and writes it with one call
/// to `descriptor`, which stays the caller's.
std::shared_ptr<spdlog::logger> MakeLogger(const std::string& name, int descriptor)
{
    auto logger = std::make_shared<spdlog::logger>(name, std::make_shared<DescriptorSink>(descriptor));
    logger->set_level(spdlog::level::trace);
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%fZ %n %v",
                                                                      spdlog::pattern_time_type::utc, "\n"));
    return logger;
}

struct Log {
    std::shared_ptr<spdlog::logger> logger;
    std::function<void(const Record&)> reader;  // as of Also
    base::UniqueFd file;                        // none: the log is standard error
    int lowest = kDefaultLevel;
};

/// Never destroyed: destructors of other static objects may still log.
Log& TheLog()
{
    static Log& log = *new Log;
    return log;
}

void WriteLine(Log& log, int level, std::string_view file, std::string_view function, long line,
               std::string_view text)
{
    const auto now = std::chrono::system_clock::now();
    const std::string place = fmt::format("{}:{}:{}", file, function, line);
    const std::string printable = base::Printable(text);
    const std::string whole = fmt::format("{} {} {}", level, place, printable);
    log.logger->log(now, spdlog::source_loc(), spdlog::level::info, spdlog::string_view_t(whole));
    if (!log.reader) return;
    try {
        log.reader({now, log.logger->name(), level, place, printable});
    } catch (const std::exception&) {
        // The line stands in the file; a caller of the log has no use for an error.
    }
}

void Warn(Log& log, std::string_view function, std::string_view text)
{
    WriteLine(log, kDefaultLevel, "src/log/log", function, __LINE__, text);
}

void OpenFile(Log& log, const std::string& process)
{
    const auto path = base::LogFile();
    if (!path) return;
    log.file = base::UniqueFd(::open(path->c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640));
    if (!log.file) {
        Warn(log, "Open",
             fmt::format("SFLOW_LOG: cannot open {}: {}; logging to standard error", *path,
                         std::strerror(errno)));
        return;
    }
    log.logger = MakeLogger(process, log.file.Get());
}

void SetLevel(Log& log)
{
    log.lowest = kDefaultLevel;
    const auto text = base::Variable("SFLOW_LOG_LEVEL");
    if (!text) return;
    const auto level = base::ToNumber<int>(*text);
    if (!level || *level < 0 || *level > kHighestLevel) {
        Warn(log, "Open",
             fmt::format("SFLOW_LOG_LEVEL: \"{}\" is no level from 0 to {}; using {}", *text, kHighestLevel,
                         kDefaultLevel));
        return;
    }
    log.lowest = *level;
}

/// The log, opened under the program's own name if it is not open yet.
Log& OpenedLog()
{
    Log& log = TheLog();
    if (log.logger == nullptr) Open(program_invocation_short_name);
    return log;
}

/// "/home/x/tree/src/agent/session.cpp" is "src/agent/session". The last folder of these names counts, since
/// the tree itself may lie in one.
std::string_view ShortFile(std::string_view file)
{
    std::size_t start = 0;
    for (const std::string_view root : {"/src/", "/tests/", "/bench/"})
        if (const std::size_t at = file.rfind(root); at != std::string_view::npos)
            start = std::max(start, at + 1);
    file.remove_prefix(start);
    const std::size_t dot = file.rfind('.');
    const std::size_t slash = file.rfind('/');
    const bool hasEnding = dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
    return hasEnding ? file.substr(0, dot) : file;
}

/// "bool agent::Session::Commit(int)" is "Commit".
std::string_view ShortFunction(std::string_view pretty)
{
    if (const std::size_t lambda = pretty.find("::<lambda"); lambda != std::string_view::npos)
        pretty = pretty.substr(0, lambda);
    std::size_t arguments = pretty.find('(');
    // clang's name of an unnamed namespace has a bracket too.
    while (arguments != std::string_view::npos && pretty.substr(arguments).starts_with("(anonymous "))
        arguments = pretty.find('(', arguments + 1);
    const std::string_view head = pretty.substr(0, arguments);
    const std::size_t start = head.find_last_of(" :*&");
    return start == std::string_view::npos ? head : head.substr(start + 1);
}

}  // namespace

void Open(std::string_view process)
{
    Log& log = TheLog();
    const std::string name = base::Printable(process);
    log.file.Close();
    log.logger = MakeLogger(name, STDERR_FILENO);
    OpenFile(log, name);
    SetLevel(log);
}

void Also(std::function<void(const Record&)> reader) { TheLog().reader = std::move(reader); }

bool Enabled(int level) { return level >= OpenedLog().lowest; }

void Line(int level, std::string_view file, std::string_view function, long line, std::string_view text)
{
    if (Enabled(level)) WriteLine(OpenedLog(), level, file, function, line, text);
}

void Write(Level level, const std::source_location& where, std::string_view text)
{
    Line(static_cast<int>(level), ShortFile(where.file_name()), ShortFunction(where.function_name()),
         static_cast<long>(where.line()), text);
}

}  // namespace slog
