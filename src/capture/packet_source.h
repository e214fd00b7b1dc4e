// SPDX-License-Identifier: Apache-2.0
// Where sampled packets come from: the one interface of all sources of packets. A source samples packets at
// the kernel's interfaces, each with the probability 1/rate, counts what it drew from, and hands the sampled
// ones over in batches. It knows nothing of collectors, names or datagrams.
//
// Two implementations: ebpf/ (first choice) and packet_socket/.

#ifndef CAPTURE_PACKET_SOURCE_H
#define CAPTURE_PACKET_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "capture/unavailable.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace capture {

/// Least bytes of a sampled packet that are handed over (all, if it has fewer): its addresses are looked up
/// even if fewer bytes are sent.
inline constexpr std::size_t kMinHeader = 96;
/// Most bytes of a sampled packet that can be asked for.
inline constexpr std::size_t kMaxHeader = 512;

/// The source does not know by which interface a leaving packet entered.
inline constexpr std::uint32_t kOriginUnknown = 0xFFFFFFFF;

/// How one kernel interface is sampled.
struct Settings {
    std::uint32_t rate = 1;        // one packet of so many, on average; at least 1
    std::uint16_t headerSize = 0;  // bytes of a packet's beginning that are wanted, up to kMaxHeader
    bool ingress = true;
    bool egress = false;
    friend bool operator==(const Settings&, const Settings&) = default;
};

/// A sampled packet. A packet that the kernel holds as several segments of one flow (GSO, GRO) stands for the
/// frames that it is on the wire. eBPF counts and samples these frames, packet sockets the packet as one.
struct Sample {
    std::uint32_t ifIndex = 0;          // kernel interface at which it was sampled
    bool egress = false;                // it was leaving by that interface; else it was entering
    std::uint32_t origin = 0;           // egress: by which interface it had entered the machine; 0: none,
                                        // it was made here; kOriginUnknown
    std::uint32_t rate = 0;             // the rate it was sampled with
    std::uint16_t count = 1;            // frames of it that were sampled, more than one only with segments
    std::uint16_t segments = 1;         // frames on the wire
    std::uint16_t segmentSize = 0;      // payload of each of the segments but the last; 0: unsegmented
    std::uint32_t length = 0;           // bytes as the kernel holds it: from the link header on, without FCS
                                        // and without the tag that was taken away
    std::uint16_t etherType = 0;        // host byte order, as the kernel sees it (behind a tag that it took)
    std::uint16_t tagProtocol = 0;      // TPID of a VLAN tag the kernel took out of the packet; 0: none
    std::uint16_t tagControl = 0;       // priority and VLAN id of that tag, host byte order
    std::span<const std::byte> header;  // its beginning as the kernel holds it; valid in the call only

    /// Of the interface, since it was added to the source, both directions together, up to and with this
    /// packet: frames it could have been sampled from, and frames sampled and lost for lack of room. They
    /// never fall, and nothing is counted twice or left out for good. What other CPUs count at the same
    /// moment may be in it a look too early or too late; packet sockets spread what they counted since the
    /// last look evenly over the samples.
    std::uint64_t pool = 0;
    std::uint64_t drops = 0;
};

/// Takes the sampled packets. Called from the loop only, in the middle of the source's work: a sink must not
/// call the source back, and must not throw, since the source has neither its ring nor its counts settled
/// then. It counts by itself what it can't take.
class SampleSink {
public:
    SampleSink() = default;
    SampleSink(const SampleSink&) = delete;
    SampleSink& operator=(const SampleSink&) = delete;
    virtual ~SampleSink() = default;

    /// Those of one CPU are in the order in which they were sampled.
    virtual void OnSamples(std::span<const Sample> samples) noexcept = 0;
    /// All that was waiting has been handed over: time to send.
    virtual void OnDrained() noexcept = 0;
    /// The kernel has refused what Add or Change asked for, after the call. The interface stays added, with
    /// what could be had; Change tries again, Remove ends it.
    virtual void OnRefused(std::uint32_t ifIndex, const Unavailable& reason) noexcept = 0;
};

