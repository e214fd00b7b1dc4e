// SPDX-License-Identifier: Apache-2.0
// A collector that does little (see the header).

#include "sampling/collector.h"

#include <arpa/inet.h>

#include <cstring>

#include "sampling/forwarding_path.h"
#include "support/poll.h"

namespace sampling {
namespace {

using Bytes = std::span<const std::byte>;

constexpr int kBufferSize = 256 << 20;               // a second of samples of everything
constexpr std::chrono::milliseconds kPause{5};       // between two looks
constexpr std::chrono::milliseconds kSettling{400};  // longer than a sample waits anywhere

// Sample formats of sFlow version 5, of enterprise 0.
constexpr std::uint32_t kFlow = 1, kCounters = 2, kExpandedFlow = 3, kExpandedCounters = 4;

std::uint32_t Word(Bytes bytes, std::size_t index)
{
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + index * 4, sizeof word);
    return ntohl(word);
}

}  // namespace

// Datagrams that were sent as one segmented packet stay one until here.
Collector::Collector() : m_socket({.bufferSize = kBufferSize, .merged = true}), m_thread([this] { Listen(); })
{
}

Collector::~Collector()
{
    m_stop = true;
    m_thread.join();
}

Received Collector::Read() const
{
    const std::lock_guard lock(m_mutex);
    return m_received;
}

Received Collector::Settled() const
{
    support::AwaitStill(
        "the collector to get nothing more", [this] { return Read().datagrams; }, kSettling);
    return Read();
}

void Collector::WatchForFlowSample()
{
    {
        const std::lock_guard lock(m_mutex);
        m_firstFlowSample.reset();
    }
    m_watching = true;
    std::this_thread::sleep_for(2 * kPause);  // until the thread waits for datagrams
}

std::optional<Collector::Clock::time_point> Collector::AwaitFlowSample(std::chrono::milliseconds within)
{
    const auto come = [this] {
        const std::lock_guard lock(m_mutex);
        return m_firstFlowSample;
    };
    (void)support::Becomes([&] { return come().has_value(); }, within);
    m_watching = false;
    return come();
}

void Collector::Listen()
{
    support::Pin(0, kManagerCore);
    while (!m_stop) {
        if (m_watching)
            m_socket.AwaitDatagram(std::chrono::milliseconds(50));
        else
            std::this_thread::sleep_for(kPause);
        while (const auto received = m_socket.Receive()) {
            const std::lock_guard lock(m_mutex);
            TakeDatagram(received->bytes);
        }
    }
}

void Collector::TakeDatagram(Bytes datagram)
{
    constexpr std::size_t kHead = 28;  // with an IPv4 agent address
    if (datagram.size() < kHead || Word(datagram, 0) != 5 || Word(datagram, 1) != 1) {
        ++m_received.malformed;
        return;
    }
    ++m_received.datagrams;
    m_received.bytes += datagram.size();
    const auto sequence = Word(datagram, 4);
    // A stream that begins anew begins with 1.
    if (sequence != 1) m_received.missingDatagrams += sequence - m_sequence - 1;
    m_sequence = sequence;
    const auto samples = Word(datagram, 6);
    auto rest = datagram.subspan(kHead);
    for (std::uint32_t i = 0; i < samples; ++i) {
        if (rest.size() < 8 || rest.size() - 8 < Word(rest, 1)) {
            ++m_received.malformed;
            return;
        }
        TakeSample(rest.subspan(8, Word(rest, 1)), Word(rest, 0));
        rest = rest.subspan(8 + Word(rest, 1));
    }
    if (!rest.empty()) ++m_received.malformed;
}

void Collector::TakeSample(Bytes sample, std::uint32_t format)
{
    const bool expanded = format == kExpandedFlow || format == kExpandedCounters;
    const bool flow = format == kFlow || format == kExpandedFlow;
    if ((!flow && format != kCounters && format != kExpandedCounters) || sample.size() < 32) {
        ++m_received.malformed;
        return;
    }
    const std::uint64_t source =
        expanded ? std::uint64_t{Word(sample, 1)} << 24U | Word(sample, 2) : Word(sample, 1);
    auto& known = Follow(source << 1U | (flow ? 1U : 0U), Word(sample, 0));
    if (!flow) {
        ++m_received.counterSamples;
        return;
    }
    ++m_received.flowSamples;
    if (!m_firstFlowSample) m_firstFlowSample = Clock::now();
    const auto drops = Word(sample, expanded ? 5 : 4);
    m_received.drops += drops - known.drops;
    known.drops = drops;
}

Collector::Source& Collector::Follow(std::uint64_t key, std::uint32_t sequence)
{
    auto& source = m_sources[key];
    if (sequence == 1)
        source = {};
    else
        m_received.missingSamples += sequence - source.sequence - 1;
    source.sequence = sequence;
    return source;
}

}  // namespace sampling
