// SPDX-License-Identifier: Apache-2.0
// What the other processes write into the log: takes their connections to log.sock and puts their lines into
// the store. The form of a line is in log/forward.h.

#ifndef AGENT_LOG_LOG_INTAKE_H
#define AGENT_LOG_LOG_INTAKE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string_view>

#include <boost/asio/local/stream_protocol.hpp>

#include "agent/log/log_store.h"
#include "base/timers.h"
#include "ipc/trust.h"

namespace agent {

/// The bytes of a line that are read, its end included; a longer one is dropped.
inline constexpr std::size_t kMaxLogLine = 8192;

/// What a process has sent, without the line's end; nullopt if it has not that form, or the process says that
/// it is cdbd. A time after `nowUs` becomes that. Texts come out as base::Presentable and base::Printable.
std::optional<LogLine> ParseLogLine(std::string_view line, std::int64_t nowUs);

class LogIntake {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    /// Connections at once; more are closed.
    static constexpr std::size_t kMostConnections = 32;
    /// After so many lines of a connection, it is not read for so long. Meanwhile its lines wait in the
    /// kernel and then in the process, which counts what it drops.
    static constexpr std::size_t kBurst = 200;
    static constexpr std::chrono::milliseconds kPause{200};

    /// Lines are taken of who may report faults (ipc::Role::kFaults). `now`: microseconds since 1970. All
    /// must outlive this.
    LogIntake(base::Timers& timers, const ipc::Trust& trust, LogStore& store,
              const std::function<std::int64_t()>& now);
    ~LogIntake();
    LogIntake(const LogIntake&) = delete;
    LogIntake& operator=(const LogIntake&) = delete;

    void Add(Socket socket);

private:
    class Reader;

    bool Admits(int descriptor);

    base::Timers& m_timers;
    const ipc::Trust& m_trust;
    LogStore& m_store;
    const std::function<std::int64_t()>& m_now;
    std::set<std::shared_ptr<Reader>> m_readers;
    std::set<std::uint32_t> m_refused;  // users whose refusal was logged; bounded
};

}  // namespace agent

#endif
