// SPDX-License-Identifier: Apache-2.0
// Where dropped packets come from: a source that counts every packet that the kernel drops at the interfaces
// of this network namespace, by interface and by the kernel's reason, and hands some of them over in batches,
// never more in a second than the limit. It knows nothing of collectors, names of interfaces or datagrams.
// sFlow's code of a drop: capture/drops/code.h.
//
// A drop is what the kernel frees with a reason that says that the packet got lost. What it has delivered is
// none, whatever becomes of it then: what a socket's owner leaves unread, what TCP has already, a copy that
// no packet socket took. Packets without a reason count where a device has them. A packet that the kernel
// holds as several segments is one drop.

#ifndef CAPTURE_DROP_SOURCE_H
#define CAPTURE_DROP_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "capture/unavailable.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace capture {

/// Most bytes of a dropped packet that can be asked for.
inline constexpr std::size_t kMaxDroppedHeader = 512;
/// Most drops a second that are handed over, whatever the settings say.
inline constexpr std::uint32_t kMaxDropLimit = 10'000;

/// What the bytes of a dropped packet begin with.
enum class HeaderStart : std::uint8_t { kUnknown, kEthernet, kIpv4, kIpv6 };

/// A dropped packet.
struct Drop {
    /// The interface that had it. Where none had: the one by which it had entered, else the one to which its
    /// route leads. 0: not known.
    std::uint32_t ifIndex = 0;
    std::uint32_t input = 0;   // by which interface it had entered; 0: it was made here, or is not known
    std::uint32_t output = 0;  // by which interface it was to leave; 0: not known
    std::uint32_t reason = 0;  // the kernel's number, which differs from kernel to kernel
    std::string_view
        reasonName;  // the running kernel's name of it, such as "NO_SOCKET"; valid as long as the source
    std::string_view function;  // of the kernel, which dropped it; empty: not known; valid in the call only
    int routeError = 0;         // why its route drops packets: an errno; 0: it does not, or it has none
    std::uint64_t time = 0;     // nanoseconds of CLOCK_MONOTONIC, to 1 us
    std::uint32_t length =
        0;  // bytes as the kernel holds it, from where `header` begins; without FCS and taken tag
    std::uint16_t etherType =
        0;  // host byte order, as the kernel sees it; below 1536: of frames with a length
    std::uint16_t tagProtocol = 0;  // TPID of a VLAN tag that the kernel has taken out of the packet; 0: none
    std::uint16_t tagControl =
        0;  // priority and VLAN id of that tag, host byte order. A bridge gives untagged packets one
    HeaderStart start = HeaderStart::kUnknown;
    std::span<const std::byte> header;  // its beginning, as far as it lies in the packet's first piece; none
                                        // if `start` is unknown; valid in the call only
    std::uint64_t untold = 0;           // of its interface, as of this look: DropCounts::untold
};

/// Takes the dropped packets. Called from the loop only, in the middle of the source's work: a sink must not
/// call the source back, and must not throw.
class DropSink {
public:
    DropSink() = default;
    DropSink(const DropSink&) = delete;
    DropSink& operator=(const DropSink&) = delete;
    virtual ~DropSink() = default;

    /// Those of one CPU are in the order in which they were dropped.
    virtual void OnDrops(std::span<const Drop> drops) noexcept = 0;
    /// All that was waiting has been handed over: time to send.
    virtual void OnDrained() noexcept = 0;
};

/// What can be changed at any time, at once and without a gap in the counts.
struct DropSettings {
    /// Drops a second that are handed over, of all interfaces together, up to kMaxDropLimit: never more in
    /// any second, all of them in one moment if need be. 0: drops are only counted.
    std::uint32_t limit = 0;
    std::uint16_t headerSize = 128;  // bytes of a packet's beginning that are wanted, up to kMaxDroppedHeader
    bool everyInterface = false;     // else those that were added
    friend bool operator==(const DropSettings&, const DropSettings&) = default;
};

/// Of one interface, since its first drop or since Remove.
struct DropCounts {
    std::uint64_t drops = 0;   // all
    std::uint64_t untold = 0;  // of these, not handed over: over the limit, or no room in the ring
    std::uint64_t own = 0;     // of these, this process's own packets, which are never handed over
    friend bool operator==(const DropCounts&, const DropCounts&) = default;
};

