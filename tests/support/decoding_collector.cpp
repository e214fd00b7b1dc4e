// SPDX-License-Identifier: Apache-2.0
// A collector that keeps every datagram (see the header).

#include "support/decoding_collector.h"

#include <utility>
#include <variant>

namespace support {
namespace {

template <typename Sample>
std::vector<Sample> SamplesIn(std::span<const Arrival> arrivals, std::uint32_t ifIndex)
{
    std::vector<Sample> all;
    for (const Arrival& arrival : arrivals)
        for (const DecodedSample& sample : arrival.datagram.samples)
            if (const auto* wanted = std::get_if<Sample>(&sample);
                wanted != nullptr && (ifIndex == 0 || wanted->sourceIndex == ifIndex))
                all.push_back(*wanted);
    return all;
}

template <typename Sample>
std::size_t CountIn(const std::vector<Arrival>& arrivals)
{
    std::size_t count = 0;
    for (const Arrival& arrival : arrivals)
        for (const DecodedSample& sample : arrival.datagram.samples)
            count += std::holds_alternative<Sample>(sample) ? 1 : 0;
    return count;
}

template <typename Sample>
void AwaitSamples(DecodingCollector& collector, const char* kind, std::size_t count,
                  std::chrono::milliseconds within)
{
    std::size_t come = 0;
    const auto enough = [&] { return (come = CountIn<Sample>(collector.Arrivals())) >= count; };
    if (!Becomes(enough, within))
        throw TimedOut(std::to_string(come) + " " + kind + " samples have come, not " +
                       std::to_string(count));
}

}  // namespace

std::vector<DecodedFlow> FlowsIn(std::span<const Arrival> arrivals, std::uint32_t ifIndex)
{
    return SamplesIn<DecodedFlow>(arrivals, ifIndex);
}

std::vector<DecodedCounters> CountersIn(std::span<const Arrival> arrivals, std::uint32_t ifIndex)
{
    return SamplesIn<DecodedCounters>(arrivals, ifIndex);
}

DecodingCollector::DecodingCollector(const std::string& address, std::uint16_t port)
    : m_address(address),
      m_socket({.address = address, .port = port, .times = true, .services = true}),
      m_thread([this] { Listen(); })
{
}

DecodingCollector::~DecodingCollector()
{
    m_stop = true;
    m_thread.join();
}

void DecodingCollector::Listen()
{
    while (!m_stop) {
        m_socket.AwaitDatagram(std::chrono::milliseconds(20));
        while (const auto received = m_socket.Receive()) {
            m_overflowed = m_socket.Overflowed();
            const std::lock_guard lock(m_mutex);
            m_heard.push_back({{received->bytes.begin(), received->bytes.end()},
                               received->time,
                               received->from,
                               received->tos});
            ++m_count;
        }
    }
}

const std::vector<Arrival>& DecodingCollector::Arrivals()
{
    std::vector<Arrival> fresh;
    {
        const std::lock_guard lock(m_mutex);
        fresh.swap(m_heard);
    }
    for (Arrival& arrival : fresh) {
        arrival.datagram = DecodeDatagram(arrival.bytes);
        m_arrivals.push_back(std::move(arrival));
    }
    return m_arrivals;
}

std::uint32_t DecodingCollector::LastSequence(std::uint32_t ifIndex)
{
    const auto& all = Arrivals();
    for (auto arrival = all.rbegin(); arrival != all.rend(); ++arrival) {
        const auto& samples = arrival->datagram.samples;
        for (auto sample = samples.rbegin(); sample != samples.rend(); ++sample)
            if (const auto* flow = std::get_if<DecodedFlow>(&*sample);
                flow != nullptr && flow->sourceIndex == ifIndex)
                return flow->sequence;
    }
    return 0;
}

std::vector<DecodedFlow> DecodingCollector::AwaitFlows(std::size_t count, std::chrono::milliseconds within)
{
    AwaitSamples<DecodedFlow>(*this, "flow", count, within);
    return Flows();
}

std::vector<DecodedCounters> DecodingCollector::AwaitCounters(std::size_t count)
{
    AwaitSamples<DecodedCounters>(*this, "counter", count, kPatience);
    return Counters();
}

void DecodingCollector::AwaitQuiet(const std::vector<const DecodingCollector*>& collectors,
                                   std::chrono::milliseconds quiet)
{
    const auto count = [&] {
        std::size_t sum = 0;
        for (const DecodingCollector* collector : collectors) sum += collector->Count();
        return sum;
    };
    AwaitStill("collectors to hear nothing more", count, quiet);
}

}  // namespace support
