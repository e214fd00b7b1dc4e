// SPDX-License-Identifier: Apache-2.0
// A collector that keeps every datagram and decodes it strictly (sflow_decoder.h). For tests that look at
// what arrives; it judges nothing itself but the format.

#ifndef TESTS_SUPPORT_DECODING_COLLECTOR_H
#define TESTS_SUPPORT_DECODING_COLLECTOR_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "support/datagram_socket.h"
#include "support/poll.h"
#include "support/sflow_decoder.h"

namespace support {

/// A datagram, when the kernel got it and from where, and what it says.
struct Arrival {
    std::vector<std::byte> bytes;
    WallTime time;
    std::uint32_t from = 0;  // IPv4 address, network byte order
    std::uint8_t tos = 0;    // type of service, the whole octet
    Datagram datagram = {};
};

/// The samples in them, in the order in which they came; of one data source (0: of all).
std::vector<DecodedFlow> FlowsIn(std::span<const Arrival> arrivals, std::uint32_t ifIndex = 0);
std::vector<DecodedCounters> CountersIn(std::span<const Arrival> arrivals, std::uint32_t ifIndex = 0);

class DecodingCollector {
public:
    /// Listens in a thread of its own, so that what the socket can hold does not matter, in the namespace
    /// that the calling thread is in. Port 0: one that the kernel chooses. Throws std::system_error.
    explicit DecodingCollector(const std::string& address = "127.0.0.1", std::uint16_t port = 0);
    DecodingCollector(const DecodingCollector&) = delete;
    DecodingCollector& operator=(const DecodingCollector&) = delete;
    ~DecodingCollector();

    [[nodiscard]] const std::string& Address() const { return m_address; }
    [[nodiscard]] std::uint16_t Port() const { return m_socket.Port(); }

    /// How many datagrams have come, and how many found no room in the socket: the latter must be 0 for
    /// anything that is said about loss.
    [[nodiscard]] std::size_t Count() const { return m_count; }
    [[nodiscard]] std::size_t Overflowed() const { return m_overflowed; }

    /// All that has come, in the order in which it came; it grows with the next call of any of these. Throws
    /// DecodeError. From one thread at a time.
    const std::vector<Arrival>& Arrivals();
    std::vector<DecodedFlow> Flows(std::uint32_t ifIndex = 0) { return FlowsIn(Arrivals(), ifIndex); }
    std::vector<DecodedCounters> Counters(std::uint32_t ifIndex = 0)
    {
        return CountersIn(Arrivals(), ifIndex);
    }
    /// The newest flow sample's sequence number of a data source; 0: none has come. Cheap: for conditions.
    std::uint32_t LastSequence(std::uint32_t ifIndex);

    /// Waits until so many have come, of all data sources, and returns all. Throws TimedOut.
    std::vector<DecodedFlow> AwaitFlows(std::size_t count, std::chrono::milliseconds within = kPatience);
    std::vector<DecodedCounters> AwaitCounters(std::size_t count);

    /// Waits until none of them has heard anything for `quiet`, which is longer than a sample waits anywhere,
    /// while there is no polling. Throws TimedOut.
    static void AwaitQuiet(const std::vector<const DecodingCollector*>& collectors,
                           std::chrono::milliseconds quiet = std::chrono::milliseconds(500));

private:
    void Listen();

    std::string m_address;
    DatagramSocket m_socket;  // the thread's
    std::atomic<std::size_t> m_count{0}, m_overflowed{0};
    std::mutex m_mutex;
    std::vector<Arrival> m_heard;  // under the mutex: what has not been decoded yet
    std::vector<Arrival> m_arrivals;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;  // last: it uses the others
};

}  // namespace support

#endif
