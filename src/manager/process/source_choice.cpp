// SPDX-License-Identifier: Apache-2.0
#include "manager/process/source_choice.h"

#include <array>
#include <functional>

#include "capture/unavailable.h"
#include "manager/process/options.h"

namespace manager {
namespace {

struct Candidate {
    const char* name;
    bool automatic;  // one of those that "auto" tries
    std::function<std::unique_ptr<capture::PacketSource>()> make;
};

}  // namespace

capture::SourceOptions SourceOptionsOf(const Options& options)
{
    capture::SourceOptions source;
    source.ownMark = options.mark;
    source.bufferSize = options.ringSize;
    source.expediteRcu = options.expediteRcu;
    return source;
}

ChosenSource ChooseSource(const std::string& wanted, boost::asio::io_context& loop, base::Timers& timers,
                          capture::SampleSink& sink, const capture::SourceOptions& options)
{
    const auto ebpf = [&](capture::EbpfHook hook) {
        return [&, hook] { return capture::MakeEbpfSource(loop, timers, sink, options, hook); };
    };
    const std::array<Candidate, 4> candidates{{
        {"ebpf", true, ebpf(capture::EbpfHook::kBest)},
        {"ebpf-tcx", false, ebpf(capture::EbpfHook::kTcx)},
        {"ebpf-clsact", false, ebpf(capture::EbpfHook::kClsact)},
        {"packet-socket", true, [&] { return capture::MakeRingSource(loop, timers, sink, options); }},
    }};
    ChosenSource chosen;
    chosen.status.kind = "none";
    for (const Candidate& candidate : candidates) {
        if (wanted == "auto" ? !candidate.automatic : wanted != candidate.name) continue;
        try {
            chosen.source = candidate.make();
            chosen.status.kind = chosen.source->Kind();
            chosen.status.permission = true;
            return chosen;
        } catch (const capture::Unavailable& reason) {
            if (!chosen.status.reason.empty()) chosen.status.reason += "; ";
            chosen.status.reason += std::string(candidate.name) + ": " + reason.what();
            if (reason.Why() == capture::Unavailable::Cause::kPermission) chosen.status.permission = false;
        }
    }
    return chosen;
}

}  // namespace manager
