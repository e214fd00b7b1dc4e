// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/port.h"

#include <algorithm>

namespace capture {

namespace {

using std::chrono::milliseconds;

// Between two looks at a ring. The packets that one core can send into an interface, times what a sample
// takes of a ring, give the time in which two thirds of it may fill.
constexpr milliseconds kMinPause{5};
constexpr milliseconds kMaxPause{98};
constexpr std::uint64_t kPacketsPerMillisecond = 1000;
constexpr std::uint64_t kSampleSize = 256;

}  // namespace

Counts RingPort::Count() const
{
    Counts counts = before;
    if (!pair) return counts;
    const Counts now = pair->Count();
    counts.pool += now.pool;
    counts.drops += now.drops;
    return counts;
}

std::size_t RingPort::HandOver(SampleSink& sink, std::vector<Sample>& samples)
{
    if (!pair) return 0;
    const std::size_t waiting = pair->IsReadable() ? pair->Blocks().Waiting() : 0;
    if (waiting == 0) return 0;
    Pace(waiting);
    // Read after the blocks are counted: it includes their samples.
    const Counts counts = Count();
    for (std::size_t block = 0; block < waiting; ++block) {
        samples.clear();
        pair->Blocks().Take(samples);
        Emit(sink, samples, counts);
        pair->Blocks().Release();
    }
    return waiting;
}

void RingPort::HandOverLast(SampleSink& sink, std::vector<Sample>& samples)
{
    while (HandOver(sink, samples) > 0) continue;
    const Counts counts = Count();
    if (pair->InRing() > delivered && pair->IsReadable()) {
        samples.clear();
        pair->Blocks().TakeUnfinished(samples, pair->InRing() - delivered);
        Emit(sink, samples, counts);
    }
    Counts last = Count();  // with what came meanwhile
    // Packets that were not finished in time.
    last.drops += pair->InRing() - std::min(pair->InRing(), delivered);
    before = last;
    told = last.pool;
}

void RingPort::Emit(SampleSink& sink, std::vector<Sample>& samples, const Counts& counts)
{
    if (samples.empty()) return;
    Describe(samples, counts);
    sink.OnSamples(samples);
}

// The kernel does not say how many packets had been counted when a sample was taken. What has come since the
// last sample is shared out evenly over all that are in the ring: at 1:1 each pool is exact then, and else it
// rises by what the sample stands for. A jump at each look would mislead estimates by differences of pools.
void RingPort::Describe(std::span<Sample> samples, const Counts& counts)
{
    const std::uint64_t inRing = pair->InRing();
    for (Sample& sample : samples) {
        const std::uint64_t left = inRing > delivered ? inRing - delivered : 1;
        told += (counts.pool - told) / left;
        ++delivered;
        sample.ifIndex = ifIndex;
        sample.rate = pair->Current().rate;
        sample.pool = told;
        sample.drops = counts.drops;
    }
}

milliseconds RingPort::PauseFor(const PacketSocketPair& pair)
{
    const std::uint64_t samples = pair.Blocks().Bytes() * 2 / 3 / kSampleSize;
    return std::clamp(milliseconds(samples * pair.Current().rate / kPacketsPerMillisecond), kMinPause,
                      kMaxPause);
}

// More than a third since the last look: sooner next time. Less than an eighth: later.
void RingPort::Pace(std::size_t waiting)
{
    const std::size_t blocks = pair->Blocks().Blocks();
    if (waiting * 3 > blocks)
        pause = std::max(pause / 2, kMinPause);
    else if (waiting * 8 < blocks)
        pause = std::min(pause * 2, PauseFor(*pair));
}

}  // namespace capture
