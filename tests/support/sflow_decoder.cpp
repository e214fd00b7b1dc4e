// SPDX-License-Identifier: Apache-2.0
// Written from the text of sFlow version 5 (July 2004) and RFC 4506 alone; see the header.

#include "support/sflow_decoder.h"

#include <array>
#include <cstdio>
#include <utility>

#include "support/sflow_cursor.h"

namespace support {
namespace {

DecodedHeader ReadHeader(Cursor& from)
{
    DecodedHeader header;
    header.protocol = from.Unsigned("header protocol");
    if (header.protocol < 1 || header.protocol > 14) from.FailBefore(4, "unknown header protocol");
    header.frameLength = from.Unsigned("frame length");
    header.stripped = from.Unsigned("stripped");
    header.bytes = from.Opaque("header");
    return header;
}

// Braced initialisers are evaluated from left to right, so the members are read in wire order.

DecodedSwitch ReadSwitch(Cursor& from)
{
    return {from.Unsigned("source vlan"), from.Unsigned("source priority"), from.Unsigned("destination vlan"),
            from.Unsigned("destination priority")};
}

DecodedRouter ReadRouter(Cursor& from)
{
    DecodedRouter router;
    router.nextHop = from.Address("next hop");
    if (router.nextHop.empty()) from.FailBefore(4, "a next hop without address");
    router.sourceBits = from.Unsigned("source mask length");
    router.destinationBits = from.Unsigned("destination mask length");
    return router;
}

DecodedGeneric ReadGeneric(Cursor& from)
{
    DecodedGeneric counters;
    counters.ifIndex = from.Unsigned("ifIndex");
    counters.ifType = from.Unsigned("ifType");
    counters.speed = from.UnsignedHyper("ifSpeed");
    counters.direction = from.AtMost(4, "ifDirection");
    const std::uint32_t status = from.AtMost(3, "ifStatus");
    counters.adminUp = status % 2 == 1;
    counters.operUp = status / 2 == 1;
    counters.inOctets = from.UnsignedHyper("ifInOctets");
    counters.inUnicast = from.Unsigned("ifInUcastPkts");
    counters.inMulticast = from.Unsigned("ifInMulticastPkts");
    counters.inBroadcast = from.Unsigned("ifInBroadcastPkts");
    counters.inDiscards = from.Unsigned("ifInDiscards");
    counters.inErrors = from.Unsigned("ifInErrors");
    counters.inUnknownProtocols = from.Unsigned("ifInUnknownProtos");
    counters.outOctets = from.UnsignedHyper("ifOutOctets");
    counters.outUnicast = from.Unsigned("ifOutUcastPkts");
    counters.outMulticast = from.Unsigned("ifOutMulticastPkts");
    counters.outBroadcast = from.Unsigned("ifOutBroadcastPkts");
    counters.outDiscards = from.Unsigned("ifOutDiscards");
    counters.outErrors = from.Unsigned("ifOutErrors");
    counters.promiscuous = from.AtMost(2, "ifPromiscuousMode");
    return counters;
}

DecodedEthernet ReadEthernet(Cursor& from)
{
    return {from.Unsigned("dot3StatsAlignmentErrors"),
            from.Unsigned("dot3StatsFCSErrors"),
            from.Unsigned("dot3StatsSingleCollisionFrames"),
            from.Unsigned("dot3StatsMultipleCollisionFrames"),
            from.Unsigned("dot3StatsSQETestErrors"),
            from.Unsigned("dot3StatsDeferredTransmissions"),
            from.Unsigned("dot3StatsLateCollisions"),
            from.Unsigned("dot3StatsExcessiveCollisions"),
            from.Unsigned("dot3StatsInternalMacTransmitErrors"),
            from.Unsigned("dot3StatsCarrierSenseErrors"),
            from.Unsigned("dot3StatsFrameTooLongs"),
            from.Unsigned("dot3StatsInternalMacReceiveErrors"),
            from.Unsigned("dot3StatsSymbolErrors")};
}

std::string ReadMac(Cursor& from, const char* name)
{
    std::string text;
    for (const std::byte byte : from.FixedOpaque(6, name)) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", std::to_integer<unsigned>(byte));
        text += (text.empty() ? "" : ":") + std::string(digits.data());
    }
    return text;
}

DecodedLag ReadLag(Cursor& from)
{
    DecodedLag lag;
    lag.actorSystem = ReadMac(from, "dot3adAggPortActorSystemID");
    lag.partnerSystem = ReadMac(from, "dot3adAggPortPartnerOperSystemID");
    lag.aggregate = from.Unsigned("dot3adAggPortAttachedAggID");
    const auto states = from.FixedOpaque(4, "dot3adAggPortState");
    lag.actorAdminState = std::to_integer<std::uint8_t>(states[0]);
    lag.actorState = std::to_integer<std::uint8_t>(states[1]);
    lag.partnerAdminState = std::to_integer<std::uint8_t>(states[2]);
    lag.partnerState = std::to_integer<std::uint8_t>(states[3]);
    lag.lacpdusIn = from.Unsigned("dot3adAggPortStatsLACPDUsRx");
    lag.markersIn = from.Unsigned("dot3adAggPortStatsMarkerPDUsRx");
    lag.markerResponsesIn = from.Unsigned("dot3adAggPortStatsMarkerResponsePDUsRx");
    lag.unknownIn = from.Unsigned("dot3adAggPortStatsUnknownRx");
    lag.illegalIn = from.Unsigned("dot3adAggPortStatsIllegalRx");
    lag.lacpdusOut = from.Unsigned("dot3adAggPortStatsLACPDUsTx");
    lag.markersOut = from.Unsigned("dot3adAggPortStatsMarkerPDUsTx");
    lag.markerResponsesOut = from.Unsigned("dot3adAggPortStatsMarkerResponsePDUsTx");
    return lag;
}

std::string ReadText(Cursor& from, const std::string& name)
{
    const auto bytes = from.Opaque(name.c_str());
    if (bytes.size() > 255)
        from.FailBefore(0, "a " + name + " of " + std::to_string(bytes.size()) + " bytes");
    std::string text;
    for (const std::byte byte : bytes) text += static_cast<char>(byte);
    return text;
}

std::string ReadPortName(Cursor& from) { return ReadText(from, "port name"); }
std::string ReadFunction(Cursor& from) { return ReadText(from, "function"); }
std::string ReadLinuxReason(Cursor& from) { return ReadText(from, "linux drop reason"); }

DecodedTrap ReadTrap(Cursor& from) { return {ReadText(from, "trap group"), ReadText(from, "trap")}; }

template <typename Record>
void Store(Cursor& from, std::optional<Record>& place, Record (*read)(Cursor&))
{
    if (place) from.FailBefore(0, "the second record of one format");
    place = read(from);
}

void ReadRecord(Cursor& from, std::uint32_t format, DecodedFlow& sample)
{
    switch (format) {
    case 1:
        return Store(from, sample.header, ReadHeader);
    case 1001:
        return Store(from, sample.extendedSwitch, ReadSwitch);
    case 1002:
        return Store(from, sample.extendedRouter, ReadRouter);
    default:
        from.FailBefore(8, "unknown flow record " + std::to_string(format));
    }
}

void ReadRecord(Cursor& from, std::uint32_t format, DecodedCounters& sample)
{
    switch (format) {
    case 1:
        return Store(from, sample.generic, ReadGeneric);
    case 2:
        return Store(from, sample.ethernet, ReadEthernet);
    case 7:
        return Store(from, sample.lag, ReadLag);
    case 1005:
        return Store(from, sample.portName, ReadPortName);
    default:
        from.FailBefore(8, "unknown counter record " + std::to_string(format));
    }
}

void ReadRecord(Cursor& from, std::uint32_t format, DecodedDiscard& sample)
{
    switch (format) {
    case 1:
        return Store(from, sample.header, ReadHeader);
    case 1038:
        return Store(from, sample.function, ReadFunction);
    case 1041:
        return Store(from, sample.trap, ReadTrap);
    case 1042:
        return Store(from, sample.linuxReason, ReadLinuxReason);
    default:
        from.FailBefore(8, "unknown record " + std::to_string(format) + " of a discarded packet");
    }
}

template <typename Sample>
void ReadRecords(Cursor& from, Sample& sample)
{
    const std::uint32_t count = from.Unsigned("number of records");
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t format = from.Unsigned("record format");
        Cursor part = from.Part("record");
        ReadRecord(part, format, sample);
        part.End("record");
        sample.records.push_back(format);
    }
}