struct ReasonCount {
    std::uint32_t reason = 0;  // DropSource::NameOf
    std::uint64_t drops = 0;
    std::uint64_t last = 0;  // when the newest was: nanoseconds of CLOCK_MONOTONIC
    friend bool operator==(const ReasonCount&, const ReasonCount&) = default;
};

struct InterfaceDrops {
    std::uint32_t ifIndex = 0;  // 0: drops at no interface that is known; in effect with everyInterface only
    DropCounts counts;
    std::vector<ReasonCount> reasons;  // ascending numbers
    std::uint64_t nameless =
        0;  // of the drops, those for whose reason there was no room: DropOptions::maxReasons
    friend bool operator==(const InterfaceDrops&, const InterfaceDrops&) = default;
};

/// Drops that no interface's counts have.
struct UncountedDrops {
    std::uint64_t beyond = 0;        // at interfaces for which there was no room: DropOptions::maxInterfaces
    std::uint64_t beyondUntold = 0;  // of these, not handed over
    /// Of the whole machine, not of this namespace alone: the kernel dropped a packet while the program was
    /// looking at one on the same CPU. 0 where the kernel does not say.
    std::uint64_t missed = 0;
    friend bool operator==(const UncountedDrops&, const UncountedDrops&) = default;
};

struct DropOptions {
    /// Packets with this socket mark are counted but never handed over: the agent's own datagrams. Else one
    /// that is dropped would beget another that is dropped.
    std::uint32_t ownMark = 0;
    /// Bytes of the buffer between kernel and process; 0: the source's own default, 1 MiB.
    std::size_t bufferSize = 0;
    /// Interfaces that are counted, and pairs of interface and reason. The kernel has 90 bytes for each and
    /// 40 for each CPU.
    std::uint32_t maxInterfaces = 8192;
    std::uint32_t maxReasons = 16384;
    /// Where the kernel describes its types.
    std::string kernelTypes = "/sys/kernel/btf";
};

class DropSource {
public:
    DropSource() = default;
    DropSource(const DropSource&) = delete;
    DropSource& operator=(const DropSource&) = delete;
    virtual ~DropSource() = default;

    virtual void Change(const DropSettings& settings) = 0;

    /// The interface is one of those that are counted and told while not every interface is. Throws
    /// Unavailable if the kernel has no room for it.
    virtual void Add(std::uint32_t ifIndex) = 0;
    /// Hands over what waits, then takes the interface out and forgets its counts. To be called for each
    /// interface that goes for good, also while every interface is counted: nothing else makes its room free.
    virtual void Remove(std::uint32_t ifIndex) = 0;

    /// The counts of all interfaces that had drops, in ascending order, for some system calls in all.
    [[nodiscard]] virtual std::vector<InterfaceDrops> ReadAll() = 0;
    /// Of one; nothing if it had no drops.
    [[nodiscard]] virtual std::optional<InterfaceDrops> Read(std::uint32_t ifIndex) = 0;
    [[nodiscard]] virtual UncountedDrops ReadUncounted() = 0;

    /// The running kernel's name of a reason, as in its traces: "NO_SOCKET". Of a subsystem without names,
    /// such as a module: "OPENVSWITCH_3". Valid as long as the source.
    [[nodiscard]] virtual std::string_view NameOf(std::uint32_t reason) = 0;

    /// Hands over what waits now, then calls OnDrained.
    virtual void Drain() = 0;
};

/// Drops as a program at the kernel's tracepoint kfree_skb sees them. The network namespace is that of the
/// calling thread. Nothing is counted before Change or Add. The program ends with the source, however the
/// process ends. Throws Unavailable: needs Linux 5.17 with CONFIG_DEBUG_INFO_BTF, CAP_BPF and CAP_PERFMON.
/// Loop, timers and sink must outlive it.
std::unique_ptr<DropSource> MakeDropSource(boost::asio::io_context& loop, base::Timers& timers,
                                           DropSink& sink, const DropOptions& options);

}  // namespace capture

#endif
