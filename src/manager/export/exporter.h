// SPDX-License-Identifier: Apache-2.0
// Sends encoded samples to the collectors: one stream of datagrams for each, with its own size, sequence
// and errors. What goes wrong with one collector costs that collector's datagrams only.

#ifndef MANAGER_EXPORT_EXPORTER_H
#define MANAGER_EXPORT_EXPORTER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>

#include "manager/service/operation.h"

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

class Exporter {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    using Uptime = std::function<std::chrono::milliseconds()>;  // since the agent's start; never goes back

    /// Sockets carry `mark` (SO_MARK) if that is allowed; 0: none.
    Exporter(Clock clock, Uptime uptime, std::uint32_t mark);
    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;
    ~Exporter();

    /// The agent address of all datagrams from here on, network byte order; what is waiting is sent with
    /// the old one.
    void SetAgentAddress(std::uint32_t address);

    /// Adds a collector or changes it. A changed size or address leaves its sequence as it is and sends what
    /// waited to where it was meant for. Network errors do not throw: they are counted, and the socket is
    /// connected again, at most once a second.
    Stream& Set(const std::string& name, const CollectorSettings& settings);
    /// Sends what waits for the collector and removes it; does nothing if there is none.
    void Remove(const std::string& name);
    /// Null if there is none.
    [[nodiscard]] Stream* Find(const std::string& name);

    /// Sends all that waits: at the end of each batch of samples.
    void Flush();

    /// Takes up what the network has reported of datagrams since they were sent, for the streams' status: one
    /// system call a collector. Without it, a report waits for the next datagram.
    void TakeErrors();

    /// Sends what waits and begins all streams' sequences anew: for a change of the samples' encoding.
    void Restart();

    /// Empty, or what is missing, such as the permission to mark the datagrams.
    [[nodiscard]] const std::string& Limitation() const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace manager

#endif
