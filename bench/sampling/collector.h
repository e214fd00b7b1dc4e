// SPDX-License-Identifier: Apache-2.0
// A collector that does little: it counts datagrams and samples and looks at nothing but sequence numbers
// and drops, which prove that nothing was lost. With the tests' collector it shares the socket alone: that
// one decodes every sample and keeps it, which at 400,000 a second would take the core that it has together
// with the manager. Deciding whether the rest is right is for the tests.

#ifndef SAMPLING_COLLECTOR_H
#define SAMPLING_COLLECTOR_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <unordered_map>

#include "support/datagram_socket.h"

namespace sampling {

struct Received {
    std::uint64_t datagrams = 0;
    std::uint64_t bytes = 0;
    std::uint64_t flowSamples = 0, counterSamples = 0;
    std::uint64_t missingDatagrams = 0;  // gaps in the datagrams' sequence
    std::uint64_t missingSamples = 0;    // gaps in the sequences of the data sources
    std::uint64_t drops = 0;             // that the samples report, all data sources together
    std::uint64_t malformed = 0;         // datagrams that are none of sFlow version 5

    [[nodiscard]] std::uint64_t Lost() const { return missingDatagrams + missingSamples + drops + malformed; }
};

/// Listens on 127.0.0.1 in a thread of its own, on the manager's core. It looks for datagrams now and then:
/// a receiver that waits has to be woken by the sender, at the sender's cost.
class Collector {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws std::system_error.
    Collector();
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;
    ~Collector();

    [[nodiscard]] std::uint16_t Port() const { return m_socket.Port(); }

    /// What has come until now.
    [[nodiscard]] Received Read() const;

    /// Waits until nothing has come for longer than any sample may wait, and returns what has come. Throws
    /// support::TimedOut.
    [[nodiscard]] Received Settled() const;

    /// From now on it waits for datagrams, and keeps the time of the first that carries a flow sample.
    void WatchForFlowSample();
    /// The time; empty when none has come within the time given. Goes back to looking now and then.
    std::optional<Clock::time_point> AwaitFlowSample(std::chrono::milliseconds within);

private:
    struct Source {
        std::uint32_t sequence = 0;
        std::uint32_t drops = 0;
    };

    void Listen();
    void TakeDatagram(std::span<const std::byte> datagram);
    void TakeSample(std::span<const std::byte> sample, std::uint32_t format);
    Source& Follow(std::uint64_t key, std::uint32_t sequence);

    support::DatagramSocket m_socket;  // the thread's
    mutable std::mutex m_mutex;        // of what follows
    Received m_received;
    std::uint32_t m_sequence = 0;  // of the last datagram
    std::unordered_map<std::uint64_t, Source> m_sources;
    std::optional<Clock::time_point> m_firstFlowSample;
    std::atomic<bool> m_watching{false};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;  // last: it uses the others
};

}  // namespace sampling

#endif
