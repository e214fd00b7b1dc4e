// SPDX-License-Identifier: Apache-2.0
// One collector's stream: fills datagrams with samples, closes full ones, and hands them to the collector's
// socket many at a time. Keeps the sequence, the counts and what is shown of errors. Knows nothing of what is
// in a sample. The exporter makes these.

#ifndef MANAGER_EXPORT_COLLECTOR_STREAM_H
#define MANAGER_EXPORT_COLLECTOR_STREAM_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "manager/export/stream.h"
#include "manager/export/stream_pool.h"
#include "manager/export/stream_socket.h"
#include "manager/service/operation.h"
#include "manager/settings/own_settings.h"

namespace manager {

class CollectorStream;

/// What it means that datagrams carry no mark, for operators.
std::string WithoutMark(const std::error_code& error);

/// What the streams of one exporter, which owns them, have in common, and those that wait to be sent.
struct StreamShared {
    std::function<std::chrono::system_clock::time_point()> clock;
    std::function<std::chrono::milliseconds()> uptime;
    std::uint32_t mark = 0;
    std::uint32_t agentAddress = 0;  // network byte order
    std::uint32_t subAgent = 0;
    std::string limitation;
    StreamPool pool;
    std::vector<CollectorStream*> waiting;  // have had something to send since the last SendAll; no null

    /// Sends what waits on all streams, which gives all memory back to the pool.
    void SendAll();
};

/// What became of a collector's datagrams, counted and explained: the status that is shown, and one log line
/// when errors begin and one when they end.
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

    StreamHealth(std::string name, const CollectorSettings& settings, SendSettings send)
        : m_name(std::move(name)), m_to(settings), m_send(std::move(send))
    {
    }

    [[nodiscard]] const StreamStatus& Status() const { return m_status; }

    /// From here on datagrams go there and like this. Counts stay; whether it works is not known yet.
    void Redirect(const CollectorSettings& settings, const SendSettings& send);
    void Taken(const Datagram& datagram);
    void Lost(const Datagram& datagram);
    /// A sample that no datagram could carry.
    void LostSample() { ++m_status.lostSamples; }

    /// After a try at `now`, the agent's uptime, with `errors` errors, `error` being the last. `lost`: it
    /// cost datagrams, else an earlier datagram's error was reported.
    void Failed(Tried tried, const std::error_code& error, unsigned errors, bool lost, Milliseconds now,
                std::chrono::system_clock::time_point time);
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
    /// "connect", "send from 192.0.2.9"
    [[nodiscard]] std::string TextOf(Tried tried) const;

    std::string m_name;
    CollectorSettings m_to;
    SendSettings m_send;
    StreamStatus m_status;
    bool m_row = false;       // of errors, in the log
    bool m_reported = false;  // the last error was not that of a datagram that was tried
    Milliseconds m_failedAt{0};
    Milliseconds m_sentAt{0};                 // the last datagrams that were taken
    std::optional<Milliseconds> m_sentSince;  // the first of those that were taken since m_failedAt
};

class CollectorStream final : public Stream {
public:
    CollectorStream(const std::string& name, const CollectorSettings& settings, const SendSettings& send,
                    StreamShared& shared);
    CollectorStream(const CollectorStream&) = delete;
    CollectorStream& operator=(const CollectorStream&) = delete;
    /// What still waits is lost: call Send before.
    ~CollectorStream() override;

    [[nodiscard]] std::size_t Room() const override;
    void Put(std::span<const std::byte> sample, Sample kind) override;
    [[nodiscard]] const StreamStatus& Status() const override { return m_health.Status(); }

    /// Sends what waits to where it was meant for, then takes the new settings. The sequence goes on.
    void Change(const CollectorSettings& settings, const SendSettings& send);
    /// Sends all that waits, the datagram that is being filled included.
    void Send();
    /// Takes up what the network has reported of datagrams since they were sent.
    void TakeErrors();
    /// The next datagram is the first again. Nothing waits when this is called.
    void Restart() { m_sequence = 0; }
    /// The exporter has taken it off the list of those that wait.
    void Unlist() { m_listed = false; }

private:
    /// Ends the datagram that is being filled, if any, and begins one in which any sample fits.
    void Next();
    void Begin();
    void CloseDatagram();
    /// Whether a further datagram fits behind those in the block.
    [[nodiscard]] bool HasSpace(std::size_t capacity) const;
    void Grow();
    void Connect(std::chrono::milliseconds now);
    void MarkAnew(std::chrono::milliseconds now);
    void Count(const SendResult& result, std::chrono::milliseconds now);

    StreamShared& m_shared;
    CollectorSettings m_settings;
    SendSettings m_send;
    std::size_t m_size;  // of a datagram at most
    StreamSocket m_socket;
    StreamHealth m_health;
    std::uint32_t m_sequence = 0;              // of the last datagram that was closed
    std::chrono::milliseconds m_triedAt{0};    // to connect, by the agent's uptime
    std::chrono::milliseconds m_refusedAt{0};  // segments of messages, likewise

    // Closed datagrams from the block's start on, then the one that is being filled, from m_begin to m_end.
    // It may grow to m_limit. All 0 without a block.
    StreamPool::Block m_block;
    std::vector<Datagram> m_closed;
    Datagram m_open;
    std::size_t m_begin = 0, m_end = 0, m_limit = 0;
    bool m_discards = false;  // what is put into it is discarded packets, else anything else
    bool m_listed = false;
};

}  // namespace manager

#endif
