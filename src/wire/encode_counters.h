// SPDX-License-Identifier: Apache-2.0
// The counters sample of encode.h. Include encode.h, not this file.

#ifndef WIRE_ENCODE_COUNTERS_H
#define WIRE_ENCODE_COUNTERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "wire/encode_parts.h"
#include "wire/format.h"
#include "wire/sample.h"
#include "wire/xdr.h"

namespace wire::detail {

inline void WriteGeneric(XdrWriter& to, const GenericCounters& counters)
{
    WritePrefix(to, CounterRecord::kGeneric, kGenericSize);
    to.Word(counters.ifIndex);
    to.Word(counters.ifType);
    to.Hyper(counters.speed);
    to.Word(counters.direction);
    to.Word((counters.adminUp ? 1U : 0U) | (counters.operUp ? 2U : 0U));
    to.Hyper(counters.inOctets);
    to.Word(counters.inUnicast);
    to.Word(counters.inMulticast);
    to.Word(counters.inBroadcast);
    to.Word(counters.inDiscards);
    to.Word(counters.inErrors);
    to.Word(counters.inUnknownProtocols);
    to.Hyper(counters.outOctets);
    to.Word(counters.outUnicast);
    to.Word(counters.outMulticast);
    to.Word(counters.outBroadcast);
    to.Word(counters.outDiscards);
    to.Word(counters.outErrors);
    to.Word(counters.promiscuous);
}

inline void WriteEthernet(XdrWriter& to, const EthernetCounters& counters)
{
    WritePrefix(to, CounterRecord::kEthernet, kEthernetSize);
    to.Word(counters.alignmentErrors);
    to.Word(counters.fcsErrors);
    to.Word(counters.singleCollisions);
    to.Word(counters.multipleCollisions);
    to.Word(counters.sqeTestErrors);
    to.Word(counters.deferred);
    to.Word(counters.lateCollisions);
    to.Word(counters.excessiveCollisions);
    to.Word(counters.macTransmitErrors);
    to.Word(counters.carrierSenseErrors);
    to.Word(counters.frameTooLongs);
    to.Word(counters.macReceiveErrors);
    to.Word(counters.symbolErrors);
}

inline void WritePortName(XdrWriter& to, std::string_view name)
{
    WritePrefix(to, CounterRecord::kPortName, kPortNameSize + Padded(name.size()));
    std::memcpy(to.Opaque(name.size()), name.data(), name.size());
}

inline std::size_t EncodeCounters(const CountersSample& sample, Encoding encoding, std::span<std::byte> out)
{
    const bool compact = encoding == Encoding::kCompact;
    const std::string_view name = sample.portName.substr(0, kMaxPortName);

    std::size_t size =
        kPrefixSize + (compact ? kCountersSize : kExpandedCountersSize) + kPrefixSize + kGenericSize;
    if (out.size() < size) {
        return 0;
    }
    // If a record does not fit, those behind it are left out too: what is sent is always a beginning of the
    // whole list.
    const auto takes = [&](bool present, std::size_t record, bool& fits) {
        const bool taken = present && fits && record <= out.size() - size;
        fits = fits && taken == present;
        size += taken ? record : 0;
        return taken;
    };
    bool fits = true;
    const bool ethernet = takes(sample.ethernet.has_value(), kPrefixSize + kEthernetSize, fits);
    const bool portName = takes(!name.empty(), kPrefixSize + kPortNameSize + Padded(name.size()), fits);

    XdrWriter to(out.data());
    WritePrefix(to, compact ? SampleFormat::kCounters : SampleFormat::kExpandedCounters, size - kPrefixSize);
    WriteSource(to, encoding, sample.sequence, sample.source);
    to.Word(1 + std::uint32_t{ethernet} + std::uint32_t{portName});
    WriteGeneric(to, sample.generic);
    if (ethernet) {
        WriteEthernet(to, *sample.ethernet);
    }
    if (portName) {
        WritePortName(to, name);
    }
    return size;
}

}  // namespace wire::detail

#endif