/// One word: the class in the 8 bits above, the index in the 24 below; or, expanded, two words.
template <typename Sample>
void ReadSource(Cursor& from, Sample& sample)
{
    if (sample.expanded) {
        sample.sourceClass = from.Unsigned("source class");
        sample.sourceIndex = from.Unsigned("source index");
        return;
    }
    const std::uint32_t word = from.Unsigned("source");
    sample.sourceClass = word / 0x1000000;
    sample.sourceIndex = word % 0x1000000;
}

/// One word: the format in the 2 bits above, the value in the 30 below; or, expanded, two words.
DecodedPort ReadPort(Cursor& from, bool expanded, const char* name)
{
    DecodedPort port;
    if (expanded) {
        port.format = from.AtMost(2, name);
        port.value = from.Unsigned(name);
        return port;
    }
    const std::uint32_t word = from.Unsigned(name);
    port.format = word / 0x40000000;
    port.value = word % 0x40000000;
    if (port.format > 2) from.FailBefore(4, std::string(name) + " of format 3");
    return port;
}

DecodedFlow ReadFlow(Cursor& from, bool expanded)
{
    DecodedFlow sample;
    sample.expanded = expanded;
    sample.sequence = from.Unsigned("sample sequence");
    ReadSource(from, sample);
    sample.rate = from.Unsigned("sampling rate");
    sample.pool = from.Unsigned("sample pool");
    sample.drops = from.Unsigned("drops");
    sample.input = ReadPort(from, expanded, "input");
    sample.output = ReadPort(from, expanded, "output");
    ReadRecords(from, sample);
    return sample;
}

