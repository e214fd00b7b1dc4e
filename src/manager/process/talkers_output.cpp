// SPDX-License-Identifier: Apache-2.0
#include "manager/process/talkers_output.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

namespace manager {
namespace {

std::string PerSecond(std::uint64_t count, std::chrono::milliseconds counted)
{
    const double seconds = std::chrono::duration<double>(counted).count();
    return std::to_string(std::llround(static_cast<double>(count) / seconds));
}

OutputNode Entry(const Talker& talker, std::chrono::milliseconds counted)
{
    const FlowKey& flow = talker.flow;
    OutputNode entry{.name = "talker"};
    entry.children = {{.name = "source", .value = SourceText(flow)},
                      {.name = "destination", .value = DestinationText(flow)},
                      {.name = "protocol", .value = ProtocolText(flow)}};
    if (flow.hasPorts) {
        entry.children.push_back({.name = "source-port", .value = std::to_string(flow.sourcePort)});
        entry.children.push_back({.name = "destination-port", .value = std::to_string(flow.destinationPort)});
    }
    entry.children.push_back({.name = "samples", .value = std::to_string(talker.counts.samples)});
    entry.children.push_back(
        {.name = "packets-per-second", .value = PerSecond(talker.counts.packets, counted)});
    entry.children.push_back(
        {.name = "bits-per-second", .value = PerSecond(talker.counts.bytes * 8, counted)});
    return entry;
}

}  // namespace

ActionResult TalkersOutput(const TopTalkers& top)
{
    ActionResult result;
    result.output = {{.name = "counted-for", .value = std::to_string(top.counted.count())},
                     {.name = "samples", .value = std::to_string(top.samples)}};
    if (top.counted.count() == 0) return result;  // no time, no rates
    for (const Talker& talker : top.talkers) result.output.push_back(Entry(talker, top.counted));
    return result;
}

}  // namespace manager
