// A collector that keeps every datagram and decodes it strictly (sflow_decoder.h). For tests that look at
// what arrives; it judges nothing itself but the format.

#ifndef TESTS_SUPPORT_DECODING_COLLECTOR_H
#define TESTS_SUPPORT_DECODING_COLLECTOR_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/poll.h"
#include "support/sflow_decoder.h"

namespace support {

class DecodingCollector {
public:
    using Bytes = std::vector<std::byte>;

    /// Listens in a thread of its own, in the namespace that the calling thread is in. Port 0: one that the
    /// kernel chooses. `bufferSize` is that of the socket. Throws std::system_error.
    explicit DecodingCollector(const std::string& address = "127.0.0.1", std::uint16_t port = 0,
                               int bufferSize = 64 << 20);
    DecodingCollector(const DecodingCollector&) = delete;
    DecodingCollector& operator=(const DecodingCollector&) = delete;
    ~DecodingCollector();

    [[nodiscard]] const std::string& Address() const { return m_address; }
    [[nodiscard]] std::uint16_t Port() const { return m_port; }

    /// How many datagrams have come, and how many found no room in the socket: the latter must be 0 for
    /// anything that is said about loss.
    [[nodiscard]] std::size_t Count() const;
    [[nodiscard]] std::size_t Overflowed() const { return m_overflowed; }
    [[nodiscard]] std::vector<Bytes> Raw() const;

    /// All that has come, in the order in which it came. Throws DecodeError. The result stays good and grows
    /// with the next call. From one thread at a time.
    const std::deque<Datagram>& Datagrams();
    /// The samples of one data source in them (0: of all).
    std::vector<DecodedFlow> Flows(std::uint32_t ifIndex = 0);
    std::vector<DecodedCounters> Counters(std::uint32_t ifIndex = 0);
    /// The newest flow sample's sequence number of a data source; 0: none has come. Cheap: for conditions.
    std::uint32_t LastSequence(std::uint32_t ifIndex);

    /// Waits until none of them has heard anything for `quiet`, which is longer than a sample waits anywhere,
    /// as long as there is no polling.
    static void AwaitQuiet(const std::vector<const DecodingCollector*>& collectors,
                           std::chrono::milliseconds quiet = std::chrono::milliseconds(200));

private:
    void Listen();

    std::string m_address;
    int m_socket = -1;
    std::uint16_t m_port = 0;
    mutable std::mutex m_mutex;
    std::vector<Bytes> m_raw;  // under the mutex
    std::atomic<std::size_t> m_overflowed{0};
    std::deque<Datagram> m_decoded;  // of the first of m_raw
    std::atomic<bool> m_stop{false};
    std::thread m_thread;  // last: it uses the others
};

}  // namespace support

#endif
