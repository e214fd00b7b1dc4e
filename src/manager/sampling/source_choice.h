// SPDX-License-Identifier: Apache-2.0
// Chooses where packets are sampled: the best source that this machine and this process's privileges
// allow, and says why not a better one.

#ifndef MANAGER_SAMPLING_SOURCE_CHOICE_H
#define MANAGER_SAMPLING_SOURCE_CHOICE_H

#include <memory>
#include <string>

#include "capture/packet_source.h"
#include "manager/service/status.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace manager {

struct ChosenSource {
    std::unique_ptr<capture::PacketSource> source;  // null: none can be used
    SourceStatus status;
};

/// `wanted` is "auto", or a kind of source that is to be the only one tried: "ebpf", "ebpf-tcx",
/// "ebpf-clsact", "packet-socket". Loop, timers and sink must outlive the source.
ChosenSource ChooseSource(const std::string& wanted, boost::asio::io_context& loop, base::Timers& timers,
                          capture::SampleSink& sink, const capture::SourceOptions& options);

}  // namespace manager

#endif
