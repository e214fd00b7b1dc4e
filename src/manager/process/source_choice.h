// SPDX-License-Identifier: Apache-2.0
// Where packets are sampled: by the program's options, and by what the machine allows.

#ifndef MANAGER_PROCESS_SOURCE_CHOICE_H
#define MANAGER_PROCESS_SOURCE_CHOICE_H

#include <memory>
#include <string>

#include "capture/packet_source.h"
#include "manager/service/status.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}

namespace manager {

struct Options;

/// The mark of the manager's own datagrams, which the source leaves out, and the size of its buffer.
capture::SourceOptions SourceOptionsOf(const Options& options);

struct ChosenSource {
    std::unique_ptr<capture::PacketSource> source;  // null: none can be used
    SourceStatus status;
};

/// Chooses where packets are sampled: the best source that this machine and this process's privileges allow,
/// and says why not a better one. `wanted` is "auto", or a kind of source that is to be the only one tried:
/// "ebpf", "ebpf-tcx", "ebpf-clsact", "packet-socket". Loop, timers and sink must outlive the source.
ChosenSource ChooseSource(const std::string& wanted, boost::asio::io_context& loop, base::Timers& timers,
                          capture::SampleSink& sink, const capture::SourceOptions& options);

}  // namespace manager

#endif
