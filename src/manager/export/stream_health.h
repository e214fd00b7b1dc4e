// SPDX-License-Identifier: Apache-2.0
// What became of a collector's datagrams, counted and explained: the status that is shown, and one log line
// when errors begin and one when they end. Sends nothing; a stream owns it.

#ifndef MANAGER_EXPORT_STREAM_HEALTH_H
#define MANAGER_EXPORT_STREAM_HEALTH_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "manager/export/stream.h"
#include "manager/export/stream_datagram.h"
#include "manager/service/operation.h"

namespace manager {

class StreamHealth {
public:
    using Milliseconds = std::chrono::milliseconds;
    /// A host that does not answer is reported some 3 s after a datagram: only one that has had this time
    /// without an error shows that the errors are over.
    static constexpr Milliseconds kQuiet{5000};
    /// A closed port is reported at once, but by some hosts at most once a second: so long after the last
    /// datagram that was refused, one that is taken shows that the errors are over, until it is refused as
    /// well.
    static constexpr Milliseconds kQuietRefused{2000};

    StreamHealth(std::string name, const CollectorSettings& settings)
        : m_name(std::move(name)), m_to(settings)
    {
    }

    [[nodiscard]] const StreamStatus& Status() const { return m_status; }

    /// From here on datagrams go to this address. Counts stay; whether it works is not known yet.
    void Redirect(const CollectorSettings& settings);
    void Taken(const Datagram& datagram);
    void Lost(const Datagram& datagram);
    /// A sample that no datagram could carry.
    void LostSample() { ++m_status.lostSamples; }

    /// After a try at `now`, the agent's uptime, with `errors` errors, `error` being the last; `what` was
    /// tried ("send", "connect"). `lost`: it cost datagrams, else an earlier datagram's error was reported.
    void Failed(std::string_view what, const std::error_code& error, unsigned errors, bool lost,
                Milliseconds now, std::chrono::system_clock::time_point time);
    /// The network has reported an error of what was sent last, however long ago that was.
    void Reported(const std::error_code& error, std::chrono::system_clock::time_point time);
    /// After a try in which datagrams were taken.
    void Sent(Milliseconds now, std::chrono::system_clock::time_point time);
    /// After a try in which all was taken without an error of its own.
    void Clean(Milliseconds now);
    /// When nothing was tried, and no error has come since the last try.
    void Silent(Milliseconds now)
    {
        if (m_row && m_reported && m_sentSince) Clean(now);
    }

private:
    [[nodiscard]] bool IsOver(Milliseconds now) const;

    std::string m_name;
    CollectorSettings m_to;
    StreamStatus m_status;
    bool m_row = false;       // of errors, in the log
    bool m_reported = false;  // the last error was not that of a datagram that was tried
    Milliseconds m_failedAt{0};
    Milliseconds m_sentAt{0};                 // the last datagrams that were taken
    std::optional<Milliseconds> m_sentSince;  // the first of those that were taken since m_failedAt
};

}  // namespace manager

#endif
