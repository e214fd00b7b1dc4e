// SPDX-License-Identifier: Apache-2.0
// What the samples of one collector are put into, and what became of its datagrams. The exporter makes these;
// the pipeline and the poller fill them.

#ifndef MANAGER_EXPORT_STREAM_H
#define MANAGER_EXPORT_STREAM_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>

namespace manager {

/// What became of a collector's datagrams. Times of the system clock are for people; ages are computed
/// from them when they are shown.
struct StreamStatus {
    std::uint64_t datagrams = 0;                        // taken by the kernel
    std::uint64_t bytes = 0;                            // UDP payload of these
    std::uint64_t flowSamples = 0, counterSamples = 0;  // in these
    std::uint64_t lostDatagrams = 0;  // not taken by the kernel: each is a gap in the sequence
    std::uint64_t lostSamples = 0;    // in these
    std::uint64_t errors = 0;         // errors of the socket, those reported by ICMP among them
    std::error_code lastError;
    std::string lastErrorText;  // names what was tried
    std::optional<std::chrono::system_clock::time_point> lastErrorTime;
    std::optional<std::chrono::system_clock::time_point> lastDatagram;
    bool sending = false;  // the last datagrams were taken, and of them no error is known
};

/// One collector's stream. Owned by the exporter; a reference stays good until the collector is removed.
class Stream {
public:
    virtual ~Stream() = default;
    enum class Sample : std::uint8_t { kFlow, kCounters };

    /// Room for one sample in an empty datagram of this collector.
    [[nodiscard]] virtual std::size_t Room() const = 0;

    /// Appends a whole encoded sample, at most Room() bytes, to the datagram that is being filled; an empty
    /// or larger one is counted as lost. Sends what is full as it goes; the rest waits for Exporter::Flush.
    virtual void Put(std::span<const std::byte> sample, Sample kind) = 0;

    [[nodiscard]] virtual const StreamStatus& Status() const = 0;
};

}  // namespace manager

#endif
