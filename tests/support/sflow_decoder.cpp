// SPDX-License-Identifier: Apache-2.0
// Written from the text of sFlow version 5 (July 2004) and RFC 4506 alone; see the header.

#include "support/sflow_decoder.h"

#include <arpa/inet.h>

#include <array>
#include <string_view>
#include <utility>

namespace support {
namespace {

/// Reads from a part of the bytes; the offset is that in the whole.
class Cursor {
public:
    Cursor(std::span<const std::byte> whole, std::size_t at, std::size_t end)
        : m_whole(whole), m_at(at), m_end(end)
    {
    }

    [[noreturn]] static void FailAt(std::size_t offset, const std::string& what)
    {
        throw DecodeError("offset " + std::to_string(offset) + ": " + what);
    }

    /// Complains about the value of `size` bytes that was read last.
    [[noreturn]] void FailBefore(std::size_t size, const std::string& what) const
    {
        FailAt(m_at - size, what);
    }

    std::uint32_t Unsigned(const char* name) { return static_cast<std::uint32_t>(Number(4, name)); }
    std::uint64_t UnsignedHyper(const char* name) { return Number(8, name); }

    std::uint32_t AtMost(std::uint32_t limit, const char* name)
    {
        const std::uint32_t value = Unsigned(name);
        if (value > limit) FailBefore(4, std::string(name) + " is " + std::to_string(value));
        return value;
    }

    std::vector<std::byte> FixedOpaque(std::size_t size, const char* name)
    {
        Need(size, name);
        const auto bytes = m_whole.subspan(m_at, size);
        m_at += size;
        while (m_at % 4 != 0) {
            if (Number(1, "padding") != 0)
                FailBefore(1, std::string("the padding of ") + name + " is not zero");
        }
        return {bytes.begin(), bytes.end()};
    }

    std::vector<std::byte> Opaque(const char* name) { return FixedOpaque(Unsigned(name), name); }

    std::string Address(const char* name)
    {
        const std::uint32_t type = AtMost(2, name);
        if (type == 0) return {};
        const auto bytes = FixedOpaque(type == 1 ? 4 : 16, name);
        std::array<char, INET6_ADDRSTRLEN> text{};
        ::inet_ntop(type == 1 ? AF_INET : AF_INET6, bytes.data(), text.data(), text.size());
        return text.data();
    }

    /// The part behind a length word, which this cursor then has behind it.
    Cursor Part(const char* name)
    {
        const std::uint32_t size = Unsigned(name);
        if (size % 4 != 0) FailBefore(4, std::string(name) + " of " + std::to_string(size) + " bytes");
        Need(size, name);
        m_at += size;
        return {m_whole, m_at - size, m_at};
    }

    void End(const char* name) const
    {
        if (m_at != m_end) {
            FailAt(m_at, std::to_string(m_end - m_at) + " bytes left over in " + name);
        }
    }

private:
    void Need(std::size_t size, const char* name) const
    {
        if (size > m_end - m_at) {
            FailAt(m_at, std::string(name) + " needs " + std::to_string(size) + " bytes, there are " +
                             std::to_string(m_end - m_at));
        }
    }

    std::uint64_t Number(std::size_t size, const char* name)
    {
        Need(size, name);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = value * 256 + std::to_integer<std::uint64_t>(m_whole[m_at++]);
        }
        return value;
    }

    std::span<const std::byte> m_whole;
    std::size_t m_at;
    std::size_t m_end;
};

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

std::string ReadPortName(Cursor& from)
{
    const auto bytes = from.Opaque("port name");
    if (bytes.size() > 255) from.FailBefore(0, "a port name of " + std::to_string(bytes.size()) + " bytes");
    std::string name;
    for (const std::byte byte : bytes) name += static_cast<char>(byte);
    return name;
}

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
    case 1005:
        return Store(from, sample.portName, ReadPortName);
    default:
        from.FailBefore(8, "unknown counter record " + std::to_string(format));
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

DecodedSample ReadSample(Cursor& from)
{
    const std::uint32_t format = from.Unsigned("sample format");
    if (format < 1 || format > 4) from.FailBefore(4, "unknown sample format " + std::to_string(format));
    Cursor part = from.Part("sample");
    DecodedSample sample;
    if (format % 2 == 1) {
        sample = ReadFlow(part, format == 3);
    } else {
        sample = ReadCounters(part, format == 4);
    }
    part.End("sample");
    return sample;
}

bool IsExpanded(const DecodedSample& sample)
{
    return std::visit([](const auto& one) { return one.expanded; }, sample);
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
    for (std::uint32_t i = 0; i < count; ++i) {
        datagram.samples.push_back(ReadSample(from));
        if (IsExpanded(datagram.samples.back()) != IsExpanded(datagram.samples.front())) {
            from.FailBefore(0, "before here a sample of the other encoding");
        }
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
