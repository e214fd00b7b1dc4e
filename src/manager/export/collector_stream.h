// SPDX-License-Identifier: Apache-2.0
// One collector's stream: fills datagrams with samples, closes full ones, and hands them to the collector's
// socket many at a time. Keeps the sequence and the counts. Knows nothing of what is in a sample. The
// exporter makes these.

#ifndef MANAGER_EXPORT_COLLECTOR_STREAM_H
#define MANAGER_EXPORT_COLLECTOR_STREAM_H

#include <chrono>
#include <string>
#include <vector>

#include "manager/export/stream.h"
#include "manager/export/stream_datagram.h"
#include "manager/export/stream_health.h"
#include "manager/export/stream_pool.h"
#include "manager/export/stream_shared.h"
#include "manager/export/stream_socket.h"
#include "manager/service/operation.h"

namespace manager {

class CollectorStream final : public Stream {
public:
    CollectorStream(const std::string& name, const CollectorSettings& settings, StreamShared& shared);
    CollectorStream(const CollectorStream&) = delete;
    CollectorStream& operator=(const CollectorStream&) = delete;
    /// What still waits is lost: call Send before.
    ~CollectorStream() override;

    [[nodiscard]] std::size_t Room() const override;
    void Put(std::span<const std::byte> sample, Sample kind) override;
    [[nodiscard]] const StreamStatus& Status() const override { return m_health.Status(); }

    /// Sends what waits to where it was meant for, then takes the new settings.
    void Change(const CollectorSettings& settings);
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
    void Count(const SendResult& result, std::chrono::milliseconds now);

    StreamShared& m_shared;
    CollectorSettings m_settings;
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
    bool m_listed = false;
};

}  // namespace manager

#endif
