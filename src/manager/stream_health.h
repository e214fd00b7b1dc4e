// What became of a collector's datagrams, counted and explained: the status that is shown, and the log lines
// at the begin and the end of a row of errors, never one an error. Sends nothing; a stream owns it.

#ifndef MANAGER_STREAM_HEALTH_H
#define MANAGER_STREAM_HEALTH_H

#include <chrono>
#include <string>
#include <string_view>
#include <system_error>

#include "manager/exporter.h"
#include "manager/stream_datagram.h"

namespace manager {

class StreamHealth {
public:
    using Milliseconds = std::chrono::milliseconds;
    /// Errors reported by the network come at most once a second from some hosts: only after this time
    /// without one they are over.
    static constexpr Milliseconds kQuiet{5000};

    StreamHealth(std::string name, const CollectorSettings& settings)
        : m_name(std::move(name)), m_to(settings)
    {
    }

    [[nodiscard]] const StreamStatus& Status() const { return m_status; }

    /// From here on to this address. Counts stay; whether it works is not known yet.
    void Redirect(const CollectorSettings& settings);
    void Taken(const Datagram& datagram);
    void Lost(const Datagram& datagram);
    /// A sample that no datagram could carry.
    void LostSample() { ++m_status.lostSamples; }

    /// After a try, at `now` of the agent's uptime: `errors` of them, `error` the last; `what` was tried
    /// ("send", "connect"). `lost`: it cost datagrams, else an earlier datagram's error was reported.
    void Failed(std::string_view what, const std::error_code& error, unsigned errors, bool lost,
                Milliseconds now, std::chrono::system_clock::time_point time);
    /// After a try in which datagrams were taken.
    void Sent(std::chrono::system_clock::time_point time) { m_status.lastDatagram = time; }
    /// After a try in which all was taken without an error.
    void Clean(Milliseconds now);

private:
    std::string m_name;
    CollectorSettings m_to;
    StreamStatus m_status;
    bool m_row = false;       // of errors, in the log
    bool m_reported = false;  // the last error was not that of a datagram that was tried
    Milliseconds m_failedAt{0};
};

}  // namespace manager

#endif
