// SPDX-License-Identifier: Apache-2.0
#include "expected_sample.h"

#include <arpa/inet.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::uint32_t kCompactIndexes = 1U << 24;
constexpr std::uint32_t kCompactValues = 1U << 30;

std::size_t RoundedUp(std::size_t size)
{
    while (size % 4 != 0) ++size;
    return size;
}

std::uint32_t Index(std::uint32_t index, wire::Encoding encoding)
{
    return encoding == wire::Encoding::kCompact ? index % kCompactIndexes : index;
}

support::DecodedPort PortOf(const wire::Port& port, wire::Encoding encoding)
{
    return {static_cast<std::uint32_t>(port.format),
            encoding == wire::Encoding::kCompact ? port.value % kCompactValues : port.value};
}

support::DecodedRouter RouterOf(const wire::ExtendedRouter& router)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    ::inet_ntop(router.nextHop.size == 4 ? AF_INET : AF_INET6, router.nextHop.bytes.data(), text.data(),
                text.size());
    return {text.data(), router.sourceBits, router.destinationBits};
}

/// What is sent of the header where nothing else limits it.
template <typename Sample>
std::vector<std::byte> HeaderOf(const Sample& sample)
{
    std::vector<std::byte> bytes(sample.header.begin(), sample.header.end());
    if (sample.tagProtocol != 0 && bytes.size() >= 12) {
        const std::array tag{static_cast<std::byte>(sample.tagProtocol / 256),
                             static_cast<std::byte>(sample.tagProtocol % 256),
                             static_cast<std::byte>(sample.tagControl / 256),
                             static_cast<std::byte>(sample.tagControl % 256)};
        bytes.insert(bytes.begin() + 12, tag.begin(), tag.end());
    }
    if (bytes.size() > sample.maxHeader) bytes.resize(sample.maxHeader);
    return bytes;
}

std::string Text(const wire::LagCounters::System& system)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : system) {
        if (!text.empty()) text += ':';
        text += kDigits[byte / 16];
        text += kDigits[byte % 16];
    }
    return text;
}

support::DecodedLag LagOf(const wire::LagCounters& lag)
{
    return {.actorSystem = Text(lag.actorSystem),
            .partnerSystem = Text(lag.partnerSystem),
            .aggregate = lag.aggregate,
            .actorAdminState = lag.actorAdminState,
            .actorState = lag.actorState,
            .partnerAdminState = lag.partnerAdminState,
            .partnerState = lag.partnerState,
            .lacpdusIn = lag.lacpdusIn,
            .markersIn = lag.markersIn,
            .markerResponsesIn = lag.markerResponsesIn,
            .unknownIn = lag.unknownIn,
            .illegalIn = lag.illegalIn,
            .lacpdusOut = lag.lacpdusOut,
            .markersOut = lag.markersOut,
            .markerResponsesOut = lag.markerResponsesOut};
}

std::size_t RouterSize(const support::DecodedRouter& router)
{
    return router.nextHop.find(':') == std::string::npos ? 24 : 36;
}

}  // namespace

std::optional<support::DecodedFlow> Expected(const wire::FlowSample& sample, wire::Encoding encoding,
                                             std::size_t room)
{
    support::DecodedFlow flow;
    flow.expanded = encoding == wire::Encoding::kExpanded;
    flow.sequence = sample.sequence;
    flow.sourceIndex = Index(sample.source, encoding);
    flow.rate = sample.rate;
    flow.pool = sample.pool;
    flow.drops = sample.drops;
    flow.input = PortOf(sample.input, encoding);
    flow.output = PortOf(sample.output, encoding);
    flow.records = {1, 1001};
    flow.extendedSwitch = support::DecodedSwitch{sample.inputVlan, sample.inputPriority, sample.outputVlan,
                                                 sample.outputPriority};
    std::size_t size = flow.expanded ? 100 : 88;
    if (sample.router && (sample.router->nextHop.size == 4 || sample.router->nextHop.size == 16)) {
        flow.records.push_back(1002);
        flow.extendedRouter = RouterOf(*sample.router);
        size += RouterSize(*flow.extendedRouter);
    }
    if (size > room) return {};

    std::vector<std::byte> bytes = HeaderOf(sample);
    while (size + RoundedUp(bytes.size()) > room) bytes.pop_back();
    flow.header = support::DecodedHeader{static_cast<std::uint32_t>(sample.protocol), sample.frameLength,
                                         sample.stripped, std::move(bytes)};
    return flow;
}

