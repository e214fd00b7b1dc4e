// SPDX-License-Identifier: Apache-2.0
// The numbers by which sFlow version 5 tells samples and records apart, and the sizes of those whose size
// is fixed. All are of enterprise 0, so the format word is the number itself.

#ifndef WIRE_FORMAT_H
#define WIRE_FORMAT_H

#include <cstddef>
#include <cstdint>

namespace wire {

enum class SampleFormat : std::uint32_t {
    kFlow = 1,
    kCounters = 2,
    kExpandedFlow = 3,
    kExpandedCounters = 4,
};

enum class FlowRecord : std::uint32_t {
    kSampledHeader = 1,
    kExtendedSwitch = 1001,
    kExtendedRouter = 1002,
};

enum class CounterRecord : std::uint32_t {
    kGeneric = 1,
    kEthernet = 2,
    kPortName = 1005,
};

enum class AddressType : std::uint32_t { kIpv4 = 1, kIpv6 = 2 };

/// Bytes of a sample's or record's format and length.
inline constexpr std::size_t kPrefixSize = 8;

// Bytes behind the prefix, the records of a sample not counted.
inline constexpr std::size_t kFlowSize = 32;
inline constexpr std::size_t kExpandedFlowSize = 44;
inline constexpr std::size_t kCountersSize = 12;
inline constexpr std::size_t kExpandedCountersSize = 16;

// Bytes behind the prefix.
inline constexpr std::size_t kSampledHeaderSize = 16;  // the header's bytes not counted
inline constexpr std::size_t kExtendedSwitchSize = 16;
inline constexpr std::size_t kExtendedRouterSize = 12;  // the address's bytes not counted
inline constexpr std::size_t kGenericSize = 88;
inline constexpr std::size_t kEthernetSize = 52;
inline constexpr std::size_t kPortNameSize = 4;  // the name's bytes not counted
/// Bytes of a port name at most.
inline constexpr std::size_t kMaxPortName = 255;

}  // namespace wire

#endif