DecodedCounters ReadCounters(Cursor& from, bool expanded)
{
    DecodedCounters sample;
    sample.expanded = expanded;
    sample.sequence = from.Unsigned("sample sequence");
    ReadSource(from, sample);
    ReadRecords(from, sample);
    return sample;
}

DecodedDiscard ReadDiscard(Cursor& from)
{
    DecodedDiscard sample;
    sample.sequence = from.Unsigned("sample sequence");
    sample.sourceClass = from.Unsigned("source class");
    sample.sourceIndex = from.Unsigned("source index");
    sample.drops = from.Unsigned("drops");
    sample.input = from.Unsigned("input");
    sample.output = from.Unsigned("output");
    sample.reason = from.Unsigned("reason");
    if (sample.reason > 15 && sample.reason < 256)
        from.FailBefore(4, "unknown drop reason " + std::to_string(sample.reason));
    ReadRecords(from, sample);
    return sample;
}

DecodedSample ReadSample(Cursor& from)
{
    const std::uint32_t format = from.Unsigned("sample format");
    if (format < 1 || format > 5) from.FailBefore(4, "unknown sample format " + std::to_string(format));
    Cursor part = from.Part("sample");
    DecodedSample sample;
    if (format == 5) {
        sample = ReadDiscard(part);
    } else if (format % 2 == 1) {
        sample = ReadFlow(part, format == 3);
    } else {
        sample = ReadCounters(part, format == 4);
    }
    part.End("sample");
    return sample;
}

/// Whether it is expanded; nothing if its kind has one encoding only.
std::optional<bool> IsExpanded(const DecodedSample& sample)
{
    if (const auto* flow = std::get_if<DecodedFlow>(&sample)) return flow->expanded;
    if (const auto* counters = std::get_if<DecodedCounters>(&sample)) return counters->expanded;
    return {};
}

template <typename Kind>
std::vector<Kind> Only(const std::vector<DecodedSample>& samples)
{
    std::vector<Kind> found;
    for (const DecodedSample& sample : samples) {
        if (const Kind* const one = std::get_if<Kind>(&sample)) found.push_back(*one);
    }
    return found;
}

}  // namespace

std::vector<DecodedFlow> Datagram::Flows() const { return Only<DecodedFlow>(samples); }

std::vector<DecodedCounters> Datagram::Counters() const { return Only<DecodedCounters>(samples); }

std::vector<DecodedDiscard> Datagram::Discards() const { return Only<DecodedDiscard>(samples); }

Datagram DecodeDatagram(std::span<const std::byte> bytes)
{
    Cursor from(bytes, 0, bytes.size());
    if (from.Unsigned("version") != 5) from.FailBefore(4, "the version is not 5");
    Datagram datagram;
    datagram.agent = from.Address("agent address");
    if (datagram.agent.empty()) from.FailBefore(4, "an agent without address");
    datagram.subAgent = from.Unsigned("sub agent");
    datagram.sequence = from.Unsigned("datagram sequence");
    datagram.uptime = from.Unsigned("uptime");
    const std::uint32_t count = from.Unsigned("number of samples");
    std::optional<bool> expanded;
    for (std::uint32_t i = 0; i < count; ++i) {
        datagram.samples.push_back(ReadSample(from));
        const std::optional<bool> own = IsExpanded(datagram.samples.back());
        if (own && own != expanded.value_or(*own)) {
            from.FailBefore(0, "before here a sample of the other encoding");
        }
        if (own) expanded = own;
    }
    from.End("datagram");
    return datagram;
}

DecodedSample DecodeSample(std::span<const std::byte> bytes)
{
    Cursor from(bytes, 0, bytes.size());
    DecodedSample sample = ReadSample(from);
    from.End("sample");
    return sample;
}

}  // namespace support