std::optional<support::DecodedCounters> Expected(const wire::CountersSample& sample, wire::Encoding encoding,
                                                 std::size_t room)
{
    support::DecodedCounters counters;
    counters.expanded = encoding == wire::Encoding::kExpanded;
    counters.sequence = sample.sequence;
    counters.sourceIndex = Index(sample.source, encoding);

    const auto& from = sample.generic;
    counters.records = {1};
    counters.generic = support::DecodedGeneric{from.ifIndex,
                                               from.ifType,
                                               from.speed,
                                               from.direction,
                                               from.adminUp,
                                               from.operUp,
                                               from.inOctets,
                                               from.inUnicast,
                                               from.inMulticast,
                                               from.inBroadcast,
                                               from.inDiscards,
                                               from.inErrors,
                                               from.inUnknownProtocols,
                                               from.outOctets,
                                               from.outUnicast,
                                               from.outMulticast,
                                               from.outBroadcast,
                                               from.outDiscards,
                                               from.outErrors,
                                               from.promiscuous};
    std::size_t size = counters.expanded ? 120 : 116;
    if (size > room) return {};

    if (sample.ethernet) {
        size += 60;
        if (size > room) return counters;
        const auto& ethernet = *sample.ethernet;
        counters.records.push_back(2);
        counters.ethernet = support::DecodedEthernet{
            ethernet.alignmentErrors,    ethernet.fcsErrors,           ethernet.singleCollisions,
            ethernet.multipleCollisions, ethernet.sqeTestErrors,       ethernet.deferred,
            ethernet.lateCollisions,     ethernet.excessiveCollisions, ethernet.macTransmitErrors,
            ethernet.carrierSenseErrors, ethernet.frameTooLongs,       ethernet.macReceiveErrors,
            ethernet.symbolErrors};
    }
    if (sample.lag) {
        size += 64;
        if (size > room) return counters;
        counters.records.push_back(7);
        counters.lag = LagOf(*sample.lag);
    }
    const std::string name(sample.portName.substr(0, 255));
    if (!name.empty() && size + 12 + RoundedUp(name.size()) <= room) {
        counters.records.push_back(1005);
        counters.portName = name;
    }
    return counters;
}

std::optional<support::DecodedDiscard> Expected(const wire::DiscardSample& sample, std::size_t room)
{
    std::size_t size = 64;
    if (size > room) return {};
    support::DecodedDiscard discard;
    discard.sequence = sample.sequence;
    discard.sourceIndex = sample.source;
    discard.drops = sample.drops;
    discard.input = sample.input;
    discard.output = sample.output;
    discard.reason = static_cast<std::uint32_t>(sample.reason);

    const auto cut = [](std::string_view text) { return std::string(text.substr(0, 255)); };
    const std::string reason = cut(sample.linuxReason), function = cut(sample.function);
    const support::DecodedTrap trap{cut(sample.trapGroup), cut(sample.trap)};
    const auto takes = [&](std::size_t record) {
        if (size + record > room) return false;
        size += record;
        return true;
    };
    if (!reason.empty() && takes(12 + RoundedUp(reason.size()))) discard.linuxReason = reason;
    if (!function.empty() && takes(12 + RoundedUp(function.size()))) discard.function = function;
    if (trap != support::DecodedTrap{} &&
        takes(16 + RoundedUp(trap.group.size()) + RoundedUp(trap.trap.size())))
        discard.trap = trap;
    discard.records = {1};
    if (discard.function) discard.records.push_back(1038);
    if (discard.trap) discard.records.push_back(1041);
    if (discard.linuxReason) discard.records.push_back(1042);

    std::vector<std::byte> bytes = HeaderOf(sample);
    while (size + RoundedUp(bytes.size()) > room) bytes.pop_back();
    discard.header = support::DecodedHeader{static_cast<std::uint32_t>(sample.protocol), sample.frameLength,
                                            sample.stripped, std::move(bytes)};
    return discard;
}
