// SPDX-License-Identifier: Apache-2.0
// Samples with every field made up by a source of numbers: random ones in the round-trip tests, the
// fuzzer's input in the fuzz target.

#ifndef TESTS_UNIT_WIRE_SAMPLE_SOURCE_H
#define TESTS_UNIT_WIRE_SAMPLE_SOURCE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "wire/discard.h"
#include "wire/sample.h"

/// Makes random samples from `next`, a callable that gives 32 bits at each call. What a sample refers to lies
/// in this object, until the next sample of its kind is made.
template <typename Next>
class SampleSource {
public:
    explicit SampleSource(Next next) : m_next(next) {}

    wire::Encoding Encoding() { return Below(2) == 0 ? wire::Encoding::kCompact : wire::Encoding::kExpanded; }

    /// Less than `limit`, which is at least 1.
    std::uint32_t Below(std::size_t limit) { return m_next() % static_cast<std::uint32_t>(limit); }

    wire::FlowSample Flow()
    {
        constexpr std::array kProtocols{wire::HeaderProtocol::kEthernet, wire::HeaderProtocol::kPpp,
                                        wire::HeaderProtocol::kIpv4, wire::HeaderProtocol::kIpv6};
        wire::FlowSample sample;
        for (auto* const field : {&sample.sequence, &sample.source, &sample.rate, &sample.pool, &sample.drops,
                                  &sample.frameLength, &sample.stripped, &sample.inputVlan,
                                  &sample.inputPriority, &sample.outputVlan, &sample.outputPriority}) {
            *field = m_next();
        }
        sample.input = DrawnPort();
        sample.output = DrawnPort();
        sample.protocol = kProtocols.at(Below(kProtocols.size()));
        const auto header = std::span(m_header).first(Below(2) == 0 ? Below(24) : Below(kMaxHeader + 1));
        Fill(header);
        sample.header = header;
        sample.tagProtocol = Below(2) == 0 ? std::uint16_t{0} : static_cast<std::uint16_t>(m_next());
        sample.tagControl = static_cast<std::uint16_t>(m_next());
        sample.maxHeader = Below(4) == 0 ? m_next() : Below(2) == 0 ? Below(24) : Below(kMaxHeader + 1);
        if (Below(2) == 0) sample.router = DrawnRouter();
        return sample;
    }

    wire::CountersSample Counters()
    {
        wire::CountersSample sample;
        sample.sequence = m_next();
        sample.source = m_next();
        auto& generic = sample.generic;
        for (auto* const field : {&generic.ifIndex, &generic.ifType, &generic.inUnicast, &generic.inMulticast,
                                  &generic.inBroadcast, &generic.inDiscards, &generic.inErrors,
                                  &generic.inUnknownProtocols, &generic.outUnicast, &generic.outMulticast,
                                  &generic.outBroadcast, &generic.outDiscards, &generic.outErrors}) {
            *field = m_next();
        }
        for (auto* const field : {&generic.speed, &generic.inOctets, &generic.outOctets}) {
            *field = std::uint64_t{m_next()} << 32 | m_next();
        }
        generic.direction = Below(3);
        generic.adminUp = Below(2) != 0;
        generic.operUp = Below(2) != 0;
        generic.promiscuous = Below(3);
        if (Below(2) == 0) sample.ethernet = DrawnEthernet();
        if (Below(2) == 0) sample.lag = DrawnLag();
        const auto name = std::span(m_name).first(Below(2) == 0 ? Below(10) : Below(m_name.size() + 1));
        Fill(name);
        sample.portName = std::string_view(name.data(), name.size());
        return sample;
    }

    wire::DiscardSample Discard()
    {
        wire::DiscardSample sample;
        for (auto* const field : {&sample.sequence, &sample.source, &sample.drops, &sample.input,
                                  &sample.output, &sample.frameLength, &sample.stripped}) {
            *field = m_next();
        }
        sample.reason = static_cast<wire::DropReason>(Below(2) == 0 ? Below(16) : 256 + Below(48));
        const wire::FlowSample like = Flow();  // the header is the same
        sample.protocol = like.protocol;
        sample.header = like.header;
        sample.tagProtocol = like.tagProtocol;
        sample.tagControl = like.tagControl;
        sample.maxHeader = like.maxHeader;
        Fill(std::span<char>(m_name));
        std::size_t at = 0;
        for (auto* const text : {&sample.function, &sample.trapGroup, &sample.trap, &sample.linuxReason}) {
            *text = std::string_view(m_name.data(), m_name.size())
                        .substr(at++, Below(3) == 0   ? 0
                                      : Below(2) == 0 ? Below(20)
                                                      : Below(290));
        }
        return sample;
    }

private:
    static constexpr std::size_t kMaxHeader = 512;

    template <typename Byte>
    void Fill(std::span<Byte> bytes)
    {
        std::uint32_t word = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i, word >>= 8) {
            if (i % 4 == 0) word = m_next();
            bytes[i] = static_cast<Byte>(word & 0xff);
        }
    }

    wire::Port DrawnPort()
    {
        constexpr std::array kFormats{wire::Port::Format::kSingle, wire::Port::Format::kDiscarded,
                                      wire::Port::Format::kMultiple};
        const auto format = kFormats.at(Below(kFormats.size()));
        return {format, m_next()};
    }

    wire::ExtendedRouter DrawnRouter()
    {
        constexpr std::array<std::uint8_t, 5> kSizes{0, 4, 16, 7, 255};
        wire::ExtendedRouter router;
        router.nextHop.size = kSizes.at(Below(kSizes.size()));
        Fill(std::span<std::uint8_t>(router.nextHop.bytes));
        router.sourceBits = m_next();
        router.destinationBits = m_next();
        return router;
    }

    wire::EthernetCounters DrawnEthernet()
    {
        wire::EthernetCounters counters;
        for (auto* const field :
             {&counters.alignmentErrors, &counters.fcsErrors, &counters.singleCollisions,
              &counters.multipleCollisions, &counters.sqeTestErrors, &counters.deferred,
              &counters.lateCollisions, &counters.excessiveCollisions, &counters.macTransmitErrors,
              &counters.carrierSenseErrors, &counters.frameTooLongs, &counters.macReceiveErrors,
              &counters.symbolErrors}) {
            *field = m_next();
        }
        return counters;
    }

    wire::LagCounters DrawnLag()
    {
        wire::LagCounters counters;
        Fill(std::span<std::uint8_t>(counters.actorSystem));
        Fill(std::span<std::uint8_t>(counters.partnerSystem));
        for (auto* const state : {&counters.actorAdminState, &counters.actorState,
                                  &counters.partnerAdminState, &counters.partnerState}) {
            *state = static_cast<std::uint8_t>(m_next());
        }
        for (auto* const field : {&counters.aggregate, &counters.lacpdusIn, &counters.markersIn,
                                  &counters.markerResponsesIn, &counters.unknownIn, &counters.illegalIn,
                                  &counters.lacpdusOut, &counters.markersOut, &counters.markerResponsesOut}) {
            *field = m_next();
        }
        return counters;
    }

    Next m_next;
    std::array<std::byte, kMaxHeader> m_header{};
    std::array<char, 300> m_name{};
};

#endif
