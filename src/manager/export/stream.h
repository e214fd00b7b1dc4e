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
#include <vector>

namespace manager {

/// What was tried when an error came.
enum class Tried : std::uint8_t {
    kSend,
    kConnect,
    kDevice,  // to bind the socket to the device or VRF of the settings
    kSource,  // to bind it to the source address of the settings
    kDscp,    // to have its datagrams marked
};

/// What became of a collector's datagrams. Times of the system clock are for people; ages are computed
/// from them when they are shown.
struct StreamStatus {
    std::uint64_t datagrams = 0;                        // taken by the kernel
    std::uint64_t bytes = 0;                            // UDP payload of these
    std::uint64_t flowSamples = 0, counterSamples = 0;  // in these
    std::uint64_t discards = 0;                         // discarded packets in these
    std::uint64_t lostDatagrams = 0;  // not taken by the kernel: each is a gap in the sequence
    std::uint64_t lostSamples = 0;    // in these
    std::uint64_t errors = 0;         // errors of the socket, those reported by ICMP among them
    std::error_code lastError;
    Tried lastTried = Tried::kSend;  // that gave the error
    std::string lastErrorText;       // names what was tried
    std::optional<std::chrono::system_clock::time_point> lastErrorTime;
    std::optional<std::chrono::system_clock::time_point> lastDatagram;
    bool sending = false;  // the last datagrams were taken, and of them no error is known
};

/// One collector's stream. Owned by the exporter; a reference stays good until the collector is removed.
class Stream {
public:
    virtual ~Stream() = default;
    /// Discarded packets travel in datagrams of their own: some collectors drop the rest of a datagram that
    /// has a sample of a type that they don't know.
    enum class Sample : std::uint8_t { kFlow, kCounters, kDiscard };

    /// Room for one sample in an empty datagram of this collector.
    [[nodiscard]] virtual std::size_t Room() const = 0;

    /// Appends a whole encoded sample, at most Room() bytes, to the datagram that is being filled; an empty
    /// or larger one is counted as lost. Sends what is full as it goes; the rest waits for Exporter::Flush.
    virtual void Put(std::span<const std::byte> sample, Sample kind) = 0;

    [[nodiscard]] virtual const StreamStatus& Status() const = 0;
};

/// Encodes a sample into `buffer` and puts it into all streams; into those whose datagrams are too small for
/// it, encoded anew with what they have room for. `encode` fills a span and returns the bytes written; what
/// it gives for a smaller span than it needs is a shorter sample.
template <typename Encode>
void PutInAll(const std::vector<Stream*>& streams, Stream::Sample kind, std::span<std::byte> buffer,
              const Encode& encode)
{
    const std::size_t size = encode(buffer);
    bool cut = false;
    for (Stream* stream : streams) {
        if (stream->Room() < size)
            cut = true;
        else
            stream->Put(buffer.first(size), kind);
    }
    if (!cut) return;
    for (Stream* stream : streams)
        if (stream->Room() < size) stream->Put(buffer.first(encode(buffer.first(stream->Room()))), kind);
}

}  // namespace manager

#endif
