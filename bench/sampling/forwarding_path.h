// SPDX-License-Identifier: Apache-2.0
// The bare forwarding path that sampling is measured on: host A, veth, bridge, veth, host B, in a network
// namespace of the program's own, all of it worked by the sender's core.

#ifndef SAMPLING_FORWARDING_PATH_H
#define SAMPLING_FORWARDING_PATH_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "support/network.h"
#include "support/traffic.h"

namespace sampling {

/// Forwards; the calling thread must be on it while it sends.
inline constexpr int kForwardingCore = 0;
/// The sampling process and the collector.
inline constexpr int kManagerCore = 1;

/// Of the whole frame, as the kernel holds it.
inline constexpr std::size_t kFrameSize = 200;

class ForwardingPath {
public:
    /// Moves the process, which has one thread yet, into its own namespace. Throws std::runtime_error.
    ForwardingPath();

    static constexpr const char* kIn = "p1";  // the bridge's port that the frames enter
    static constexpr const char* kOut = "p2";

    /// The frames that `Forward` sends: UDP of 64 flows that the bridge sends out of kOut alone.
    [[nodiscard]] const std::vector<support::Bytes>& Frames() const { return m_frames; }

    /// Sends by host A for so long. `rate`: frames a second, 0 for as many as can be. Throws where the
    /// path itself has lost some.
    support::Sent Forward(std::chrono::milliseconds time, std::uint64_t rate = 0);

    static constexpr const char* kHostA = "hostA";
    static constexpr const char* kHostB = "hostB";

private:
    support::Network m_network;
    std::vector<support::Bytes> m_frames;
    std::unique_ptr<support::Traffic> m_traffic;
};

/// Nanoseconds of the forwarding core that a frame takes, from sending it to dropping it at host B.
inline double NanosecondsPerFrame(const support::Sent& sent)
{
    return sent.cpuSeconds * 1e9 / static_cast<double>(sent.frames);
}

}  // namespace sampling

#endif
