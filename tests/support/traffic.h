// SPDX-License-Identifier: Apache-2.0
// Traffic: frames put on an interface in great number, as fast as one core can or at an even rate, and
// what that took. For single frames there is Injector (network.h). Used by the measurements under bench/,
// by the demonstration and by tests that need a steady stream.

#ifndef TESTS_SUPPORT_TRAFFIC_H
#define TESTS_SUPPORT_TRAFFIC_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/network.h"

namespace support {

/// What was sent, and what it took. Frames that the kernel forwards on virtual interfaces are forwarded
/// within the sender's system calls: `cpuSeconds` is sending and forwarding together.
struct Sent {
    std::uint64_t frames = 0;
    double seconds = 0;     // of the clock
    double cpuSeconds = 0;  // of the sending thread
};

/// Sends the same frames over and over, around the interface's queueing discipline. One thread at a time.
class Traffic {
public:
    /// At least one frame. Throws std::system_error.
    Traffic(const std::string& device, const std::vector<Bytes>& frames);
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;
    ~Traffic();

    /// Sends until the time is over; `rate` in frames a second, 0 for as many as can be. Throws
    /// std::system_error.
    Sent SendFor(std::chrono::milliseconds time, std::uint64_t rate = 0);
    /// Sends until `stop`.
    Sent SendUntil(const std::atomic<bool>& stop, std::uint64_t rate = 0);

private:
    struct Batch;
    template <typename Over>
    Sent SendWhile(std::uint64_t rate, Over over);

    int m_socket = -1;
    std::unique_ptr<Batch> m_batch;
};

/// Traffic from a thread of its own, from construction on.
class BackgroundTraffic {
public:
    /// `core`: the only CPU it runs on; negative for any.
    BackgroundTraffic(const std::string& device, const std::vector<Bytes>& frames, std::uint64_t rate,
                      int core = -1);
    BackgroundTraffic(const BackgroundTraffic&) = delete;
    BackgroundTraffic& operator=(const BackgroundTraffic&) = delete;
    ~BackgroundTraffic();

    /// Ends it. Throws what ended it before.
    Sent Stop();

private:
    Traffic m_traffic;
    std::atomic<bool> m_stop{false};
    Sent m_sent;
    std::exception_ptr m_error;
    std::thread m_thread;  // last: it uses the others
};

/// UDP frames of so many flows between two hosts: addresses and ports differ, the MAC addresses do not.
std::vector<Bytes> UdpFlows(std::size_t count, const FrameOptions& options);

/// The only CPU that a process or thread runs on; 0: the calling thread. Throws std::system_error.
void Pin(int id, int core);

}  // namespace support

#endif
