// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/talker_table.h"

#include <algorithm>
#include <utility>

#include "wire/frame.h"

namespace manager {

void TalkerTable::Count(const capture::Sample& sample, wire::HeaderProtocol protocol) noexcept
{
    m_now.samples += sample.count;
    const auto key = FlowKeyOf(protocol, sample.header);
    if (!key) return;
    const bool ethernet = protocol == wire::HeaderProtocol::kEthernet;
    const std::uint64_t length =
        ethernet ? wire::FrameLength(sample.length, sample.tagProtocol != 0) : sample.length;
    const std::uint64_t packets = std::uint64_t{sample.count} * sample.rate;
    // Of a packet of several segments a sample is one of them.
    const TalkerCounts counts{sample.count, packets,
                              packets * length / std::max<std::uint64_t>(sample.segments, 1)};
    const auto [at, isNew] = m_now.flows.try_emplace(*key);
    at->second += counts;
    if (isNew && m_now.flows.size() > kMaxFlows) PutOut();
}

void TalkerTable::PutOut()
{
    std::vector<std::uint64_t> bytes;
    bytes.reserve(m_now.flows.size());
    for (const auto& [flow, counts] : m_now.flows) bytes.push_back(counts.bytes);
    std::size_t most = bytes.size() - kFlowsThatStay;  // of equal ones not all
    const auto bound = bytes.begin() + static_cast<std::ptrdiff_t>(most);
    std::ranges::nth_element(bytes, bound);
    std::erase_if(m_now.flows, [&](const auto& each) {
        if (most == 0 || each.second.bytes > *bound) return false;
        --most;
        return true;
    });
}

TopTalkers TalkerTable::Look(Time now)
{
    m_lastLook = now;
    TopTalkers top;
    top.counted = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_begin);
    top.samples = m_before.samples + m_now.samples;
    Flows all(m_before.flows, &m_pool);
    for (const auto& [flow, counts] : m_now.flows) all[flow] += counts;
    top.talkers.reserve(all.size());
    for (const auto& [flow, counts] : all) top.talkers.push_back({flow, counts});
    const std::size_t shown = std::min(kMaxTalkers, top.talkers.size());
    std::ranges::partial_sort(top.talkers, top.talkers.begin() + static_cast<std::ptrdiff_t>(shown),
                              std::ranges::greater{}, [](const Talker& each) { return each.counts.bytes; });
    top.talkers.resize(shown);
    if (now - m_turned >= kHalf) {
        std::swap(m_before, m_now);
        m_now.flows.clear();
        m_now.samples = 0;
        m_begin = std::exchange(m_turned, now);
    }
    return top;
}

}  // namespace manager
