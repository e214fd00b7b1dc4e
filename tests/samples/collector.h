// A collector of the test: a UDP socket that keeps all that comes, decodes it strictly, and complains
// about everything that no datagram of this agent may have, whatever the test is about: a size beyond the
// collector's, a gap in a sequence, another agent's address, records out of order, time that goes back.

#ifndef SAMPLES_COLLECTOR_H
#define SAMPLES_COLLECTOR_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/network.h"
#include "support/poll.h"
#include "support/sflow_decoder.h"

namespace samples_tests {

using support::Bytes;
using support::DecodedCounters;
using support::DecodedFlow;
using WallTime = std::chrono::system_clock::time_point;

class Collector {
public:
    /// A datagram, when the kernel got it, and what it says.
    struct Arrival {
        Bytes bytes;
        WallTime time;
        support::Datagram datagram;
    };

    /// In the namespace of the calling thread. It complains about datagrams that are larger. It listens in
    /// a thread of its own, so that what its socket can hold does not matter.
    explicit Collector(std::size_t datagramSize = 1400, const std::string& address = "127.0.0.1");
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;
    ~Collector();

    [[nodiscard]] std::uint16_t Port() const { return m_port; }

    // All that has come since the beginning, in order.
    const std::vector<Arrival>& Arrivals();
    std::vector<DecodedFlow> Flows();
    std::vector<DecodedFlow> Flows(std::uint32_t ifIndex);
    std::vector<DecodedCounters> Counters();
    std::vector<DecodedCounters> Counters(std::uint32_t ifIndex);

    /// Waits until so many have come, and returns all. Throws support::TimedOut.
    std::vector<DecodedFlow> AwaitFlows(std::size_t count,
                                        std::chrono::milliseconds within = support::kPatience);
    std::vector<DecodedCounters> AwaitCounters(std::size_t count);

    /// The next datagram may begin new sequences: all of them.
    void AllowRestart() { m_mayRestart = true; }

private:
    struct Raw {
        Bytes bytes;
        WallTime time;
    };

    void Listen();
    /// Looks at what the thread has heard.
    void Receive();
    void Take(Arrival arrival);
    void CheckSample(const support::DecodedSample& sample);
    void CheckSequence(char kind, std::uint32_t source, std::uint32_t sequence);

    int m_socket = -1;
    std::uint16_t m_port = 0;
    std::size_t m_size;
    std::vector<Arrival> m_arrivals;
    std::map<std::pair<char, std::uint32_t>, std::uint32_t> m_sequences;  // last of each kind and source
    std::size_t m_flows = 0, m_counters = 0;
    bool m_mayRestart = false;

    std::mutex m_mutex;
    std::vector<Raw> m_heard;  // and not looked at yet
    std::exception_ptr m_error;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;  // last: it uses the others
};

/// The samples of all datagrams.
std::vector<DecodedFlow> FlowsOf(const std::vector<Collector::Arrival>& arrivals);
std::vector<DecodedCounters> CountersOf(const std::vector<Collector::Arrival>& arrivals);

}  // namespace samples_tests

#endif