struct Counts {
    std::uint64_t pool = 0;   // frames seen since the interface was added
    std::uint64_t drops = 0;  // frames sampled that could not be handed over
};

/// What all sources are made with.
struct SourceOptions {
    /// Packets with this socket mark are neither counted nor sampled: the agent's own datagrams.
    std::uint32_t ownMark = 0;
    /// Bytes of the buffer between kernel and process: for all interfaces together (eBPF), for each
    /// (packet sockets). 0: the source's own default.
    std::size_t bufferSize = 0;
    /// Makes the kernel's waits short for the whole machine while many interfaces are attached or detached
    /// (see ebpf/grace.h).
    bool expediteRcu = false;
};

class PacketSource {
public:
    PacketSource() = default;
    PacketSource(const PacketSource&) = delete;
    PacketSource& operator=(const PacketSource&) = delete;
    virtual ~PacketSource() = default;

    /// "ebpf-tcx", "ebpf-clsact" or "packet-socket": the name in the state.
    [[nodiscard]] virtual std::string Kind() const = 0;

    /// Begins to sample at a kernel interface. Its counts begin at zero. If it is sampled already, the same
    /// as Change. Throws Unavailable, for this interface alone. The kernel makes the caller wait, so it is
    /// attached beside the loop: Sampled tells when, SampleSink::OnRefused if it can't be.
    virtual void Add(std::uint32_t ifIndex, const Settings& settings) = 0;

    /// Changes how a sampled interface is sampled, at once and without a gap in its counts. Samples that were
    /// sampled before carry the rate that they were sampled with. Throws Unavailable if that fails: eBPF then
    /// applies all but a direction that it could not add, packet sockets keep the old settings. A direction
    /// that eBPF adds is attached as by Add. Packet sockets make their next pair in the call, or as soon as
    /// the pair before the present one is closed; then Sampled and OnRefused tell as after Add.
    virtual void Change(std::uint32_t ifIndex, const Settings& settings) = 0;

    /// Whether packets are sampled there: nothing that was asked for waits for the kernel, and it has not
    /// refused all of it.
    [[nodiscard]] virtual bool Sampled(std::uint32_t ifIndex) const = 0;

    /// Hands over what waits, ends the sampling at the interface and returns its last counts; zeros if it is
    /// not sampled. The kernel's interface may be gone already. What these counts say was sampled has been
    /// handed over or is in the drops; nothing comes of the interface afterwards. What is left to do in the
    /// kernel is done beside the loop.
    virtual Counts Remove(std::uint32_t ifIndex) = 0;

    /// The counts as they are now, samples that are not handed over yet included; zeros if it is not sampled.
    [[nodiscard]] virtual Counts Read(std::uint32_t ifIndex) = 0;

    struct InterfaceCounts {
        std::uint32_t ifIndex = 0;
        Counts counts;
    };
    /// The counts of all sampled interfaces, for less than one Read each.
    [[nodiscard]] virtual std::vector<InterfaceCounts> ReadAll() = 0;

    /// Hands over what waits now, then calls OnDrained.
    virtual void Drain() = 0;
};

enum class EbpfHook { kBest, kTcx, kClsact };

/// Packets sampled by an eBPF program at the interfaces' tcx hooks, or at clsact if the kernel has no tcx;
/// one ring buffer for all. The kernel wakes the process for the first packet and when the ring fills, never
/// for each packet. Loads the program. Removes what an earlier process left at clsact. Throws Unavailable.
/// Loop, timers and sink must outlive it.
std::unique_ptr<PacketSource> MakeEbpfSource(boost::asio::io_context& loop, base::Timers& timers,
                                             SampleSink& sink, const SourceOptions& options,
                                             EbpfHook hook = EbpfHook::kBest);

/// Packets sampled by a random filter of packet sockets (packet(7), TPACKET_V3), for kernels and privileges
/// that do not allow eBPF. A second socket per interface counts what could have been sampled. Throws
/// Unavailable if packet sockets can't be opened. Loop, timers and sink must outlive it.
std::unique_ptr<PacketSource> MakeRingSource(boost::asio::io_context& loop, base::Timers& timers,
                                             SampleSink& sink, const SourceOptions& options);

}  // namespace capture

#endif
