// SPDX-License-Identifier: Apache-2.0
// The accounts of samples (see the header).

#include "endurance/ledger.h"

#include <sstream>

namespace endurance {
namespace {

using support::DecodedFlow;

std::string Describe(const DecodedFlow& flow)
{
    std::ostringstream text;
    text << "sequence " << flow.sequence << ", pool " << flow.pool << ", drops " << flow.drops << ", rate 1/"
         << flow.rate << ", source " << flow.sourceIndex;
    return text.str();
}

/// The first neighbours that the test calls wrong.
template <typename Wrong>
std::string FirstFault(const Flows& flows, const char* what, Wrong wrong)
{
    for (std::size_t i = 1; i < flows.size(); ++i)
        if (wrong(flows[i - 1], flows[i]))
            return std::string(what) + ": sample " + std::to_string(i) + " of " +
                   std::to_string(flows.size()) + " is [" + Describe(flows[i]) + "] behind [" +
                   Describe(flows[i - 1]) + "]";
    return {};
}

}  // namespace

std::vector<support::Bytes> NumberedFrames(std::uint8_t from, std::uint8_t to, std::size_t size)
{
    std::vector<support::Bytes> frames;
    for (std::uint64_t number = 0; number < kNumbers; ++number)
        frames.push_back(support::UdpFrame({.from = from, .to = to, .size = size, .number = number}));
    return frames;
}

std::uint64_t NumberOf(const DecodedFlow& flow)
{
    return flow.header ? support::NumberOf(flow.header->bytes) : 0;
}

std::string FaultInSequence(const Flows& flows, std::uint32_t first)
{
    for (const DecodedFlow& flow : flows)
        if (flow.drops != 0) return "drops: " + Describe(flow);
    if (!flows.empty() && flows[0].sequence != first)
        return "the first is [" + Describe(flows[0]) + "], not sequence " + std::to_string(first);
    return FirstFault(flows, "sequence",
                      [](const auto& one, const auto& next) { return next.sequence != one.sequence + 1; });
}

std::string FaultInPart(const Flows& flows, unsigned gaps)
{
    unsigned found = 0;
    for (std::size_t i = 1; i < flows.size(); ++i)
        found += flows[i].sequence == flows[i - 1].sequence + 1 ? 0 : 1;
    if (found > gaps) return std::to_string(found) + " gaps, not " + std::to_string(gaps);
    return FirstFault(flows, "sequence",
                      [](const auto& one, const auto& next) { return next.sequence <= one.sequence; });
}

std::vector<std::uint64_t> Positions(const Flows& flows)
{
    std::vector<std::uint64_t> positions;
    for (std::size_t i = 0; i < flows.size(); ++i) {
        const std::uint64_t before = i == 0 ? kNumbers - 1 : NumberOf(flows[i - 1]);
        const std::uint64_t step = (NumberOf(flows[i]) + kNumbers - before - 1) % kNumbers + 1;
        positions.push_back((i == 0 ? 0 : positions.back()) + step);
    }
    return positions;
}

std::string FaultInWhole(const Flows& flows, std::uint64_t frames, Pool pool)
{
    if (std::string fault = FaultInSequence(flows); !fault.empty()) return fault;
    if (flows.size() != frames)
        return std::to_string(flows.size()) + " samples of " + std::to_string(frames) + " frames";
    const auto positions = Positions(flows);
    for (std::size_t i = 0; i < flows.size(); ++i)
        if (positions[i] != flows[i].sequence)
            return "frame " + std::to_string(positions[i]) + ": " + Describe(flows[i]);
    if (!flows.empty() && flows.back().pool != frames) return "pool at the end: " + Describe(flows.back());
    return FaultInPool(flows, pool);
}

std::string FaultInNumbers(const Flows& flows)
{
    return FirstFault(flows, "number in the frame", [](const auto& one, const auto& next) {
        return NumberOf(next) != (NumberOf(one) + 1) % kNumbers;
    });
}

std::string FaultInPool(const Flows& flows, Pool pool)
{
    const auto positions = Positions(flows);
    for (std::size_t i = 0; i < flows.size(); ++i)
        if (flows[i].pool < flows[i].sequence || (pool == Pool::kExact && flows[i].pool != positions[i]))
            return "pool at frame " + std::to_string(positions[i]) + ": " + Describe(flows[i]);
    return FirstFault(flows, "pool", [](const auto& one, const auto& next) { return next.pool < one.pool; });
}

std::string FaultInDatagrams(const std::vector<support::Arrival>& arrivals, std::uint32_t first)
{
    std::uint32_t expected = first;
    for (const support::Arrival& arrival : arrivals) {
        const std::uint32_t sequence = arrival.datagram.sequence;
        if (sequence != expected)
            return "datagram " + std::to_string(sequence) + " where " + std::to_string(expected) +
                   " should be";
        ++expected;
    }
    return {};
}

}  // namespace endurance
